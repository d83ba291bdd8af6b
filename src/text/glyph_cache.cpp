// The bounded memory of a font.
#include "text/glyph_cache.hpp"

#include <algorithm>
#include <cstring>

#include "base/arith.hpp"
#include "text/bitmap_runs.hpp"

namespace kel {
namespace {

// A glyph may take this share of the arena; beyond it, keeping one would drop too many others.
constexpr uint32_t largest_coverage = glyph_cache::arena_size / 4;
constexpr uint32_t most_coverages = glyph_cache::coverage_slots / 2;

uint32_t mixed(uint32_t hash, uint32_t value) {
    hash = (hash ^ value) * 0x9E3779B1u;  // 2^32 divided by the golden ratio
    return hash ^ hash >> 15;
}

uint32_t hash_of(const coverage_key& key) {
    const uint32_t place = mixed(key.glyph_index, static_cast<uint32_t>(key.pen_x));
    return mixed(mixed(place, static_cast<uint32_t>(key.points)), static_cast<uint32_t>(key.scale));
}

// The slot that holds the key, or the free one where it belongs.
uint32_t& coverage_slot(glyph_cache& cache, const coverage_key& key) {
    for (uint32_t index = hash_of(key);; ++index) {
        uint32_t& slot = cache.coverage[index % glyph_cache::coverage_slots];
        if (slot == 0) return slot;
        if (reinterpret_cast<glyph_coverage*>(cache.arena + slot - 1)->key == key) return slot;
    }
}

void start_over(glyph_cache& cache) {
    memset(cache.coverage, 0, sizeof cache.coverage);
    cache.coverage_count = 0;
    cache.arena_used = 0;
}

// Writes the bitmap's coverage behind what the arena holds. Returns its size, or 0 when there is no room.
uint32_t encode(glyph_cache& cache, const FT_Bitmap& bitmap) {
    constexpr uint32_t length = coverage_piece::length;
    const uint32_t room = std::min(glyph_cache::arena_size - cache.arena_used, largest_coverage);
    if (room < sizeof(glyph_coverage)) return 0;
    unsigned char* const begin = cache.arena + cache.arena_used;
    auto* coverage = reinterpret_cast<glyph_coverage*>(begin);
    // Pieces grow upwards, single pixels downwards from the end of the room, to be moved behind the pieces.
    auto* const pieces = reinterpret_cast<coverage_piece*>(coverage + 1);
    auto* const pixels_end = reinterpret_cast<coverage_pixel*>(begin + room);
    coverage_piece* piece = pieces;
    coverage_pixel* pixel = pixels_end;
    bool fits = true;
    for_each_run(bitmap, [&](uint32_t row, uint32_t column, const uint8_t* values, uint32_t run) {
        const auto y = static_cast<uint16_t>(row);
        const bool single = run < length;
        const ptrdiff_t bytes =
            reinterpret_cast<unsigned char*>(pixel) - reinterpret_cast<unsigned char*>(piece);
        fits = fits && bytes >= static_cast<ptrdiff_t>(run * sizeof(coverage_pixel) + sizeof(coverage_piece));
        if (!fits) return;
        for (uint32_t i = 0; single && i < run; ++i) {
            *--pixel = {y, static_cast<uint16_t>(column + i), values[i]};
        }
        for (uint32_t i = 0; !single && i < run; i += length, ++piece) {
            const uint32_t first = std::min(i, run - length);
            piece->row = y;
            piece->column = static_cast<uint16_t>(column + first);
            memcpy(piece->values, values + first, length);
        }
    });
    if (!fits) return 0;
    coverage->width = bitmap.width;
    coverage->rows = bitmap.rows;
    coverage->piece_count = static_cast<uint32_t>(piece - pieces);
    coverage->pixel_count = static_cast<uint32_t>(pixels_end - pixel);
    memmove(piece, pixel, coverage->pixel_count * sizeof *pixel);
    const auto used = reinterpret_cast<unsigned char*>(piece) - begin + coverage->pixel_count * sizeof *pixel;
    return round_up(static_cast<uint32_t>(used), uint32_t{alignof(glyph_coverage)});
}

}  // namespace

glyph_measures& measures_slot(glyph_cache& cache, uint32_t code_point, int32_t points) {
    // Neighbouring sizes of one alphabet lie beside each other.
    const uint32_t place = code_point + static_cast<uint32_t>(points) * 127;
    return cache.measures[place % glyph_cache::measures_slots];
}

pair_kerning& kerning_slot(glyph_cache& cache, uint32_t left, uint32_t right, int32_t points) {
    const uint32_t hash = mixed(mixed(left, right), static_cast<uint32_t>(points));
    return cache.kernings[hash % glyph_cache::kerning_slots];
}

glyph_coverage* find_coverage(glyph_cache& cache, const coverage_key& key) {
    const uint32_t slot = coverage_slot(cache, key);
    return slot == 0 ? nullptr : reinterpret_cast<glyph_coverage*>(cache.arena + slot - 1);
}

glyph_coverage* store_coverage(glyph_cache& cache, const coverage_key& key, const FT_Bitmap& bitmap) {
    if (bitmap.rows > UINT16_MAX || bitmap.width > UINT16_MAX) return nullptr;
    if (cache.coverage_count == most_coverages) start_over(cache);
    uint32_t size = encode(cache, bitmap);
    if (size == 0 && glyph_cache::arena_size - cache.arena_used < largest_coverage) {
        start_over(cache);
        size = encode(cache, bitmap);
    }
    if (size == 0) return nullptr;
    auto* coverage = reinterpret_cast<glyph_coverage*>(cache.arena + cache.arena_used);
    coverage->key = key;
    coverage_slot(cache, key) = cache.arena_used + 1;
    ++cache.coverage_count;
    cache.arena_used += size;
    return coverage;
}

}  // namespace kel
