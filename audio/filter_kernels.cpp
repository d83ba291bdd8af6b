// The inner loops of the audio filters, compiled once per level (simd.hpp).
#include "audio/filter_kernels.hpp"

#include <cstring>
#include <limits>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

namespace kel::KEL_SIMD_LEVEL {
namespace {

// product >> shift as 32 bits, saturated: it fits exactly when its upper bits are all copies of the sign.
template <int shift>
int32_t shift_and_saturate(int64_t product) {
    const auto high = static_cast<int32_t>(product >> 32);
    const auto shifted = static_cast<int32_t>(static_cast<uint64_t>(product) >> shift);
    const int32_t limit = high >> 31 ^ std::numeric_limits<int32_t>::max();
    const int32_t beyond = (high >> (shift - 1)) ^ (high >> 31);
    return beyond == 0 ? shifted : limit;
}

void gain(int32_t* out, const int32_t* in, const int32_t* gain_values, size_t count) {
    KEL_INDEPENDENT_ITERATIONS
    for (size_t i = 0; i < count; ++i) {
        out[i] = shift_and_saturate<16>(static_cast<int64_t>(gain_values[i]) * in[i]);
    }
}

// One channel's value, or two neighbouring channels' values in two lanes. Both have the same operators.
using mono = double;
typedef double stereo __attribute__((vector_size(16)));
typedef int32_t stereo_values __attribute__((vector_size(8)));

template <typename Value>
constexpr size_t lanes = sizeof(Value) / sizeof(double);

template <typename Value>
Value load(const int32_t* values);

template <>
mono load<mono>(const int32_t* values) {
    return *values;
}

template <>
stereo load<stereo>(const int32_t* values) {
    stereo_values pair;
    memcpy(&pair, values, sizeof pair);
    return __builtin_convertvector(pair, stereo);
}

constexpr double lowest = -2147483648.0;
constexpr double highest = 2147483647.0;

#if defined(__SSE2__)

// The processor defines what becomes of values outside the 32-bit range, so a block may be tried without clamping.
constexpr bool may_try_unclamped = true;

void store(int32_t* values, mono value) {
    *values = _mm_cvttsd_si32(_mm_set_sd(value));
}

void store(int32_t* values, stereo value) {
    const __m128i pair = _mm_cvttpd_epi32(value);
    memcpy(values, &pair, 2 * sizeof *values);
}

// Truncation toward zero, inside floating point where the processor can.
#if defined(__SSE4_1__)
mono truncate(mono value) {
    const __m128d wide = _mm_set_sd(value);
    return _mm_cvtsd_f64(_mm_round_sd(wide, wide, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC));
}
stereo truncate(stereo value) {
    return _mm_round_pd(value, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
}
#else
mono truncate(mono value) {
    return _mm_cvttsd_si32(_mm_set_sd(value));
}
stereo truncate(stereo value) {
    return _mm_cvtepi32_pd(_mm_cvttpd_epi32(value));
}
#endif

#else

constexpr bool may_try_unclamped = false;

void store(int32_t* values, mono value) {
    *values = static_cast<int32_t>(value);
}

void store(int32_t* values, stereo value) {
    const stereo_values pair = __builtin_convertvector(value, stereo_values);
    memcpy(values, &pair, sizeof pair);
}

mono truncate(mono value) {
    return static_cast<int32_t>(value);
}
stereo truncate(stereo value) {
    return __builtin_convertvector(__builtin_convertvector(value, stereo_values), stereo);
}

#endif

template <typename Value>
Value clamp(Value value) {
    const Value low = Value{} + lowest;
    const Value high = Value{} + highest;
    value = value < low ? low : value;
    return value > high ? high : value;
}

bool all_at_most(mono value, double bound) {
    return value <= bound;
}
bool all_at_most(stereo value, double bound) {
    return value[0] <= bound && value[1] <= bound;
}

template <typename Value>
struct memory {
    Value x1, x2, y1, y2;
};

// Saturation in the feedback path would cost a third of the time, and hardly any block needs it: a block is first
// run without it. False when a value went beyond the 32-bit range; then nothing that was computed holds.
template <bool saturating, typename Value>
bool recur(const biquad_coefficients& c, memory<Value>& state, const int32_t* in, size_t stride,
           int32_t* y_out, size_t frames) {
    const Value b0 = Value{} + c.b0, b1 = Value{} + c.b1, b2 = Value{} + c.b2;
    const Value a1 = Value{} + c.a1, a2 = Value{} + c.a2;
    Value x1 = state.x1, x2 = state.x2, y1 = state.y1, y2 = state.y2;
    Value least = {}, most = {};
    for (size_t n = 0; n < frames; ++n) {
        const Value x = load<Value>(in + n * stride);
        Value y = b0 * x + b1 * x1 + b2 * x2 - a1 * y1 - a2 * y2;
        if constexpr (saturating) {
            y = clamp(y);
        } else {
            least = y < least ? y : least;
            most = y > most ? y : most;
        }
        y = truncate(y);
        store(y_out + n * lanes<Value>, y);
        x2 = x1;
        x1 = x;
        y2 = y1;
        y1 = y;
    }
    if (!all_at_most(most, highest) || !all_at_most(-least, -lowest)) return false;
    state = {x1, x2, y1, y2};
    return true;
}

int32_t mixed(int32_t mix, int32_t y, int32_t x) {
    const auto wet = static_cast<uint64_t>(static_cast<int64_t>(mix) * y);
    const auto dry = static_cast<uint64_t>((INT64_C(65536) - mix) * x);
    return shift_and_saturate<16>(static_cast<int64_t>(wet + dry));  // the sum may wrap in 64 bits
}

// Writes a block of filter output, `width` neighbouring channels of each frame, through the mix.
void commit(const biquad_section& s, size_t first, size_t width, const int32_t* y, size_t frames) {
    if (width == s.channels) {  // the block is contiguous: one long run
        width *= frames;
        frames = 1;
    }
    for (size_t n = 0; n < frames; ++n) {
        const size_t at = first + n * s.channels;
        if (!s.mix) {
            memcpy(s.out + at, y, width * sizeof *y);
        } else {
            const int32_t* in = s.in + at;
            const int32_t* mix = s.mix + at;
            int32_t* out = s.out + at;
            KEL_INDEPENDENT_ITERATIONS
            for (size_t i = 0; i < width; ++i) out[i] = mixed(mix[i], y[i], in[i]);
        }
        y += width;
    }
}

template <typename Value>
void filter_channels(const biquad_coefficients& c, const biquad_section& s, size_t channel) {
    constexpr size_t block_frames = 256;
    int32_t y[block_frames * lanes<Value>];
    const size_t older = channel, newer = s.channels + channel;
    memory<Value> state = {load<Value>(s.x_history + newer), load<Value>(s.x_history + older),
                           load<Value>(s.y_history + newer), load<Value>(s.y_history + older)};
    for (size_t done = 0; done < s.frames; done += block_frames) {
        const size_t frames = s.frames - done < block_frames ? s.frames - done : block_frames;
        const size_t first = done * s.channels + channel;
        if (!may_try_unclamped || !recur<false>(c, state, s.in + first, s.channels, y, frames)) {
            recur<true>(c, state, s.in + first, s.channels, y, frames);
        }
        commit(s, first, lanes<Value>, y, frames);
    }
    store(s.x_history + newer, state.x1);
    store(s.x_history + older, state.x2);
    store(s.y_history + newer, state.y1);
    store(s.y_history + older, state.y2);
}

void biquad(const biquad_coefficients& coefficients, const biquad_section& section) {
    size_t channel = 0;
    for (; channel + 1 < section.channels; channel += 2)
        filter_channels<stereo>(coefficients, section, channel);
    if (channel < section.channels) filter_channels<mono>(coefficients, section, channel);
}

}  // namespace

constexpr filter_kernels filter_table = {gain, biquad};

}  // namespace kel::KEL_SIMD_LEVEL
