// Walks over the pixels of FreeType's bitmaps that have coverage.
#pragma once

#include <ft2build.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include FT_FREETYPE_H

namespace kel {

// Stands for the pixels of 1-bit bitmaps, whose runs are handed out in pieces of this length at most.
inline constexpr uint32_t full_coverage_length = 32;
inline constexpr auto full_coverage = [] {
    struct {
        uint8_t values[full_coverage_length];
    } full{};
    for (uint8_t& value : full.values) value = 255;
    return full;
}();

// Calls run(row, column, values, length) for the runs of pixels that `covered(line, column)` says have coverage,
// from top to bottom and left to right.
template <typename Covered, typename Run>
void for_each_run_of(const FT_Bitmap& bitmap, Covered covered, Run run) {
    const ptrdiff_t pitch = bitmap.pitch;  // negative when the bottom row comes first in memory
    const unsigned char* line = bitmap.buffer;
    if (pitch < 0) line -= pitch * (static_cast<ptrdiff_t>(bitmap.rows) - 1);
    for (uint32_t row = 0; row < bitmap.rows; ++row, line += pitch) {
        for (uint32_t column = 0; column < bitmap.width;) {
            if (!covered(line, column)) {
                ++column;
                continue;
            }
            const uint32_t first = column;
            while (column < bitmap.width && covered(line, column)) ++column;
            run(row, first, line, column - first);
        }
    }
}

// Calls run(row, column, values, length) for the runs of a grey or 1-bit bitmap; other modes have none.
template <typename Run>
void for_each_run(const FT_Bitmap& bitmap, Run run) {
    if (bitmap.rows == 0 || bitmap.width == 0) return;
    if (bitmap.pixel_mode == FT_PIXEL_MODE_GRAY) {
        const auto covered = [](const unsigned char* line, uint32_t column) { return line[column] != 0; };
        for_each_run_of(bitmap, covered,
                        [&](uint32_t row, uint32_t column, const uint8_t* line, uint32_t length) {
                            run(row, column, line + column, length);
                        });
    } else if (bitmap.pixel_mode == FT_PIXEL_MODE_MONO) {
        const auto covered = [](const unsigned char* line, uint32_t column) {
            return (line[column / 8] << column % 8 & 0x80) != 0;
        };
        for_each_run_of(bitmap, covered, [&](uint32_t row, uint32_t column, const uint8_t*, uint32_t length) {
            for (uint32_t done = 0; done < length; done += full_coverage_length) {
                run(row, column + done, full_coverage.values, std::min(full_coverage_length, length - done));
            }
        });
    }
}

}  // namespace kel
