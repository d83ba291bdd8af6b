// The inner loops of the conversion steps. Values are little-endian unless said otherwise; `count` is of values, and
// of frames where frames are named. Input and output may have any alignment and never overlap.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/simd.hpp"

namespace kel {

struct convert_kernels {
    void (*flip_sign_8)(uint8_t* out, const uint8_t* in, size_t count);     // byte ^ 0x80
    void (*flip_sign_16le)(uint8_t* out, const uint8_t* in, size_t count);  // value ^ 0x8000
    void (*flip_sign_16be)(uint8_t* out, const uint8_t* in, size_t count);  // first byte ^ 0x80
    void (*swap_bytes_16)(uint8_t* out, const uint8_t* in, size_t count);
    void (*s8_to_s16)(uint8_t* out, const uint8_t* in, size_t count);   // value × 256
    void (*s16_to_s8)(uint8_t* out, const uint8_t* in, size_t count);   // high byte
    void (*s16_to_s24)(uint8_t* out, const uint8_t* in, size_t count);  // value << 8
    void (*s24_to_s16)(uint8_t* out, const uint8_t* in, size_t count);  // value >> 8, clipped

    // (left + right) >> 1 of each frame.
    void (*downmix_s8)(uint8_t* out, const uint8_t* in, size_t frames);
    void (*downmix_u8)(uint8_t* out, const uint8_t* in, size_t frames);
    void (*downmix_s16le)(uint8_t* out, const uint8_t* in, size_t frames);
    void (*downmix_u16le)(uint8_t* out, const uint8_t* in, size_t frames);
    void (*downmix_s16be)(uint8_t* out, const uint8_t* in, size_t frames);
    void (*downmix_u16be)(uint8_t* out, const uint8_t* in, size_t frames);

    // Every item of 1, 2, 4 or 8 bytes `factor` (2 or 4) times; the first of every `factor` items.
    void (*repeat)(uint8_t* out, const uint8_t* in, size_t items, size_t item_bytes, size_t factor);
    void (*drop)(uint8_t* out, const uint8_t* in, size_t items_out, size_t item_bytes, size_t factor);

    // out frame i = a + (((b - a) × f) >> 16), stored as 16 bits, with p = position + i × increment (16.16, unsigned,
    // below 2^32), a and b the input frames p >> 16 and the next, f the fraction of p. The input has in_frames.
    void (*resample_mono)(uint8_t* out, const uint8_t* in, size_t frames, size_t in_frames, uint32_t position,
                          uint32_t increment);
    void (*resample_stereo)(uint8_t* out, const uint8_t* in, size_t frames, size_t in_frames,
                            uint32_t position, uint32_t increment);
};

KEL_SIMD_VARIANTS(convert_kernels, convert_table)

inline const convert_kernels& best_convert_kernels() {
    return KEL_SIMD_BEST(convert_table);
}

}  // namespace kel
