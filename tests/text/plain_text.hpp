// Text drawing written plainly from its formulas over FreeType: no caches, nothing shared with the library.
#pragma once

#include <ft2build.h>

#include FT_FREETYPE_H
#include FT_GLYPH_H

#include <algorithm>
#include <string>
#include <vector>

#include "text/text_fixture.hpp"

class PlainText {
  public:
    explicit PlainText(const std::string& font_path) : bytes_(kel_test::read_file(font_path)) {
        FT_Init_FreeType(&library_);
        FT_New_Memory_Face(library_, reinterpret_cast<const FT_Byte*>(bytes_.data()), FT_Long(bytes_.size()),
                           0, &face_);
    }
    ~PlainText() {
        end_glyphs();
        FT_Done_FreeType(library_);
    }
    PlainText(const PlainText&) = delete;
    PlainText& operator=(const PlainText&) = delete;

    // Makes the glyphs of the text and gives the rectangle of their ink around the origin.
    kel_rect layout(const char* text, int32_t points) {
        end_glyphs();
        FT_Set_Char_Size(face_, points * 64, points * 64, 160, 0);
        FT_Vector pen = {0, 0};
        FT_UInt previous = 0;
        uint32_t code_point;
        for (const char* next = text; decode(next, code_point);) {
            const FT_UInt index = FT_Get_Char_Index(face_, code_point);
            if (FT_HAS_KERNING(face_) && previous && index) {
                FT_Vector delta = {0, 0};
                FT_Get_Kerning(face_, previous, index, FT_KERNING_DEFAULT, &delta);
                pen.x += delta.x;
            }
            FT_Load_Glyph(face_, index, FT_LOAD_NO_HINTING);
            FT_Glyph glyph;
            FT_Get_Glyph(face_->glyph, &glyph);
            if (FT_Glyph_Transform(glyph, nullptr, &pen) != 0) {
                reinterpret_cast<FT_BitmapGlyph>(glyph)->left += int(pen.x / 64);
            }
            glyphs_.push_back(glyph);
            pen.x += glyph->advance.x / 1024;
            previous = index;
        }
        return rect();
    }

    Outcome draw(golden::Picture& to, const Scene& scene) {
        const kel_rect r = layout(scene.text, scene.boxed ? 36 : scene.style.size);
        if (scene.boxed && (r.width == 0 || r.height == 0)) return {0, {scene.at.x, scene.at.y, 0, 0}};
        return paint(to, scene.boxed ? fit(r, scene) : aligned(r, scene), scene);
    }

  private:
    void end_glyphs() {
        for (FT_Glyph glyph : glyphs_) FT_Done_Glyph(glyph);
        glyphs_.clear();
    }

    // The next code point; false at the end and at the first invalid sequence.
    static bool decode(const char*& next, uint32_t& value) {
        const int lead = static_cast<unsigned char>(*next++);
        if (lead == 0 || (lead >= 0x80 && lead < 0xC0)) return false;
        const int more = lead < 0x80 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
        value = uint32_t(more == 0 ? lead : lead & (0x3F >> more));
        for (int i = 0; i < more; ++i, ++next) {
            if ((*next & 0xC0) != 0x80) return false;
            value = value * 64 + (*next & 0x3F);
        }
        return true;
    }

    kel_rect rect() const {
        FT_BBox all = {INT32_MAX, INT32_MAX, -INT32_MAX, -INT32_MAX};
        for (FT_Glyph glyph : glyphs_) {
            FT_BBox one;
            FT_Glyph_Get_CBox(glyph, FT_GLYPH_BBOX_PIXELS, &one);
            all = {std::min(all.xMin, one.xMin), std::min(all.yMin, one.yMin), std::max(all.xMax, one.xMax),
                   std::max(all.yMax, one.yMax)};
        }
        if (glyphs_.empty()) return {};
        return {int32_t(all.xMin), int32_t(-all.yMax), int32_t(all.xMax - all.xMin),
                int32_t(all.yMax - all.yMin)};
    }

