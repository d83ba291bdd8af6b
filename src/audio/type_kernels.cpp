// Steps that change the sample type.
#include <algorithm>

#include "audio/convert_kernels.hpp"
#include "audio/steps.hpp"

namespace kel {
namespace {

using loop = void (*)(uint8_t* out, const uint8_t* in, size_t count);

// Runs a loop over every value of the frames that are offered and fit; the counts become their number.
void run(loop convert, const void* in, void* out, int32_t* offered, int32_t* room, int32_t channels) {
    const int32_t frames = std::max(std::min(*offered, *room), 0);
    convert(static_cast<uint8_t*>(out), static_cast<const uint8_t*>(in),
            static_cast<size_t>(frames) * static_cast<size_t>(channels));
    *offered = *room = frames;
}

}  // namespace

void convert_flip_sign_8(kel_audio_step*, const void* in, void* out, int32_t* offered, int32_t* room,
                         kel_audio_format* format) {
    run(best_convert_kernels().flip_sign_8, in, out, offered, room, format->channels);
    format->type ^= KEL_AUDIO_TYPE_SIGNED;
}

void convert_flip_sign_16le(kel_audio_step*, const void* in, void* out, int32_t* offered, int32_t* room,
                            kel_audio_format* format) {
    run(best_convert_kernels().flip_sign_16le, in, out, offered, room, format->channels);
    format->type ^= KEL_AUDIO_TYPE_SIGNED;
}

void convert_flip_sign_16be(kel_audio_step*, const void* in, void* out, int32_t* offered, int32_t* room,
                            kel_audio_format* format) {
    run(best_convert_kernels().flip_sign_16be, in, out, offered, room, format->channels);
    format->type ^= KEL_AUDIO_TYPE_SIGNED;
}

void convert_swap_bytes_16(kel_audio_step*, const void* in, void* out, int32_t* offered, int32_t* room,
                           kel_audio_format* format) {
    run(best_convert_kernels().swap_bytes_16, in, out, offered, room, format->channels);
    format->type ^= KEL_AUDIO_TYPE_BIG_ENDIAN;
}

void convert_s8_to_s16le(kel_audio_step*, const void* in, void* out, int32_t* offered, int32_t* room,
                         kel_audio_format* format) {
    run(best_convert_kernels().s8_to_s16, in, out, offered, room, format->channels);
    format->type = KEL_AUDIO_TYPE_S16LE;
}

void convert_s16le_to_s8(kel_audio_step*, const void* in, void* out, int32_t* offered, int32_t* room,
                         kel_audio_format* format) {
    run(best_convert_kernels().s16_to_s8, in, out, offered, room, format->channels);
    format->type = KEL_AUDIO_TYPE_S8;
}

void convert_s24_8le_to_s16le(kel_audio_step*, const void* in, void* out, int32_t* offered, int32_t* room,
                              kel_audio_format* format) {
    run(best_convert_kernels().s24_to_s16, in, out, offered, room, format->channels);
    format->type = KEL_AUDIO_TYPE_S16LE;
}

void convert_s16le_to_s24_8le(kel_audio_step*, const void* in, void* out, int32_t* offered, int32_t* room,
                              kel_audio_format* format) {
    run(best_convert_kernels().s16_to_s24, in, out, offered, room, format->channels);
    format->type = KEL_AUDIO_TYPE_S24_8LE;
}

}  // namespace kel
