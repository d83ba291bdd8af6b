// Glyph runs: layout with kerning, measuring, scaling.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "base/arith.hpp"
#include "base/guard.hpp"
#include "base/log.hpp"
#include "text/text.hpp"

#include FT_OUTLINE_H

namespace {

using kel::wrapping_add;

constexpr uint32_t entries_to_keep = 1024;  // a font gives the storage of longer runs back

uint32_t count_code_points(const unsigned char* text, size_t length) {
    uint32_t count = 0;
    uint32_t code_point;
    for (size_t pos = 0; kel_utf8_next(text, &pos, length, &code_point);) ++count;
    return count;
}

bool make_room(kel_glyph_run& run, uint32_t count) {
    if (count <= run.capacity) return true;
    auto entries = kel::make_records<kel_glyph_run_entry>(count);
    if (!entries) return false;
    free(run.entries);
    run.entries = entries.release();
    run.capacity = count;
    return true;
}

// The font's cache while it may be used, else null: a face that refused its size has glyphs of no known size.
kel::glyph_cache* usable_cache(kel_font& font) {
    if (!font.sized) return nullptr;
    if (!font.cache) font.cache = kel::make_record<kel::glyph_cache>().release();
    return font.cache;
}

FT_Pos kerning(kel::glyph_cache* cache, const kel_font& font, FT_UInt left, FT_UInt right) {
    kel::pair_kerning* slot = cache ? &kel::kerning_slot(*cache, left, right, font.points) : nullptr;
    if (slot && slot->left == left && slot->right == right && slot->points == font.points) return slot->delta;
    FT_Vector delta = {0, 0};
    FT_Get_Kerning(font.face, left, right, FT_KERNING_DEFAULT, &delta);
    if (slot) *slot = {left, right, font.points, delta.x};
    return delta.x;
}

// Makes the glyph as it stands in the face, not moved. Logs, with the byte position behind the character.
bool load_glyph(FT_Face face, kel_glyph_run_entry& entry, size_t pos) {
    if (const FT_Error error = FT_Load_Glyph(face, entry.glyph_index, FT_LOAD_NO_HINTING)) {
        KEL_LOG_ERROR("kel:  FT_Load_Glyph() failed for index %d: %s.", static_cast<int>(pos),
                      kel::ft_error_text(error));
        return false;
    }
    if (const FT_Error error = FT_Get_Glyph(face->glyph, &entry.glyph)) {
        KEL_LOG_ERROR("kel:  FT_Get_Glyph() failed for index %d: %s.", static_cast<int>(pos),
                      kel::ft_error_text(error));
        FT_Done_Glyph(entry.glyph);
        return false;
    }
    return true;
}

bool is_outline(const FT_GlyphRec& glyph) {
    return glyph.format == FT_GLYPH_FORMAT_OUTLINE;
}

// Of a glyph that has not been moved.
kel::glyph_measures measure(kel_glyph_run_entry& entry, uint32_t code_point, int32_t points) {
    kel::glyph_measures measures = {.code_point = code_point,
                                    .points = points,
                                    .glyph_index = entry.glyph_index,
                                    .blank = false,
                                    .known = true,
                                    .advance = entry.glyph->advance.x,
                                    .box = {}};
    if (is_outline(*entry.glyph)) {
        measures.blank = reinterpret_cast<FT_OutlineGlyph>(entry.glyph)->outline.n_points == 0;
    }
    FT_Glyph_Get_CBox(entry.glyph, FT_GLYPH_BBOX_UNSCALED, &measures.box);
    return measures;
}

// Translates the glyph to its pen. FreeType moves outlines only; a font's own bitmap goes by whole pixels.
void move_to_pen(kel_glyph_run_entry& entry) {
    if (is_outline(*entry.glyph)) {
        FT_Glyph_Transform(entry.glyph, nullptr, &entry.pen);
    } else if (entry.glyph->format == FT_GLYPH_FORMAT_BITMAP) {
        reinterpret_cast<FT_BitmapGlyph>(entry.glyph)->left += static_cast<FT_Int>(entry.pen.x >> 6);
    }
}

// Puts the glyph, or what is known of it, where its pen is.
void place(kel_glyph_run_entry& entry, const kel::glyph_measures& measures) {
    entry.advance = measures.advance;
    entry.blank = measures.blank;
    entry.box = measures.box;
    const bool outline = !entry.glyph || is_outline(*entry.glyph);
    const FT_Pos way = entry.blank ? 0 : outline ? entry.pen.x : entry.pen.x & ~63;
    entry.box.xMin = wrapping_add(entry.box.xMin, way);
    entry.box.xMax = wrapping_add(entry.box.xMax, way);
    if (entry.glyph) move_to_pen(entry);
}

}  // namespace