    static kel_point aligned(const kel_rect& r, const Scene& scene) {
        kel_point at = scene.at;
        if (scene.style.halign == KEL_TEXT_HALIGN_CENTER) at.x -= r.width / 2;
        if (scene.style.halign == KEL_TEXT_HALIGN_RIGHT) at.x -= r.width;
        if (scene.style.valign == KEL_TEXT_VALIGN_BOTTOM) at.y += -r.y - r.height;
        if (scene.style.valign == KEL_TEXT_VALIGN_CENTER) at.y += -r.y - r.height / 2;
        if (scene.style.valign == KEL_TEXT_VALIGN_TOP) at.y -= r.y;
        return at;
    }

    // Scales the glyphs to the box and gives their origin.
    kel_point fit(kel_rect r, const Scene& scene) {
        const auto [w, h] = scene.box_size;
        const bool height_limits = double(w) / r.width > double(h) / r.height;
        const double s = height_limits ? double(h) / r.height : double(w) / r.width;
        const auto k = FT_Fixed(s * 65536.0);
        FT_Matrix matrix = {k, 0, 0, k};
        for (FT_Glyph glyph : glyphs_) FT_Glyph_Transform(glyph, &matrix, nullptr);
        r = rect();
        kel_point origin = {scene.at.x - r.x, scene.at.y - r.y};
        if (height_limits) {
            if (scene.style.halign == KEL_TEXT_HALIGN_CENTER) origin.x += w / 2 - r.width / 2;
            if (scene.style.halign == KEL_TEXT_HALIGN_RIGHT) origin.x += w - r.width;
        } else {
            if (scene.style.valign == KEL_TEXT_VALIGN_BOTTOM) origin.y += h - r.height;
            if (scene.style.valign == KEL_TEXT_VALIGN_CENTER) origin.y += h / 2 - r.height / 2;
        }
        return origin;
    }

    Outcome paint(golden::Picture& to, kel_point origin, const Scene& scene) {
        const kel_rect r = rect();
        int count = 0;
        int c = origin.x;
        for (FT_Glyph& glyph : glyphs_) {
            if (c >= scene.clip.x || origin.y + r.y >= scene.clip.y || origin.y + r.y + r.height < 0) break;
            c += int(glyph->advance.x >> 16);
            if (c < 0) continue;
            if (FT_Glyph_To_Bitmap(&glyph, FT_RENDER_MODE_NORMAL, nullptr, 1) != 0) return {};
            const auto* shape = reinterpret_cast<FT_BitmapGlyph>(glyph);
            c = origin.x + shape->left;
            put(to, shape->bitmap, c, origin.y - shape->top, scene);
            ++count;
        }
        return {count, {origin.x + r.x, origin.y + r.y, r.width, r.height}};
    }

    static void put(golden::Picture& to, const FT_Bitmap& bitmap, int left, int top, const Scene& scene) {
        for (int row = 0; row < int(bitmap.rows); ++row) {
            const uint8_t* line = bitmap.buffer + row * bitmap.pitch;
            for (int column = 0; column < int(bitmap.width); ++column) {
                const bool bit = line[column / 8] & 0x80 >> column % 8;
                const int v = bitmap.pixel_mode != FT_PIXEL_MODE_MONO ? line[column] : bit ? 255 : 0;
                const int x = left + column, y = top + row;
                if (v == 0 || x < 0 || y < 0 || x >= scene.clip.x || y >= scene.clip.y) continue;
                uint8_t* pixel = &to.bgra[(size_t(y) * to.width + x) * 4];
                for (int byte = 0; byte < 3; ++byte) pixel[byte] = uint8_t(scene.style.color >> byte * 8);
                pixel[3] = uint8_t(v * int(scene.style.color >> 24) / 255);
            }
        }
    }

    std::string bytes_;
    FT_Library library_;
    FT_Face face_;
    std::vector<FT_Glyph> glyphs_;
};
