// Fixed-point products, for kernel files: each gets its own copy, compiled for its own level (core/simd.hpp).
#pragma once

#include <cstdint>

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

}  // namespace
}  // namespace kel