kel_glyph_run* kel_text_layout(const kel_text_style* style, kel_font& font, const char* utf8) {
    const auto* text = reinterpret_cast<const unsigned char*>(utf8);
    const size_t length = strlen(utf8);
    kel_glyph_run& run = font.run;
    if (!make_room(run, count_code_points(text, length))) {
        KEL_LOG_ERROR("kel:  could not allocate glyph run.");
        return nullptr;
    }
    run.style = style;
    run.face = font.face;
    run.use_kerning = FT_HAS_KERNING(font.face) ? 1 : 0;
    run.count = 0;
    run.scale = kel::fixed_one;
    run.font = &font;

    kel::glyph_cache* cache = usable_cache(font);
    FT_Pos pen_x = 0;
    FT_UInt previous = 0;
    uint32_t code_point;
    for (size_t pos = 0; kel_utf8_next(text, &pos, length, &code_point);) {
        kel_glyph_run_entry& entry = run.entries[run.count];
        kel::glyph_measures* slot = cache ? &kel::measures_slot(*cache, code_point, font.points) : nullptr;
        const bool known =
            slot && slot->known && slot->code_point == code_point && slot->points == font.points;
        entry.glyph_index = known ? slot->glyph_index : FT_Get_Char_Index(font.face, code_point);
        if (run.use_kerning && previous && entry.glyph_index) {
            pen_x = wrapping_add(pen_x, kerning(cache, font, previous, entry.glyph_index));
        }
        entry.pen = {pen_x, 0};
        entry.glyph = nullptr;
        if (known) {
            place(entry, *slot);
        } else {
            if (!load_glyph(font.face, entry, pos)) continue;
            const kel::glyph_measures measures = measure(entry, code_point, font.points);
            if (slot && is_outline(*entry.glyph)) *slot = measures;
            place(entry, measures);
        }
        ++run.count;
        pen_x = wrapping_add(pen_x, entry.advance >> 10);
        previous = entry.glyph_index;
    }
    return &run;
}

FT_Error kel::load_entry_glyph(const kel_glyph_run& run, kel_glyph_run_entry& entry) {
    FT_Error error = FT_Load_Glyph(run.face, entry.glyph_index, FT_LOAD_NO_HINTING);
    if (error) return error;
    error = FT_Get_Glyph(run.face->glyph, &entry.glyph);
    if (error) return error;
    move_to_pen(entry);
    if (run.scale != fixed_one) {
        FT_Matrix matrix = {run.scale, 0, 0, run.scale};
        FT_Glyph_Transform(entry.glyph, &matrix, nullptr);
    }
    return 0;
}

void kel::scale_run(kel_glyph_run& run, FT_Fixed scale) {
    FT_Matrix matrix = {scale, 0, 0, scale};
    run.scale = scale;
    for (kel_glyph_run_entry& entry : std::span(run.entries, run.count)) {
        if (entry.glyph && FT_Glyph_Transform(entry.glyph, &matrix, nullptr) != 0) continue;  // a bitmap
        FT_Vector advance = {entry.advance, 0};
        FT_Vector low = {entry.box.xMin, entry.box.yMin};
        FT_Vector high = {entry.box.xMax, entry.box.yMax};
        for (FT_Vector* vector : {&advance, &low, &high}) FT_Vector_Transform(vector, &matrix);
        entry.advance = advance.x;
        // A negative factor turns the glyph over; rounding keeps the order of the points.
        entry.box = {std::min(low.x, high.x), std::min(low.y, high.y), std::max(low.x, high.x),
                     std::max(low.y, high.y)};
    }
}

FT_BBox kel::grid_fitted(const FT_BBox& box) {
    return {box.xMin & ~63, box.yMin & ~63, wrapping_add<FT_Pos>(box.xMax, 63) & ~63,
            wrapping_add<FT_Pos>(box.yMax, 63) & ~63};
}

void kel_glyph_run_get_cbox(const kel_glyph_run* run, FT_BBox* box) {
    constexpr FT_Pos highest = std::numeric_limits<int32_t>::max();
    *box = {highest, highest, -highest, -highest};
    for (const kel_glyph_run_entry& entry : std::span(run->entries, run->count)) {
        const FT_BBox glyph = kel::grid_fitted(entry.box);
        *box = {std::min(box->xMin, glyph.xMin), std::min(box->yMin, glyph.yMin),
                std::max(box->xMax, glyph.xMax), std::max(box->yMax, glyph.yMax)};
    }
    if (box->xMin > box->xMax) *box = {};
}

void kel_glyph_run_measure(const kel_glyph_run* run, kel_rect* rect) {
    if (!rect) return;
    FT_BBox box;
    kel_glyph_run_get_cbox(run, &box);
    const int64_t x_min = box.xMin, x_max = box.xMax, y_min = box.yMin, y_max = box.yMax;
    rect->x = static_cast<int32_t>(x_min >> 6);
    rect->y = static_cast<int32_t>(-y_max >> 6);
    rect->width = static_cast<int32_t>((x_max - x_min) >> 6);
    rect->height = static_cast<int32_t>((y_max - y_min) >> 6);
}

void kel_destroy_glyph_run(kel_glyph_run** run) {
    if (!*run) return;
    kel_glyph_run& ended = **run;
    for (kel_glyph_run_entry& entry : std::span(ended.entries, ended.count)) FT_Done_Glyph(entry.glyph);
    ended.count = 0;
    if (ended.capacity > entries_to_keep) {
        free(ended.entries);
        ended.entries = nullptr;
        ended.capacity = 0;
    }
    *run = nullptr;
}
