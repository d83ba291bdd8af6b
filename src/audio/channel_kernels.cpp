// Steps between one and two channels.
#include <algorithm>

#include "audio/convert_kernels.hpp"
#include "audio/steps.hpp"

namespace kel {
namespace {

using loop = void (*)(uint8_t* out, const uint8_t* in, size_t frames);

size_t take_frames(int32_t* offered, int32_t* room) {
    *offered = *room = std::max(std::min(*offered, *room), 0);
    return static_cast<size_t>(*room);
}

void downmix(loop convert, const void* in, void* out, int32_t* offered, int32_t* room,
             kel_audio_format* format) {
    convert(static_cast<uint8_t*>(out), static_cast<const uint8_t*>(in), take_frames(offered, room));
    format->channels = 1;
}

void upmix(size_t value_bytes, const void* in, void* out, int32_t* offered, int32_t* room,
           kel_audio_format* format) {
    best_convert_kernels().repeat(static_cast<uint8_t*>(out), static_cast<const uint8_t*>(in),
                                  take_frames(offered, room), value_bytes, 2);
    format->channels = 2;
}

bool is_big_endian(const kel_audio_format& format) {
    return format.type & KEL_AUDIO_TYPE_BIG_ENDIAN;
}

}  // namespace

void channels_downmix_s8(kel_audio_step*, const void* in, void* out, int32_t* offered, int32_t* room,
                         kel_audio_format* format) {
    downmix(best_convert_kernels().downmix_s8, in, out, offered, room, format);
}

void channels_downmix_u8(kel_audio_step*, const void* in, void* out, int32_t* offered, int32_t* room,
                         kel_audio_format* format) {
    downmix(best_convert_kernels().downmix_u8, in, out, offered, room, format);
}

void channels_downmix_s16(kel_audio_step*, const void* in, void* out, int32_t* offered, int32_t* room,
                          kel_audio_format* format) {
    const convert_kernels& kernels = best_convert_kernels();
    downmix(is_big_endian(*format) ? kernels.downmix_s16be : kernels.downmix_s16le, in, out, offered, room,
            format);
}

void channels_downmix_u16(kel_audio_step*, const void* in, void* out, int32_t* offered, int32_t* room,
                          kel_audio_format* format) {
    const convert_kernels& kernels = best_convert_kernels();
    downmix(is_big_endian(*format) ? kernels.downmix_u16be : kernels.downmix_u16le, in, out, offered, room,
            format);
}

void channels_upmix_8(kel_audio_step*, const void* in, void* out, int32_t* offered, int32_t* room,
                      kel_audio_format* format) {
    upmix(1, in, out, offered, room, format);
}

void channels_upmix_16(kel_audio_step*, const void* in, void* out, int32_t* offered, int32_t* room,
                       kel_audio_format* format) {
    upmix(2, in, out, offered, room, format);
}

}  // namespace kel
