// The inner loops of the audio filters.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/simd.hpp"

namespace kel {

// All divided by a0.
struct biquad_coefficients {
    double a1, a2, b0, b1, b2;
};

// Frames that one set of coefficients is applied to; pointers to interleaved values.
struct biquad_section {
    const int32_t* in;
    const int32_t* mix;  // null: only the filtered signal
    int32_t* out;        // may be `in`
    int32_t* x_history;  // 2 × channels values: frame n-2, frame n-1; moved on by `frames`
    int32_t* y_history;
    size_t channels;
    size_t frames;
};

struct filter_kernels {
    // out[i] = (gain[i] × in[i]) >> 16, saturated; out may be in.
    void (*gain)(int32_t* out, const int32_t* in, const int32_t* gain, size_t count);

    // y[n] = b0 x[n] + b1 x[n-1] + b2 x[n-2] - a1 y[n-1] - a2 y[n-2] from left to right, truncated, saturated;
    // then out = (mix × y + (65536 - mix) × x) >> 16, saturated.
    void (*biquad)(const biquad_coefficients& coefficients, const biquad_section& section);
};

KEL_SIMD_VARIANTS(filter_kernels, filter_table)

inline const filter_kernels& best_filter_kernels() {
    return KEL_SIMD_BEST(filter_table);
}

}  // namespace kel
