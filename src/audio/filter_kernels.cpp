// The inner loops of the audio filters, compiled once per level (core/simd.hpp).
#include "audio/filter_kernels.hpp"

#include <cstring>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

#include "audio/fixed_point.hpp"

namespace kel::KEL_SIMD_LEVEL {
namespace {

void gain(int32_t* out, const int32_t* in, const int32_t* gain_values, size_t count) {
    multiply_all<16>(out, in, factor_stream{gain_values}, count);
}

// The values of two neighbouring channels of a frame side by side, so that the chain of operations from one frame to
// the next, which limits the speed, is walked once for both. A single channel leaves the second lane at 0.
typedef double lanes __attribute__((vector_size(16)));

constexpr double lowest = -2147483648.0;
constexpr double highest = 2147483647.0;

#if defined(__SSE2__)

template <size_t channels>
lanes load(const int32_t* values) {
    const auto* at = reinterpret_cast<const __m128i*>(values);
    return _mm_cvtepi32_pd(channels == 2 ? _mm_loadl_epi64(at) : _mm_cvtsi32_si128(*values));
}

template <size_t channels>
void store(int32_t* values, lanes v) {
    const __m128i bits = _mm_cvttpd_epi32(v);
    if constexpr (channels == 2) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(values), bits);
    } else {
        *values = _mm_cvtsi128_si32(bits);
    }
}

// Toward zero, for values inside the 32-bit range; within floating point where the processor can.
lanes truncate(lanes v) {
#if defined(__SSE4_1__)
    return _mm_round_pd(v, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
#else
    return _mm_cvtepi32_pd(_mm_cvttpd_epi32(v));
#endif
}

#else

template <size_t channels>
lanes load(const int32_t* values) {
    lanes v = {};
    for (size_t c = 0; c < channels; ++c) v[c] = values[c];
    return v;
}

template <size_t channels>
void store(int32_t* values, lanes v) {
    for (size_t c = 0; c < channels; ++c) values[c] = static_cast<int32_t>(v[c]);
}

lanes truncate(lanes v) {
    return lanes{static_cast<double>(static_cast<int32_t>(v[0])),
                 static_cast<double>(static_cast<int32_t>(v[1]))};
}

#endif

lanes both(double value) {
    return lanes{value, value};
}

// What a filter remembers: the last two frames of input and of output.
struct memory {
    lanes x1, x2, y1, y2;
};

template <size_t channels>
void recur_exactly(const biquad_coefficients& c, memory& state, const int32_t* in, size_t stride,
                   int32_t* out, size_t frames) {
    memory m = state;
    for (size_t n = 0; n < frames; ++n) {
        const lanes x = load<channels>(in + n * stride);
        lanes y = c.b0 * x + c.b1 * m.x1 + c.b2 * m.x2 - c.a1 * m.y1 - c.a2 * m.y2;
        y = y < lowest ? both(lowest) : y;
        y = truncate(y > highest ? both(highest) : y);
        store<channels>(out + n * channels, y);
        m = {x, m.x1, y, m.y1};
    }
    state = m;
}

#if defined(__SSE2__)

typedef int64_t lane_bits __attribute__((vector_size(16)));

// The same faster, or false: then nothing that was computed holds. What limits the speed is the way from one output to
// the next. It is shortened by leaving saturation out and taking y[n-1]'s term last, which nearly always gives the same
// integer; that it did is checked beside the chain, with the right order.
template <size_t channels>
bool recur_boldly(const biquad_coefficients& c, memory& state, const int32_t* in, size_t stride, int32_t* out,
                  size_t frames) {
    memory m = state;
    lanes least = {}, most = {};
    lane_bits wrong = {};
    for (size_t n = 0; n < frames; ++n) {
        const lanes x = load<channels>(in + n * stride);
        const lanes from_inputs = c.b0 * x + c.b1 * m.x1 + c.b2 * m.x2;
        const lanes newer = c.a1 * m.y1, older = c.a2 * m.y2;
        const lanes y = truncate(from_inputs - older - newer);
        const lanes right = from_inputs - newer - older;
        wrong |= reinterpret_cast<lane_bits>(y) ^ reinterpret_cast<lane_bits>(truncate(right));
        least = right < least ? right : least;
        most = right > most ? right : most;
        store<channels>(out + n * channels, y);
        m = {x, m.x1, y, m.y1};
    }
    const bool in_range =
        least[0] >= lowest && least[1] >= lowest && most[0] <= highest && most[1] <= highest;
    if ((wrong[0] | wrong[1]) != 0 || !in_range) return false;
    state = m;
    return true;
}

#else

// Here a value outside the 32-bit range must not reach the conversion.
template <size_t channels>
bool recur_boldly(const biquad_coefficients&, memory&, const int32_t*, size_t, int32_t*, size_t) {
    return false;
}

#endif

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

template <size_t channels>
void filter_channels(const biquad_coefficients& c, const biquad_section& s, size_t channel) {
    constexpr size_t block_frames = 256;
    int32_t y[block_frames * channels] = {};
    const size_t older = channel, newer = s.channels + channel;
    memory state = {load<channels>(s.x_history + newer), load<channels>(s.x_history + older),
                    load<channels>(s.y_history + newer), load<channels>(s.y_history + older)};
    for (size_t done = 0; done < s.frames; done += block_frames) {
        const size_t frames = s.frames - done < block_frames ? s.frames - done : block_frames;
        const size_t first = done * s.channels + channel;
        const int32_t* in = s.in + first;
        if (!recur_boldly<channels>(c, state, in, s.channels, y, frames)) {
            recur_exactly<channels>(c, state, in, s.channels, y, frames);
        }
        commit(s, first, channels, y, frames);
    }
    store<channels>(s.x_history + newer, state.x1);
    store<channels>(s.x_history + older, state.x2);
    store<channels>(s.y_history + newer, state.y1);
    store<channels>(s.y_history + older, state.y2);
}

void biquad(const biquad_coefficients& coefficients, const biquad_section& section) {
    size_t channel = 0;
    for (; channel + 1 < section.channels; channel += 2) filter_channels<2>(coefficients, section, channel);
    if (channel < section.channels) filter_channels<1>(coefficients, section, channel);
}

}  // namespace

constexpr filter_kernels filter_table = {gain, biquad};

}  // namespace kel::KEL_SIMD_LEVEL
