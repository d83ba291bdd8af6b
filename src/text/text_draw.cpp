// Text into frames of 4-byte pixels: at a point, into a box, or into a buffer of its own.
#include <algorithm>
#include <cerrno>
#include <limits>
#include <span>
#include <utility>

#include "base/log.hpp"
#include "text/text.hpp"
#include "text/text_paint.hpp"

namespace {

constexpr int32_t box_points = 36;             // text is laid out at this size before it is fitted into a box
constexpr int64_t largest_bitmap = 1 << 24;    // pixels; larger glyphs are refused before they are rendered
constexpr FT_Pos bitmap_limit = 0x8000 * 64L;  // 26.6; FreeType renders from -32768 to 32767 pixels

// The cache for an entry's coverage, or null when its pixels depend on more than a key says.
kel::glyph_cache* cache_for(const kel_glyph_run& run, const kel_glyph_run_entry& entry) {
    const bool font_bitmap = entry.glyph && entry.glyph->format != FT_GLYPH_FORMAT_OUTLINE;
    const FT_BBox box = kel::grid_fitted(entry.box);
    const bool in_range = box.xMin >= -bitmap_limit && box.xMax < bitmap_limit;
    return run.font->sized && in_range && !font_bitmap ? run.font->cache : nullptr;
}

// Whole pixels that an outline may be moved by without a change of its coverage.
FT_Pos free_way(const kel_glyph_run& run, const kel_glyph_run_entry& entry) {
    return run.scale == kel::fixed_one ? entry.pen.x >> 6 : 0;
}

kel::coverage_key key_of(const kel_glyph_run& run, const kel_glyph_run_entry& entry) {
    return {entry.glyph_index, run.font->points, entry.pen.x - free_way(run, entry) * 64, run.scale};
}

// Replaces the entry's glyph by its bitmap.
FT_Error render(const kel_glyph_run& run, kel_glyph_run_entry& entry) {
    if (!entry.glyph) {
        if (const FT_Error error = kel::load_entry_glyph(run, entry)) return error;
    }
    if (entry.glyph->format != FT_GLYPH_FORMAT_BITMAP) {
        const FT_BBox box = kel::grid_fitted(entry.box);
        const int64_t pixels = ((int64_t{box.xMax} - box.xMin) >> 6) * ((int64_t{box.yMax} - box.yMin) >> 6);
        if (pixels > largest_bitmap) return FT_Err_Raster_Overflow;
    }
    return FT_Glyph_To_Bitmap(&entry.glyph, FT_RENDER_MODE_NORMAL, nullptr, 1);
}

// Draws one glyph with the run's origin at `origin` and sets x to the column where its bitmap begins.
FT_Error draw_glyph(const kel::canvas& to, const kel::ink& color, const kel_glyph_run& run,
                    kel_glyph_run_entry& entry, const kel_point& origin, int64_t& x) {
    x = origin.x;
    if (entry.blank) return 0;
    kel::glyph_cache* cache = cache_for(run, entry);
    const kel::coverage_key key = key_of(run, entry);
    const auto way = static_cast<int32_t>(free_way(run, entry));
    if (const kel::glyph_coverage* known = cache ? kel::find_coverage(*cache, key) : nullptr) {
        x += known->left + way;
        kel::paint_coverage(to, color, x, int64_t{origin.y} - known->top, *known);
        return 0;
    }
    if (const FT_Error error = render(run, entry)) return error;
    const auto* glyph = reinterpret_cast<FT_BitmapGlyph>(entry.glyph);
    const int64_t y = int64_t{origin.y} - glyph->top;
    x += glyph->left;
    if (kel::glyph_coverage* kept = cache ? kel::store_coverage(*cache, key, glyph->bitmap) : nullptr) {
        kept->left = glyph->left - way;
        kept->top = glyph->top;
        kel::paint_coverage(to, color, x, y, *kept);
    } else {
        kel::paint_bitmap(to, color, x, y, glyph->bitmap);
    }
    // Its memory serves the next glyph; a line of large ones would hold megabytes.
    FT_Done_Glyph(std::exchange(entry.glyph, nullptr));
    return 0;
}

// Positions far outside of every frame wrap around like the 32-bit sums that they are.
kel_point wrapped_point(int64_t x, int64_t y) {
    return {static_cast<int32_t>(x), static_cast<int32_t>(y)};
}

// A font whose lock is held and a run laid out in it, for the time of one call.
class laid_out_text {
  public:
    laid_out_text(kel_font& font, const kel_text_style* style, int32_t points, const char* utf8)
        : lock_(font.mutex) {
        kel::set_font_size(font, points);
        run_ = kel_text_layout(style, font, utf8);
    }
    ~laid_out_text() { kel_destroy_glyph_run(&run_); }
    laid_out_text(const laid_out_text&) = delete;
    laid_out_text& operator=(const laid_out_text&) = delete;
    kel_glyph_run* run() const { return run_; }

  private:
    kel::lock_guard lock_;
    kel_glyph_run* run_;
};

kel_font* font_for(const kel_slice* slice, const kel_text_style* style) {
    if (!slice || !slice->buffer || !style) return nullptr;
    return kel_text_get_font(slice->buffer->pool->context, style->font_path);
}

// The 16.16 factor that fits `have` (26.6) into `room` pixels, truncated toward zero.
FT_Fixed fitting_scale(int32_t room, FT_Pos have) {
    constexpr double limit = std::numeric_limits<int32_t>::max();
    const double scale = room / (static_cast<double>(have) * 0.015625) * 65536.0;
    return static_cast<FT_Fixed>(std::clamp(scale, -limit, limit));
}

}  // namespace

