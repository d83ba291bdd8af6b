// Steps that raise or lower the rate by 2 or 4: whole frames are repeated, or left out.
//
// A group that the room or the input cuts apart is cut there. In a converter's chain the rest of the group is owed to
// the next block (carrying_step), so the stream comes out the same however it is cut.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "audio/convert_kernels.hpp"
#include "audio/steps.hpp"

namespace kel {
namespace {

carrying_step* carried(kel_audio_step* step) {
    return step && step->release == carrying_release ? reinterpret_cast<carrying_step*>(step) : nullptr;
}

bool is_item(size_t bytes) {
    return bytes == 1 || bytes == 2 || bytes == 4 || bytes == 8;
}

void write_times(uint8_t* out, const uint8_t* frame, size_t bytes, int32_t times) {
    for (int32_t i = 0; i < times; ++i) memcpy(out + static_cast<size_t>(i) * bytes, frame, bytes);
}

// Every frame `factor` times.
void repeat_frames(uint8_t* out, const uint8_t* in, int32_t frames, size_t bytes, int32_t factor) {
    if (is_item(bytes)) {
        best_convert_kernels().repeat(out, in, static_cast<size_t>(frames), bytes,
                                      static_cast<size_t>(factor));
        return;
    }
    for (int32_t i = 0; i < frames; ++i)
        write_times(out + static_cast<size_t>(i) * static_cast<size_t>(factor) * bytes,
                    in + static_cast<size_t>(i) * bytes, bytes, factor);
}

// The first of every `factor` frames.
void drop_frames(uint8_t* out, const uint8_t* in, int32_t frames_out, size_t bytes, int32_t factor) {
    if (is_item(bytes)) {
        best_convert_kernels().drop(out, in, static_cast<size_t>(frames_out), bytes,
                                    static_cast<size_t>(factor));
        return;
    }
    for (int32_t i = 0; i < frames_out; ++i)
        memcpy(out + static_cast<size_t>(i) * bytes,
               in + static_cast<size_t>(i) * static_cast<size_t>(factor) * bytes, bytes);
}

void raise(kel_audio_step* step, int32_t factor, const void* input, void* output, int32_t* offered,
           int32_t* room, kel_audio_format* format) {
    const auto bytes = static_cast<size_t>(kel_get_audio_sample_size(format));
    const auto* in = static_cast<const uint8_t*>(input);
    auto* out = static_cast<uint8_t*>(output);
    const int32_t frames = std::max(*offered, 0), space = std::max(*room, 0);
    int32_t written = 0;
    carrying_step* own = carried(step);
    if (own) {
        written = std::min(own->owed, space);
        write_times(out, own->frame, bytes, written);
        own->owed -= written;
    }
    const int32_t whole = std::min(frames, (space - written) / factor);
    repeat_frames(out + static_cast<size_t>(written) * bytes, in, whole, bytes, factor);
    written += whole * factor;
    int32_t consumed = whole;
    const int32_t left = space - written;  // less than a group when input is left
    if (consumed < frames && left > 0) {
        const uint8_t* frame = in + static_cast<size_t>(consumed) * bytes;
        write_times(out + static_cast<size_t>(written) * bytes, frame, bytes, left);
        if (own) {
            memcpy(own->frame, frame, bytes);
            own->owed = factor - left;
        }
        written += left;
        ++consumed;
    }
    *offered = consumed;
    *room = written;
    format->rate *= factor;
}

void lower(kel_audio_step* step, int32_t factor, const void* input, void* output, int32_t* offered,
           int32_t* room, kel_audio_format* format) {
    const auto bytes = static_cast<size_t>(kel_get_audio_sample_size(format));
    const int32_t frames = std::max(*offered, 0), space = std::max(*room, 0);
    carrying_step* own = carried(step);
    const int32_t skipped = own ? std::min(own->owed, frames) : 0;
    if (own) own->owed -= skipped;
    const auto* in = static_cast<const uint8_t*>(input) + static_cast<size_t>(skipped) * bytes;
    const int32_t left = frames - skipped;
    const int32_t groups = left / factor + (left % factor != 0);
    const int32_t written = std::min(groups, space);
    drop_frames(static_cast<uint8_t*>(output), in, written, bytes, factor);
    const int64_t wanted = int64_t{written} * factor;
    const auto taken = static_cast<int32_t>(std::min<int64_t>(wanted, left));
    if (own && wanted > left) own->owed = static_cast<int32_t>(wanted - left);
    *offered = skipped + taken;
    *room = written;
    format->rate /= factor;
}

}  // namespace

kel_audio_step* make_carrying_step(int32_t frame_bytes) {
    auto* own =
        static_cast<carrying_step*>(calloc(1, sizeof(carrying_step) + static_cast<size_t>(frame_bytes)));
    if (!own) return nullptr;
    own->step.release = carrying_release;
    return &own->step;
}

void carrying_release(kel_audio_step* step) {
    free(step);
}

#define KEL_RATE_KERNEL(name, change, factor)                                                   \
    void name(kel_audio_step* step, const void* in, void* out, int32_t* offered, int32_t* room, \
              kel_audio_format* format) {                                                       \
        change(step, factor, in, out, offered, room, format);                                   \
    }
KEL_RATE_KERNEL(rate_double_8, raise, 2)
KEL_RATE_KERNEL(rate_double_16, raise, 2)
KEL_RATE_KERNEL(rate_quadruple_8, raise, 4)
KEL_RATE_KERNEL(rate_quadruple_16, raise, 4)
KEL_RATE_KERNEL(rate_halve_8, lower, 2)
KEL_RATE_KERNEL(rate_halve_16, lower, 2)
KEL_RATE_KERNEL(rate_quarter_8, lower, 4)
KEL_RATE_KERNEL(rate_quarter_16, lower, 4)
#undef KEL_RATE_KERNEL

}  // namespace kel
