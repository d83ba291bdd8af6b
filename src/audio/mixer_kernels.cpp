// The inner loops of the mixer, compiled once per level (core/simd.hpp). Samples are little-endian, as is the processor.
#include "audio/mixer_kernels.hpp"

#include <cstring>

#include "audio/fixed_point.hpp"

namespace kel::KEL_SIMD_LEVEL {
namespace {

// Samples where they lie: at any alignment, whatever the memory was declared as.
template <typename T>
struct __attribute__((packed, may_alias)) unaligned {
    T value;
};
using s16_at = unaligned<int16_t>;
using s32_at = unaligned<int32_t>;

int32_t add_wrapping(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

int16_t clip_to_s16(int32_t value) {
    const int32_t floor = value < INT16_MIN ? INT16_MIN : value;
    return static_cast<int16_t>(floor > INT16_MAX ? INT16_MAX : floor);
}

void add_s24_8(int32_t* mix, const void* in, size_t count) {
    const auto* samples = static_cast<const s32_at*>(in);
    KEL_INDEPENDENT_ITERATIONS
    for (size_t i = 0; i < count; ++i) mix[i] = add_wrapping(mix[i], samples[i].value);
}

void add_s16(int32_t* mix, const void* in, size_t count) {
    const auto* samples = static_cast<const s16_at*>(in);
    KEL_INDEPENDENT_ITERATIONS
    for (size_t i = 0; i < count; ++i) mix[i] = add_wrapping(mix[i], samples[i].value * 256);
}

void put_s24_8(int32_t* mix, const void* in, size_t count) {
    memcpy(mix, in, count * sizeof *mix);
}

void put_s16(int32_t* mix, const void* in, size_t count) {
    const auto* samples = static_cast<const s16_at*>(in);
    KEL_INDEPENDENT_ITERATIONS
    for (size_t i = 0; i < count; ++i) mix[i] = samples[i].value * 256;
}

void scale(void* out, const int32_t* mix, size_t count, int32_t gain) {
    multiply_all<8>(out, mix, constant_factor{gain}, count);
}

// (value × gain) >> 16, saturated to 16 bits.
template <bool fits_32_bits>
int16_t scale_one(int32_t value, int32_t gain) {
    if constexpr (!fits_32_bits) {
        return clip_to_s16(shift_and_saturate<16>(static_cast<int64_t>(value) * gain));
    }
    const int32_t high = (value >> 16) * gain;
    const int32_t low =
        static_cast<int32_t>(static_cast<uint32_t>(value & 0xffff) * static_cast<uint32_t>(gain) >> 16);
    return clip_to_s16(high + low);
}

void scale_to_s16(void* out, const int32_t* mix, size_t count, int32_t gain) {
    auto* samples = static_cast<s16_at*>(out);
    if (gain == unity_gain) {
        KEL_INDEPENDENT_ITERATIONS
        for (size_t i = 0; i < count; ++i) samples[i].value = clip_to_s16(mix[i] >> 8);
    } else if (gain <= INT16_MAX) {  // the products of both halves of a value fit 32 bits
        KEL_INDEPENDENT_ITERATIONS
        for (size_t i = 0; i < count; ++i) samples[i].value = scale_one<true>(mix[i], gain);
    } else {
        KEL_INDEPENDENT_ITERATIONS
        for (size_t i = 0; i < count; ++i) samples[i].value = scale_one<false>(mix[i], gain);
    }
}

}  // namespace

constexpr mixer_kernels mixer_table = {
    .s24_8 = {add_s24_8, put_s24_8},
    .s16 = {add_s16, put_s16},
    .scale = scale,
    .scale_to_s16 = scale_to_s16,
};

}  // namespace kel::KEL_SIMD_LEVEL