int kel_text_align(const kel_glyph_run* run, kel_point* origin) {
    if (!run || !run->style || !origin) return EINVAL;
    kel_rect r;
    kel_glyph_run_measure(run, &r);
    int64_t x = origin->x;
    int64_t y = origin->y;
    switch (run->style->halign) {
        case KEL_TEXT_HALIGN_CENTER:
            x -= r.width / 2;
            break;
        case KEL_TEXT_HALIGN_RIGHT:
            x -= r.width;
            break;
        default:
            break;
    }
    switch (run->style->valign) {
        case KEL_TEXT_VALIGN_BOTTOM:
            y -= int64_t{r.y} + r.height;
            break;
        case KEL_TEXT_VALIGN_CENTER:
            y -= int64_t{r.y} + r.height / 2;
            break;
        case KEL_TEXT_VALIGN_TOP:
            y -= r.y;
            break;
        default:
            break;
    }
    *origin = wrapped_point(x, y);
    return 0;
}

int kel_text_draw_run(const kel_slice* slice, kel_glyph_run* run, const kel_point* origin, kel_rect* drawn) {
    const kel::ink color(run->style->color);
    const kel::canvas to = kel::canvas_of(*slice);
    kel_rect r;
    kel_glyph_run_measure(run, &r);
    const int64_t top = int64_t{origin->y} + r.y;
    const bool in_height = top < slice->spec.video.height && top + r.height >= 0;

    int64_t c = origin->x;
    int count = 0;
    for (kel_glyph_run_entry& entry : std::span(run->entries, in_height ? run->count : 0)) {
        if (c >= slice->spec.video.width) break;
        c += entry.advance >> 16;
        if (c < 0) continue;
        if (const FT_Error error = draw_glyph(to, color, *run, entry, *origin, c)) {
            KEL_LOG_ERROR("kel:  FT_New_Glyph_To_Bitmap() on glyph %d failed: %s",
                          static_cast<int>(entry.glyph_index), kel::ft_error_text(error));
            return 0;
        }
        ++count;
    }
    if (drawn) {
        const kel_point corner = wrapped_point(int64_t{origin->x} + r.x, top);
        *drawn = {corner.x, corner.y, r.width, r.height};
    }
    return count;
}

int kel_text_draw(const kel_slice* slice, const char* utf8, const kel_point* position,
                  const kel_text_style* style, kel_rect* drawn) {
    if (!utf8 || !position) return 0;
    kel_font* font = font_for(slice, style);
    if (!font) return 0;
    const laid_out_text text(*font, style, style->size, utf8);
    if (!text.run()) return 0;
    kel_point origin = *position;
    kel_text_align(text.run(), &origin);
    return kel_text_draw_run(slice, text.run(), &origin, drawn);
}

int kel_text_draw_in_bb(const kel_slice* slice, const char* utf8, const kel_rect* box,
                        const kel_text_style* style, kel_rect* drawn) {
    if (!utf8 || !box) return 0;
    kel_font* font = font_for(slice, style);
    if (!font) return 0;
    const laid_out_text text(*font, style, box_points, utf8);
    if (!text.run()) return 0;

    FT_BBox extent;
    kel_glyph_run_get_cbox(text.run(), &extent);
    const FT_Pos width = extent.xMax - extent.xMin;
    const FT_Pos height = extent.yMax - extent.yMin;
    if (width <= 0 || height <= 0) {  // no ink
        if (drawn) *drawn = {box->x, box->y, 0, 0};
        return 0;
    }
    const bool height_limits =
        box->width / static_cast<double>(width) > box->height / static_cast<double>(height);
    kel::scale_run(*text.run(),
                   height_limits ? fitting_scale(box->height, height) : fitting_scale(box->width, width));

    kel_rect r;
    kel_glyph_run_measure(text.run(), &r);
    int64_t x = int64_t{box->x} - r.x;
    int64_t y = int64_t{box->y} - r.y;
    if (height_limits) {
        if (style->halign == KEL_TEXT_HALIGN_CENTER) x += box->width / 2 - r.width / 2;
        if (style->halign == KEL_TEXT_HALIGN_RIGHT) x += int64_t{box->width} - r.width;
    } else {
        if (style->valign == KEL_TEXT_VALIGN_BOTTOM) y += int64_t{box->height} - r.height;
        if (style->valign == KEL_TEXT_VALIGN_CENTER) y += box->height / 2 - r.height / 2;
    }
    const kel_point origin = wrapped_point(x, y);
    return kel_text_draw_run(slice, text.run(), &origin, drawn);
}

kel_buffer* kel_text_create(kel_context* context, const char* utf8, const kel_text_style* style, int usage) {
    if (!utf8 || !style) return nullptr;
    kel_font* font = kel_text_get_font(context, style->font_path);
    if (!font) return nullptr;
    const laid_out_text text(*font, style, style->size, utf8);
    if (!text.run()) return nullptr;
    kel_rect r;
    kel_glyph_run_measure(text.run(), &r);
    const kel_video_format format = {SCREEN_FORMAT_RGBA8888, usage, r.width, r.height};
    kel_buffer* buffer = kel_create_pixmap_buffer(context, &format);
    if (!buffer) return nullptr;
    const kel_slice slice = kel_slice_for_buffer(buffer);
    const kel_point origin = {0, -r.y};
    kel_text_draw_run(&slice, text.run(), &origin, nullptr);
    return buffer;
}
