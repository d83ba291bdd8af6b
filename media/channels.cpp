#include "channels.hpp"

namespace kel_tool {

kel_channel* output_of(kel_filter* filter, uint32_t media_type) {
    auto* table = static_cast<const mmf_output_interface*>(MmGetFilterInterface(filter, "MediaOutput"));
    for (int cursor = 0; kel_channel* channel = table->iterate_outputs(filter, &cursor);)
        if (channel->format.media_type == media_type) return channel;
    return nullptr;
}

kel_channel* input_of(kel_filter* filter, uint32_t media_type) {
    auto* table = static_cast<const mmf_input_interface*>(MmGetFilterInterface(filter, "MediaInput"));
    for (int cursor = 0; kel_channel* channel = table->iterate_inputs(filter, &cursor);)
        if (channel->format.media_type == media_type) return channel;
    return nullptr;
}

}  // namespace kel_tool
