// Fixed-point products, for kernel files: each gets its own copy, compiled for its own level (core/simd.hpp).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__AVX2__)
#include <immintrin.h>
#endif

namespace kel {
namespace {

// product >> shift as 32 bits, saturated: it fits exactly when its upper bits are all copies of the sign.
template <int shift>
inline int32_t shift_and_saturate(int64_t product) {
    const auto high = static_cast<int32_t>(product >> 32);
    const auto shifted = static_cast<int32_t>(static_cast<uint64_t>(product) >> shift);
    const int32_t limit = high >> 31 ^ INT32_MAX;
    const int32_t beyond = (high >> (shift - 1)) ^ (high >> 31);
    return beyond == 0 ? shifted : limit;
}

#if defined(__AVX2__)

// A register full of values, and the 64-bit products of every other one of them.
#if defined(__AVX512F__)
typedef int32_t values __attribute__((vector_size(64)));
typedef uint64_t products __attribute__((vector_size(64)));

inline products multiply_even(values a, values b) {
    return reinterpret_cast<products>(
        _mm512_maskz_mul_epi32(0xff, reinterpret_cast<__m512i>(a), reinterpret_cast<__m512i>(b)));
}

inline values interleave(products even, products odd) {
    return reinterpret_cast<values>(
        _mm512_mask_blend_epi32(0xaaaa, reinterpret_cast<__m512i>(even), reinterpret_cast<__m512i>(odd)));
}
#else
typedef int32_t values __attribute__((vector_size(32)));
typedef uint64_t products __attribute__((vector_size(32)));

inline products multiply_even(values a, values b) {
    return reinterpret_cast<products>(
        _mm256_mul_epi32(reinterpret_cast<__m256i>(a), reinterpret_cast<__m256i>(b)));
}

inline values interleave(products even, products odd) {
    return reinterpret_cast<values>(
        _mm256_blend_epi32(reinterpret_cast<__m256i>(even), reinterpret_cast<__m256i>(odd), 0xaa));
}
#endif

inline values odd_values(values v) {
    return reinterpret_cast<values>(reinterpret_cast<products>(v) >> 32);
}

// The same as above, for all products of a and b.
template <int shift>
inline values multiply_and_saturate(values a, values b) {
    const products even = multiply_even(a, b), odd = multiply_even(odd_values(a), odd_values(b));
    const values shifted = interleave(even >> shift, odd << (32 - shift));
    const values high = interleave(even >> 32, odd);
    const values sign = high >> 31;
    return (high >> (shift - 1)) == sign ? shifted : sign ^ INT32_MAX;
}

inline values load_values(const void* at) {
    values v;
    memcpy(&v, at, sizeof v);
    return v;
}

#endif

// out[i] = (a[i] × b(i)) >> shift, saturated; any alignment, and out may be a. `b` gives one factor or a register full.
template <int shift, typename Factors>
inline void multiply_all(void* out, const int32_t* a, const Factors& b, size_t count) {
    auto* bytes = static_cast<uint8_t*>(out);
    size_t i = 0;
#if defined(__AVX2__)
    constexpr size_t step = sizeof(values) / sizeof(int32_t);
    for (; i + step <= count; i += step) {
        const values result = multiply_and_saturate<shift>(load_values(a + i), b.several(i));
        memcpy(bytes + i * sizeof(int32_t), &result, sizeof result);
    }
#endif
    for (; i < count; ++i) {
        const int32_t result = shift_and_saturate<shift>(static_cast<int64_t>(a[i]) * b.one(i));
        memcpy(bytes + i * sizeof(int32_t), &result, sizeof result);
    }
}

// The same factor for all, or one for each.
struct constant_factor {
    int32_t factor;
    int32_t one(size_t) const { return factor; }
#if defined(__AVX2__)
    values several(size_t) const {
        return values{} + factor;
    }
#endif
};

struct factor_stream {
    const int32_t* factors;
    int32_t one(size_t i) const { return factors[i]; }
#if defined(__AVX2__)
    values several(size_t i) const {
        return load_values(factors + i);
    }
#endif
};

}  // namespace
}  // namespace kel
