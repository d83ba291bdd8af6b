// Text drawing written plainly from its formulas over FreeType: no caches, nothing shared with the library.
#pragma once

#include <ft2build.h>
#include <kel.h>

#include FT_FREETYPE_H
#include FT_GLYPH_H

#include <algorithm>
#include <cstring>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "golden/golden.hpp"
#include "video/test_fonts.hpp"

namespace kel_test {

// One text call. `clip` is the slice's width and height; with a box size, the text goes into a box at `at`.
struct Scene {
    const char* text;
    kel_text_style style;
    kel_point at = {0, 0};
    kel_point clip = {0, 0};
    bool boxed = false;
    kel_point box_size = {0, 0};
};

// What a text call gives besides pixels.
struct Outcome {
    int glyphs = 0;
    kel_rect drawn = {-1, -1, -1, -1};  // when the call left it alone
    std::vector<std::string> messages = {};
    bool operator==(const Outcome& other) const {
        return glyphs == other.glyphs && memcmp(&drawn, &other.drawn, sizeof drawn) == 0 &&
               messages == other.messages;
    }
};

inline void PrintTo(const Outcome& outcome, std::ostream* out) {
    const kel_rect& r = outcome.drawn;
    *out << outcome.glyphs << " glyphs in (" << r.x << ", " << r.y << ") " << r.width << " x " << r.height;
    for (const std::string& message : outcome.messages) *out << "\n  " << message;
}

// A laid-out string.
struct PlainRun {
    PlainRun() = default;
    PlainRun(PlainRun&&) = default;
    ~PlainRun() {
        for (FT_Glyph glyph : glyphs) FT_Done_Glyph(glyph);
    }
    std::vector<FT_Glyph> glyphs = {};
    std::vector<FT_UInt> indices = {};
    FT_BBox box() const {
        FT_BBox all = {INT32_MAX, INT32_MAX, -INT32_MAX, -INT32_MAX};
        for (FT_Glyph glyph : glyphs) {
            FT_BBox one;
            FT_Glyph_Get_CBox(glyph, FT_GLYPH_BBOX_GRIDFIT, &one);
            all = {std::min(all.xMin, one.xMin), std::min(all.yMin, one.yMin), std::max(all.xMax, one.xMax),
                   std::max(all.yMax, one.yMax)};
        }
        return glyphs.empty() ? FT_BBox{} : all;
    }
    kel_rect rect() const {
        const FT_BBox b = box();
        return {int32_t(b.xMin / 64), int32_t(-b.yMax / 64), int32_t((b.xMax - b.xMin) / 64),
                int32_t((b.yMax - b.yMin) / 64)};
    }
};

class PlainText {
  public:
    explicit PlainText(const std::string& font_path) : bytes_(read_file(font_path)) {
        FT_Init_FreeType(&library_);
        FT_New_Memory_Face(library_, reinterpret_cast<const FT_Byte*>(bytes_.data()), FT_Long(bytes_.size()),
                           0, &face_);
    }
    ~PlainText() { FT_Done_FreeType(library_); }

    PlainRun layout(const char* text, int32_t points) {
        PlainRun run;
        FT_Set_Char_Size(face_, points * 64, points * 64, 160, 0);
        FT_Pos pen_x = 0;
        FT_UInt previous = 0;
        for (const auto& [code_point, end] : decode(text)) {
            const FT_UInt index = FT_Get_Char_Index(face_, code_point);
            FT_Vector delta = {};
            if (face_->face_flags & FT_FACE_FLAG_KERNING && previous && index) {
                FT_Get_Kerning(face_, previous, index, FT_KERNING_DEFAULT, &delta);
            }
            pen_x += delta.x;
            if (FT_Error error = FT_Load_Glyph(face_, index, FT_LOAD_NO_HINTING)) {
                messages_.push_back("kel:  FT_Load_Glyph() failed for index " + std::to_string(end) + ": " +
                                    text_of(error) + ".");
                continue;
            }
            FT_Glyph glyph;
            FT_Get_Glyph(face_->glyph, &glyph);
            FT_Vector pen = {pen_x, 0};
            if (FT_Glyph_Transform(glyph, nullptr, &pen) != 0) {
                reinterpret_cast<FT_BitmapGlyph>(glyph)->left += int(pen_x / 64);
            }
            run.glyphs.push_back(glyph);
            run.indices.push_back(index);
            pen_x += glyph->advance.x / 1024;
            previous = index;
        }
        return run;
    }

    Outcome draw(golden::Picture& to, const Scene& scene) {
        messages_.clear();
        PlainRun run = layout(scene.text, scene.boxed ? 36 : scene.style.size);
        kel_point origin = scene.at;
        if (!scene.boxed) {
            align(origin, run.rect(), scene.style);
        } else if (!fit(run, origin, scene)) {
            return {.drawn = {scene.at.x, scene.at.y, 0, 0}, .messages = messages_};
        }
        return paint(to, run, origin, scene);
    }

  private:
    static std::string text_of(FT_Error error) {
        const kel_ft_error* row = ft_errors;
        while (row->text && row->code != error) ++row;
        return row->text;
    }

