// What a font remembers between calls: the measures of its glyphs and their rendered coverage, each keyed by
// all that decides it. Bounded: what does not fit is made anew each time, with the same result.
#pragma once

#include <ft2build.h>

#include <cstddef>
#include <cstdint>
#include <span>

#include FT_FREETYPE_H

namespace kel {

// The outline of a character at one size, before it is moved.
struct glyph_measures {
    uint32_t code_point;
    int32_t points;  // size
    FT_UInt glyph_index;
    bool blank;        // no outline points
    bool known;        // the slot is in use
    FT_Fixed advance;  // 16.16 pixels
    FT_BBox box;       // exact, 26.6
};

// The kerning of a pair of glyphs at one size.
struct pair_kerning {
    FT_UInt left, right;  // never 0 in a slot that is in use
    int32_t points;       // size
    FT_Pos delta;         // 26.6
};

// Everything that decides an outline's pixels within one font.
struct coverage_key {
    FT_UInt glyph_index;
    int32_t points;  // size
    FT_Pos pen_x;    // 26.6; unscaled, the fraction of a pixel is enough
    FT_Fixed scale;  // 16.16
    bool operator==(const coverage_key&) const = default;
};

// Neighbouring pixels of one row, all with coverage.
struct coverage_piece {
    static constexpr uint32_t length = 4;
    uint16_t row, column;
    uint8_t values[length];
};

// One pixel with coverage.
struct coverage_pixel {
    uint16_t row, column;
    uint8_t value;
};

// A rendered glyph, followed by its pixels: those in rows of four and more as pieces, which may overlap, the others
// one by one. Without a choice at every row's end they are painted in half the time.
struct glyph_coverage {
    coverage_key key;
    int32_t left, top;  // where FreeType places the bitmap
    uint32_t width, rows;
    uint32_t piece_count, pixel_count;

    std::span<const coverage_piece> pieces() const {
        return {reinterpret_cast<const coverage_piece*>(this + 1), piece_count};
    }
    std::span<const coverage_pixel> pixels() const {
        return {reinterpret_cast<const coverage_pixel*>(pieces().data() + piece_count), pixel_count};
    }
};

struct glyph_cache {
    static constexpr uint32_t measures_slots = 1024;  // powers of two
    static constexpr uint32_t kerning_slots = 1024;
    static constexpr uint32_t coverage_slots = 4096;
    static constexpr uint32_t arena_size = 1 << 20;  // bytes

    glyph_measures measures[measures_slots];  // one place for each; the newer one stays
    pair_kerning kernings[kerning_slots];     // likewise
    uint32_t coverage[coverage_slots];        // open addressing: offset in the arena plus 1, or 0
    uint32_t coverage_count;
    uint32_t arena_used;
    alignas(glyph_coverage) unsigned char arena[arena_size];
};

// The slot where the character's measures are, or belong.
glyph_measures& measures_slot(glyph_cache& cache, uint32_t code_point, int32_t points);

// The slot where the pair's kerning is, or belongs.
pair_kerning& kerning_slot(glyph_cache& cache, uint32_t left, uint32_t right, int32_t points);

// The outline's coverage, or null. Good until the next store.
glyph_coverage* find_coverage(glyph_cache& cache, const coverage_key& key);

// Keeps the coverage in a bitmap and returns it; null when it is too large to be kept. A full cache starts over.
glyph_coverage* store_coverage(glyph_cache& cache, const coverage_key& key, const FT_Bitmap& bitmap);

}  // namespace kel
