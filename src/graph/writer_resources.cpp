// The writer's resources. Integers are brought into their range; every store is made under the state's lock.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/lock.hpp"
#include "base/log.hpp"
#include "graph/writer.hpp"

namespace {

constexpr mmf_integer_range channel_counts = {0, 256, 1};
constexpr mmf_integer_range buffer_minima = {0, 64, 0};
constexpr char audio_count_name[] = "AudioChannelCount";

#define FIELD(name) offsetof(kel_writer_state, name)
constexpr kel::resource_row resources[] = {
    {audio_count_name, "Number of audio channels", FIELD(audio_count), &channel_counts,
     kel::read_write_integer},
    {"VideoChannelCount", "Number of video channels", FIELD(video_count), &channel_counts,
     kel::read_write_integer},
    {"KelContext", "The KEL context to use", FIELD(head.context), nullptr, kel::read_write_pointer},
    {"MinAudioBuffers", "Minimum number of buffers to allocate for audio", FIELD(head.min_audio_buffers),
     &buffer_minima, kel::read_write_integer},
    {"MinVideoBuffers", "Minimum number of buffers to allocate for video", FIELD(head.min_video_buffers),
     &buffer_minima, kel::read_write_integer},
};
#undef FIELD

mmf_resource* get_resources(kel_filter* filter) {
    if (!filter || filter->tag != kel::filter_tag) return nullptr;
    return kel::writer_state(*filter).resources;
}

int set_integer(kel_writer_state& state, const kel::resource_row& row, const void* value) {
    if (!value) return EINVAL;
    const auto& range = *static_cast<const mmf_integer_range*>(row.range);
    const int32_t wanted = *static_cast<const int32_t*>(value);
    kel::lock_guard lock(state.mutex);
    *kel::resource_field<int32_t>(row, &state) = std::clamp(wanted, range.minimum, range.maximum);
    return 0;
}

int set_pointer(kel_writer_state& state, const kel::resource_row& row, const void* value) {
    KEL_LOG_TRACE("kel_writer setting AOR_TYPE_POINTER resources %s to %p", row.name, value);
    kel::lock_guard lock(state.mutex);
    *kel::resource_field<const void*>(row, &state) = value;
    return 0;
}

int set_resource(kel_filter* filter, const char* name, const void* value) {
    if (!filter || !name) return EINVAL;
    if (filter->tag != kel::filter_tag) return kel::resource_unknown;
    const kel::resource_row* row = kel::find_resource(resources, name);
    if (!row) return kel::resource_unknown;
    if (!(row->type & MM_RESOURCE_WRITABLE)) return kel::resource_not_writable;
    kel_writer_state& state = kel::writer_state(*filter);
    if (state.channels_created && strcmp(name, audio_count_name) == 0) return kel::resource_not_writable;
    switch (row->type & MM_RESOURCE_KIND_MASK) {
        case MM_RESOURCE_INTEGER:
            return set_integer(state, *row, value);
        case MM_RESOURCE_POINTER:
            return set_pointer(state, *row, value);
        default:
            return EINVAL;
    }
}

}  // namespace

namespace kel {

owned<mmf_resource> make_writer_resources(kel_writer_state* state) {
    return make_resource_table(::resources, state);
}

const mmf_resource_interface writer_resource_table = {get_resources, set_resource};

}  // namespace kel
