// The bounded memory of a font.
#include "video/glyph_cache.hpp"

#include <cstring>

#include "core/arith.hpp"
#include "video/bitmap_runs.hpp"

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
    uint32_t run_count = 0;
    uint32_t value_count = 0;
    for_each_run(bitmap, [&](uint32_t, uint32_t, const uint8_t*, uint32_t length) {
        ++run_count;
        value_count += length;
    });
    const uint64_t bytes = sizeof(glyph_coverage) + uint64_t{run_count} * sizeof(coverage_run) + value_count;
    if (bytes > largest_coverage || bitmap.rows > UINT16_MAX || bitmap.width > UINT16_MAX) return nullptr;
    const uint32_t size = round_up(static_cast<uint32_t>(bytes), uint32_t{alignof(glyph_coverage)});
    if (cache.coverage_count == most_coverages || cache.arena_used + size > glyph_cache::arena_size) {
        start_over(cache);
    }

    auto* coverage = reinterpret_cast<glyph_coverage*>(cache.arena + cache.arena_used);
    coverage->key = key;
    coverage->run_count = run_count;
    coverage_run* next_run = coverage->runs().data();
    uint8_t* next_value = coverage->values();
    for_each_run(bitmap, [&](uint32_t row, uint32_t column, const uint8_t* values, uint32_t length) {
        *next_run++ = {static_cast<uint16_t>(row), static_cast<uint16_t>(column),
                       static_cast<uint16_t>(length)};
        memcpy(next_value, values, length);
        next_value += length;
    });
    coverage_slot(cache, key) = cache.arena_used + 1;
    ++cache.coverage_count;
    cache.arena_used += size;
    return coverage;
}

}  // namespace kel