    // The code points before the first invalid sequence, each with the byte position behind it.
    static std::vector<std::pair<uint32_t, size_t>> decode(const std::string& text) {
        std::vector<std::pair<uint32_t, size_t>> result;
        for (size_t i = 0; i < text.size();) {
            const auto lead = static_cast<unsigned char>(text[i++]);
            if (lead >= 0x80 && lead < 0xC0) break;
            const int more = lead < 0x80 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
            uint32_t value = more == 0 ? lead : lead & (0x3F >> more);
            for (int k = 0; k < more; ++k, ++i) {
                if (i >= text.size() || (text[i] & 0xC0) != 0x80) return result;
                value = value * 64 + (text[i] & 0x3F);
            }
            result.emplace_back(value, i);
        }
        return result;
    }

    static void align(kel_point& at, const kel_rect& r, const kel_text_style& style) {
        if (style.halign == KEL_TEXT_HALIGN_CENTER) at.x -= r.width / 2;
        if (style.halign == KEL_TEXT_HALIGN_RIGHT) at.x -= r.width;
        if (style.valign == KEL_TEXT_VALIGN_BOTTOM) at.y += -r.y - r.height;
        if (style.valign == KEL_TEXT_VALIGN_CENTER) at.y += -r.y - r.height / 2;
        if (style.valign == KEL_TEXT_VALIGN_TOP) at.y -= r.y;
    }

    // False when there is no ink.
    static bool fit(PlainRun& run, kel_point& origin, const Scene& scene) {
        const FT_BBox b = run.box();
        if (b.xMax == b.xMin || b.yMax == b.yMin) return false;
        const auto [width, height] = scene.box_size;
        const bool height_limits = double(width) / (b.xMax - b.xMin) > double(height) / (b.yMax - b.yMin);
        const double s =
            height_limits ? height / ((b.yMax - b.yMin) * 0.015625) : width / ((b.xMax - b.xMin) * 0.015625);
        const auto k = FT_Fixed(s * 65536.0);
        FT_Matrix matrix = {k, 0, 0, k};
        for (FT_Glyph glyph : run.glyphs) FT_Glyph_Transform(glyph, &matrix, nullptr);
        const kel_rect r = run.rect();
        origin = {origin.x - r.x, origin.y - r.y};
        if (height_limits) {
            if (scene.style.halign == KEL_TEXT_HALIGN_CENTER) origin.x += width / 2 - r.width / 2;
            if (scene.style.halign == KEL_TEXT_HALIGN_RIGHT) origin.x += width - r.width;
        } else {
            if (scene.style.valign == KEL_TEXT_VALIGN_BOTTOM) origin.y += height - r.height;
            if (scene.style.valign == KEL_TEXT_VALIGN_CENTER) origin.y += height / 2 - r.height / 2;
        }
        return true;
    }

    Outcome paint(golden::Picture& to, PlainRun& run, kel_point origin, const Scene& scene) {
        const kel_rect r = run.rect();
        const kel_point& clip = scene.clip;
        Outcome outcome{.messages = messages_};
        int c = origin.x;
        for (size_t i = 0; i < run.glyphs.size(); ++i) {
            FT_Glyph& glyph = run.glyphs[i];
            if (c >= clip.x || origin.y + r.y >= clip.y || origin.y + r.y + r.height < 0) break;
            c += int(glyph->advance.x >> 16);
            if (c < 0) continue;
            FT_BBox box;
            FT_Glyph_Get_CBox(glyph, FT_GLYPH_BBOX_PIXELS, &box);
            const bool huge = (box.xMax - box.xMin) * int64_t(box.yMax - box.yMin) > 1 << 24;
            const FT_Error error = huge ? int(FT_Err_Raster_Overflow)
                                        : FT_Glyph_To_Bitmap(&glyph, FT_RENDER_MODE_NORMAL, nullptr, 1);
            if (error) {
                outcome.glyphs = 0;
                outcome.messages.push_back("kel:  FT_New_Glyph_To_Bitmap() on glyph " +
                                           std::to_string(run.indices[i]) + " failed: " + text_of(error));
                return outcome;
            }
            const auto* shape = reinterpret_cast<FT_BitmapGlyph>(glyph);
            c = origin.x + shape->left;
            for (int row = 0; row < int(shape->bitmap.rows); ++row) {
                for (int column = 0; column < int(shape->bitmap.width); ++column) {
                    const int v = coverage(shape->bitmap, row, column);
                    const int x = c + column;
                    const int y = origin.y - shape->top + row;
                    if (v == 0 || x < 0 || y < 0 || x >= clip.x || y >= clip.y) continue;
                    uint8_t* pixel = &to.bgra[(size_t(y) * to.width + x) * 4];
                    for (int byte = 0; byte < 3; ++byte) pixel[byte] = uint8_t(scene.style.color >> byte * 8);
                    pixel[3] = uint8_t(v * int(scene.style.color >> 24) / 255);
                }
            }
            ++outcome.glyphs;
        }
        outcome.drawn = {origin.x + r.x, origin.y + r.y, r.width, r.height};
        return outcome;
    }

    static int coverage(const FT_Bitmap& bitmap, int row, int column) {
        const uint8_t* line = bitmap.buffer + row * bitmap.pitch;
        if (bitmap.pixel_mode != FT_PIXEL_MODE_MONO) return line[column];
        return line[column / 8] & 0x80 >> column % 8 ? 255 : 0;
    }

    std::string bytes_;
    FT_Library library_;
    FT_Face face_;
    std::vector<std::string> messages_;
};

}  // namespace kel_test
