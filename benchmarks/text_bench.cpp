// A line of text into a frame: beside pango over cairo, and beside FreeType called in a plain loop.
#include <kel.h>

#include <ft2build.h>
#include <pango/pangocairo.h>

#include <cstdlib>
#include <cstring>
#include <string_view>

#include FT_FREETYPE_H
#include FT_GLYPH_H

#include "benchmarks/harness.hpp"

namespace {

using kel_bench::Comparison;
using kel_bench::Role;

constexpr char line[] = "The quick brown fox jumps over the lazy dog 0123456789";
static_assert(sizeof line == 54 + 1);
constexpr char font_path[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
constexpr int32_t frame_width = 5120;
constexpr int32_t frame_height = 200;
constexpr int dots_per_inch = 160;
constexpr kel_point at = {20, 120};

// FreeType called in the obvious way, with the library's kerning, pen positions and pixels.
class FreeTypeLoop {
  public:
    FreeTypeLoop() {
        FT_Init_FreeType(&library_);
        if (FT_New_Face(library_, font_path, 0, &face_) != 0) abort();
    }
    void draw(uint8_t* pixels, int32_t stride, int points, uint32_t color) {
        FT_Set_Char_Size(face_, points * 64, points * 64, dots_per_inch, 0);
        FT_Vector pen = {at.x * 64, 0};
        FT_UInt previous = 0;
        for (const char character : std::string_view(line)) {
            const FT_UInt index = FT_Get_Char_Index(face_, FT_ULong(character));
            FT_Vector kerning = {};
            if (previous) FT_Get_Kerning(face_, previous, index, FT_KERNING_DEFAULT, &kerning);
            pen.x += kerning.x;
            previous = index;
            FT_Glyph glyph;
            FT_Load_Glyph(face_, index, FT_LOAD_NO_HINTING);
            FT_Get_Glyph(face_->glyph, &glyph);
            FT_Glyph_Transform(glyph, nullptr, &pen);
            pen.x += glyph->advance.x >> 10;
            FT_Glyph_To_Bitmap(&glyph, FT_RENDER_MODE_NORMAL, nullptr, 1);
            paint(pixels, stride, *reinterpret_cast<FT_BitmapGlyph>(glyph), color);
            FT_Done_Glyph(glyph);
        }
    }

  private:
    static void paint(uint8_t* pixels, int32_t stride, const FT_BitmapGlyphRec& glyph, uint32_t color) {
        for (int row = 0; row < int(glyph.bitmap.rows); ++row) {
            const int y = at.y - glyph.top + row;
            if (y < 0 || y >= frame_height) continue;
            const uint8_t* values = glyph.bitmap.buffer + row * glyph.bitmap.pitch;
            for (int column = 0; column < int(glyph.bitmap.width); ++column) {
                const int x = glyph.left + column;
                if (values[column] == 0 || x < 0 || x >= frame_width) continue;
                const uint32_t pixel = values[column] * (color >> 24) / 255 << 24 | (color & 0xFFFFFF);
                memcpy(pixels + y * stride + x * 4, &pixel, 4);
            }
        }
    }
    FT_Library library_;
    FT_Face face_;
};

class Pango {
  public:
    explicit Pango(int points)
        : surface_(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, frame_width, frame_height)),
          cairo_(cairo_create(surface_)),
          layout_(pango_cairo_create_layout(cairo_)) {
        cairo_set_source_rgb(cairo_, 1, 1, 1);
        PangoFontDescription* font = pango_font_description_from_string("DejaVu Sans");
        pango_font_description_set_absolute_size(font, double(points) * dots_per_inch / 72 * PANGO_SCALE);
        pango_layout_set_font_description(layout_, font);
    }
    void draw() {
        pango_layout_set_text(layout_, line, -1);
        cairo_move_to(cairo_, at.x, at.y);
        pango_cairo_show_layout_line(cairo_, pango_layout_get_line_readonly(layout_, 0));
    }

  private:
    cairo_surface_t* surface_;
    cairo_t* cairo_;
    PangoLayout* layout_;
};

}  // namespace

int main(int argc, char** argv) {
    const kel_bench::Options options = kel_bench::parse_options(argc, argv);
    kel_context* context = kel_create_context();
    const kel_video_format format = {SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_WRITE, frame_width, frame_height};
    kel_buffer* buffer = kel_create_pixmap_buffer(context, &format);
    if (!buffer || kel_text_init(context) != 0) return 1;
    const kel_slice slice = kel_slice_for_buffer(buffer);
    FreeTypeLoop freetype;
    const auto draw = [&](int points, uint32_t color) {
        const kel_text_style style = {font_path, color, points, KEL_TEXT_HALIGN_LEFT,
                                      KEL_TEXT_VALIGN_BASELINE};
        if (kel_text_draw(&slice, line, &at, &style, nullptr) != sizeof line - 1) abort();
    };

    for (const int points : {9, 14, 24}) {
        Pango pango(points);
        Comparison warm(
            "54 characters, " + std::to_string(points) + " points at 160 dpi, glyphs drawn before",
            {"µs a line", 1e6});
        warm.add(Role::subject, "kel_text_draw", [&](uint64_t count) {
            while (count-- > 0) draw(points, 0xFFFFFFFF);
        });
        warm.add(Role::subject, "kel_text_draw, half transparent", [&](uint64_t count) {
            while (count-- > 0) draw(points, 0x80FFFFFF);
        });
        warm.add(Role::peer, "pango and cairo", [&](uint64_t count) {
            while (count-- > 0) pango.draw();
        });
        warm.run(options);
    }

    // So many sizes in turn that no glyph is met again before its memory is gone.
    Comparison cold("54 characters, 8 to 71 points in turn, every glyph new", {"µs for all 64 lines", 1e6});
    auto* pixels = static_cast<uint8_t*>(buffer->ptr);
    cold.add(Role::subject, "kel_text_draw", [&](uint64_t count) {
        while (count-- > 0) {
            for (int points = 8; points < 72; ++points) draw(points, 0xFFFFFFFF);
        }
    });
    cold.add(Role::reference, "FreeType in a plain loop", [&](uint64_t count) {
        while (count-- > 0) {
            for (int points = 8; points < 72; ++points)
                freetype.draw(pixels, buffer->stride, points, 0xFFFFFFFF);
        }
    });
    cold.run(options);
    kel_release_buffer(buffer);
    kel_destroy_context(&context);
}
