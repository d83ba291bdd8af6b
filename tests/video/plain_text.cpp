#include "video/plain_text.hpp"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <ostream>

#include FT_GLYPH_H

namespace kel_test {
namespace {

std::string text_of(FT_Error error) {
    const kel_ft_error* row = ft_errors;
    while (row->text && row->code != error) ++row;
    return row->text;
}

// The code points before the first invalid sequence, each with the byte position behind it.
std::vector<std::pair<uint32_t, size_t>> decode(const std::string& text) {
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

}  // namespace

bool Outcome::operator==(const Outcome& other) const {
    return glyphs == other.glyphs && memcmp(&drawn, &other.drawn, sizeof drawn) == 0 &&
           messages == other.messages;
}

void PrintTo(const Outcome& outcome, std::ostream* out) {
    const kel_rect& r = outcome.drawn;
    *out << outcome.glyphs << " glyphs in (" << r.x << ", " << r.y << ") " << r.width << " x " << r.height;
    for (const std::string& message : outcome.messages) *out << "\n  " << message;
}

struct PlainText::Run {
    Run(FT_Face face, const char* utf8, int32_t points) {
        FT_Set_Char_Size(face, points * 64, points * 64, 160, 0);
        FT_Pos pen_x = 0;
        FT_UInt previous = 0;
        for (const auto& [code_point, end] : decode(utf8)) {
            const FT_UInt index = FT_Get_Char_Index(face, code_point);
            FT_Vector delta = {};
            if ((face->face_flags & FT_FACE_FLAG_KERNING) && previous && index) {
                FT_Get_Kerning(face, previous, index, FT_KERNING_DEFAULT, &delta);
            }
            pen_x += delta.x;
            FT_Glyph glyph;
            FT_Error error = FT_Load_Glyph(face, index, FT_LOAD_NO_HINTING);
            const char* failed = "FT_Load_Glyph";
            if (!error) {
                error = FT_Get_Glyph(face->glyph, &glyph);
                failed = "FT_Get_Glyph";
            }
            if (error) {
                messages.push_back(std::string("kel:  ") + failed + "() failed for index " +
                                   std::to_string(end) + ": " + text_of(error) + ".");
                continue;
            }
            FT_Vector pen = {pen_x, 0};
            if (FT_Glyph_Transform(glyph, nullptr, &pen) != 0) {
                reinterpret_cast<FT_BitmapGlyph>(glyph)->left += static_cast<int>(pen_x / 64);
            }
            glyphs.push_back(glyph);
            indices.push_back(index);
            pen_x += glyph->advance.x / 1024;
            previous = index;
        }
    }
    ~Run() {
        for (FT_Glyph glyph : glyphs) FT_Done_Glyph(glyph);
    }
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
    std::vector<FT_Glyph> glyphs;
    std::vector<FT_UInt> indices;
    std::vector<std::string> messages;
};

PlainText::PlainText(const std::string& font_path) {
    std::ifstream file(font_path, std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(file), {});
    FT_Init_FreeType(&library_);
    const auto* bytes = reinterpret_cast<const FT_Byte*>(bytes_.data());
    EXPECT_EQ(FT_New_Memory_Face(library_, bytes, FT_Long(bytes_.size()), 0, &face_), 0) << font_path;
}

PlainText::~PlainText() {
    FT_Done_FreeType(library_);
}

Outcome PlainText::draw_run(golden::Picture& to, kel_point clip, Run& run, kel_point origin, uint32_t color) {
    Outcome outcome{.messages = run.messages};
    const kel_rect r = run.rect();
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
        const FT_Bitmap& bitmap = shape->bitmap;
        c = origin.x + shape->left;
        for (int row = 0; row < int(bitmap.rows); ++row) {
            for (int column = 0; column < int(bitmap.width); ++column) {
                const uint8_t* line = bitmap.buffer + row * bitmap.pitch;
                const bool mono = bitmap.pixel_mode == FT_PIXEL_MODE_MONO;
                const int v = mono ? (line[column / 8] & 0x80 >> column % 8 ? 255 : 0) : line[column];
                const int x = c + column;
                const int y = origin.y - shape->top + row;
                if (v == 0 || x < 0 || y < 0 || x >= clip.x || y >= clip.y) continue;
                uint8_t* pixel = &to.bgra[(size_t(y) * to.width + x) * 4];
                pixel[0] = uint8_t(color);
                pixel[1] = uint8_t(color >> 8);
                pixel[2] = uint8_t(color >> 16);
                pixel[3] = uint8_t(v * int(color >> 24) / 255);
            }
        }
        ++outcome.glyphs;
    }
    outcome.drawn = {origin.x + r.x, origin.y + r.y, r.width, r.height};
    return outcome;
}

Outcome PlainText::draw(golden::Picture& to, kel_point clip, const char* utf8, kel_point at,
                        const kel_text_style& style) {
    Run run(face_, utf8, style.size);
    const kel_rect r = run.rect();
    if (style.halign == KEL_TEXT_HALIGN_CENTER) at.x -= r.width / 2;
    if (style.halign == KEL_TEXT_HALIGN_RIGHT) at.x -= r.width;
    if (style.valign == KEL_TEXT_VALIGN_BOTTOM) at.y += -r.y - r.height;
    if (style.valign == KEL_TEXT_VALIGN_CENTER) at.y += -r.y - r.height / 2;
    if (style.valign == KEL_TEXT_VALIGN_TOP) at.y -= r.y;
    return draw_run(to, clip, run, at, style.color);
}

Outcome PlainText::draw_in_bb(golden::Picture& to, kel_point clip, const char* utf8, kel_rect box,
                              const kel_text_style& style) {
    Run run(face_, utf8, 36);
    const FT_BBox b = run.box();
    if (b.xMax == b.xMin || b.yMax == b.yMin) {
        return {.drawn = {box.x, box.y, 0, 0}, .messages = run.messages};
    }
    const bool height_limits = double(box.width) / (b.xMax - b.xMin) > double(box.height) / (b.yMax - b.yMin);
    const double s = height_limits ? box.height / ((b.yMax - b.yMin) * 0.015625)
                                   : box.width / ((b.xMax - b.xMin) * 0.015625);
    const auto k = FT_Fixed(s * 65536.0);
    FT_Matrix matrix = {k, 0, 0, k};
    for (FT_Glyph glyph : run.glyphs) FT_Glyph_Transform(glyph, &matrix, nullptr);
    const kel_rect r = run.rect();
    kel_point origin = {box.x - r.x, box.y - r.y};
    if (height_limits) {
        if (style.halign == KEL_TEXT_HALIGN_CENTER) origin.x += box.width / 2 - r.width / 2;
        if (style.halign == KEL_TEXT_HALIGN_RIGHT) origin.x += box.width - r.width;
    } else {
        if (style.valign == KEL_TEXT_VALIGN_BOTTOM) origin.y += box.height - r.height;
        if (style.valign == KEL_TEXT_VALIGN_CENTER) origin.y += box.height / 2 - r.height / 2;
    }
    return draw_run(to, clip, run, origin, style.color);
}

kel_rect PlainText::measure(const char* utf8, int32_t points) {
    return Run(face_, utf8, points).rect();
}

}  // namespace kel_test
