// Walks over the pixels of FreeType's bitmaps that have coverage.
#pragma once

#include <ft2build.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include FT_FREETYPE_H

namespace kel {

// One row of 8-bit coverage.
struct grey_row {
    const unsigned char* line;
    uint32_t width;

    // The first column at or behind `column` without, or with, coverage; eight columns at a time.
    uint32_t find_blank(uint32_t column) const {
        constexpr uint64_t ones = 0x0101010101010101;
        const auto zero_bytes = [](uint64_t word) { return (word - ones) & ~word & ones << 7; };
        return find(column, zero_bytes, [](unsigned char value) { return value == 0; });
    }
    uint32_t find_covered(uint32_t column) const {
        const auto word_itself = [](uint64_t word) { return word; };
        return find(column, word_itself, [](unsigned char value) { return value != 0; });
    }

  private:
    // marks(word): its lowest bit set lies in the first byte looked for.
    template <typename Marks, typename Wanted>
    uint32_t find(uint32_t column, Marks marks, Wanted wanted) const {
        for (; column + 8 <= width; column += 8) {
            uint64_t word;
            memcpy(&word, line + column, sizeof word);
            if (const uint64_t found = marks(word))
                return column + static_cast<uint32_t>(__builtin_ctzll(found)) / 8;
        }
        while (column < width && !wanted(line[column])) ++column;
        return column;
    }
};

// One row of 1-bit coverage, the leftmost pixel in the highest bit.
struct mono_row {
    const unsigned char* line;
    uint32_t width;

    bool covered(uint32_t column) const { return (line[column / 8] << column % 8 & 0x80) != 0; }
    uint32_t find_blank(uint32_t column) const {
        while (column < width && covered(column)) ++column;
        return column;
    }
    uint32_t find_covered(uint32_t column) const {
        while (column < width && !covered(column)) ++column;
        return column;
    }
};

// Calls run(row, column, line, length) for the runs of pixels with coverage, from top to bottom and left to right.
template <typename Row, typename Run>
void for_each_run_of(const FT_Bitmap& bitmap, Run run) {
    const ptrdiff_t pitch = bitmap.pitch;  // negative when the bottom row comes first in memory
    const unsigned char* line = bitmap.buffer;
    if (pitch < 0) line -= pitch * (static_cast<ptrdiff_t>(bitmap.rows) - 1);
    for (uint32_t row = 0; row < bitmap.rows; ++row, line += pitch) {
        const Row pixels = {line, bitmap.width};
        for (uint32_t end = 0;;) {
            const uint32_t first = pixels.find_covered(end);
            if (first == bitmap.width) break;
            end = pixels.find_blank(first);
            run(row, first, line, end - first);
        }
    }
}

// Calls run(row, column, values, length) for the runs of a grey or 1-bit bitmap; other modes have none.
template <typename Run>
void for_each_run(const FT_Bitmap& bitmap, Run run) {
    if (bitmap.rows == 0) return;
    if (bitmap.pixel_mode == FT_PIXEL_MODE_GRAY) {
        for_each_run_of<grey_row>(bitmap, [&](uint32_t row, uint32_t column, const uint8_t* line,
                                              uint32_t length) { run(row, column, line + column, length); });
    } else if (bitmap.pixel_mode == FT_PIXEL_MODE_MONO) {
        static constexpr uint8_t full[] = {255, 255, 255, 255, 255, 255, 255, 255,
                                           255, 255, 255, 255, 255, 255, 255, 255};
        for_each_run_of<mono_row>(
            bitmap, [&](uint32_t row, uint32_t column, const uint8_t*, uint32_t length) {
                for (uint32_t done = 0; done < length; done += sizeof full) {
                    run(row, column + done, full, std::min(uint32_t{sizeof full}, length - done));
                }
            });
    }
}

}  // namespace kel
