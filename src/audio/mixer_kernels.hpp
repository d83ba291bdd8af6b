// The inner loops of the mixer. Counts are values, not frames; `in` and `out` of type void may have any alignment.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/simd.hpp"

namespace kel {

// The gain of 1.0: gains are in units of 1/256.
inline constexpr int32_t unity_gain = 256;

// How samples of one type come into the mix.
struct mixer_input {
    void (*add)(int32_t* mix, const void* in, size_t count);  // to what is there, with wrap-around
    void (*put)(int32_t* mix, const void* in, size_t count);  // where nothing is yet
};

struct mixer_kernels {
    mixer_input s24_8;
    mixer_input s16;  // converted, × 256, in the same pass

    // out[i] = (mix[i] × gain) >> 8, saturated, as S24.8LE; out may be mix.
    void (*scale)(void* out, const int32_t* mix, size_t count, int32_t gain);

    // The same converted to S16LE in one pass: the floors of the scaling and of the conversion are one shift, and
    // the narrower saturation covers the wider one.
    void (*scale_to_s16)(void* out, const int32_t* mix, size_t count, int32_t gain);
};

KEL_SIMD_VARIANTS(mixer_kernels, mixer_table)

inline const mixer_kernels& best_mixer_kernels() {
    return KEL_SIMD_BEST(mixer_table);
}

}  // namespace kel
