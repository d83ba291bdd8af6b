// Integer helpers with the overflow spelled out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace kel {

// product = a × b; false when it does not fit.
template <typename T>
[[nodiscard]] bool multiply(T a, T b, T& product) {
    return !__builtin_mul_overflow(a, b, &product);
}

// a + b modulo the type's range.
template <typename T>
constexpr T wrapping_add(T a, T b) {
    using bits = std::make_unsigned_t<T>;
    return static_cast<T>(static_cast<bits>(a) + static_cast<bits>(b));
}

// The next multiple of a power of two at or above value.
template <typename T>
constexpr T round_up(T value, T multiple) {
    return static_cast<T>((value + multiple - 1) & ~(multiple - 1));
}

template <typename Narrow, typename Wide>
constexpr Narrow saturate(Wide value) {
    constexpr Wide low = std::numeric_limits<Narrow>::min();
    constexpr Wide high = std::numeric_limits<Narrow>::max();
    return static_cast<Narrow>(value < low ? low : value > high ? high : value);
}

// value as a signed 32-bit integer: truncated toward zero, saturated, 0 for not-a-number.
constexpr int32_t truncate_to_int32(double value) {
    if (value != value) return 0;
    if (value >= 2147483647.0) return std::numeric_limits<int32_t>::max();
    if (value <= -2147483648.0) return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(value);
}

}  // namespace kel
