// FOURCC values as the framework carries them: the characters in memory order.
#pragma once

#include <cstdint>

namespace kel {

constexpr uint32_t fourcc(char a, char b, char c, char d) {
    auto byte = [](char value) { return static_cast<uint32_t>(static_cast<unsigned char>(value)); };
    return byte(a) | byte(b) << 8 | byte(c) << 16 | byte(d) << 24;
}

inline constexpr uint32_t fourcc_nv12 = fourcc('N', 'V', '1', '2');
inline constexpr uint32_t fourcc_nv12_swapped = fourcc('2', '1', 'V', 'N');
inline constexpr uint32_t fourcc_rgba = fourcc('R', 'G', 'B', 'A');

constexpr bool is_nv12(uint32_t value) {
    return value == fourcc_nv12 || value == fourcc_nv12_swapped;
}

// A FOURCC as text, for "%-4.4s" and "%c%c%c%c".
struct fourcc_text {
    explicit fourcc_text(uint32_t value)
        : characters{static_cast<char>(value), static_cast<char>(value >> 8), static_cast<char>(value >> 16),
                     static_cast<char>(value >> 24), '\0'} {}
    char characters[5];
};

}  // namespace kel
