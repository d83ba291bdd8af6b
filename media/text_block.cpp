#include "text_block.hpp"

#include <locale.h>

#include <algorithm>
#include <cstdlib>

#include "failure.hpp"
#include "filter_spec.hpp"

namespace kel_tool {
namespace {

constexpr int largest_size = 1500;  // points; the library refuses letters of more than 16 million pixels

// From one line to the next: 1.2 em, at 160 dots per inch.
constexpr int line_height(int size) {
    return size * 160 * 12 / 720;
}

bool is_utf8(const std::string& text) {
    const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    const locale_t before = uselocale(utf8);
    const bool valid = std::mbstowcs(nullptr, text.c_str(), 0) != static_cast<size_t>(-1);
    uselocale(before);
    freelocale(utf8);
    return valid;
}

void include(kel_rect& all, const kel_rect& part) {
    if (part.width == 0 || part.height == 0) return;
    if (all.width == 0) {
        all = part;
        return;
    }
    const int right = std::max(all.x + all.width, part.x + part.width);
    const int bottom = std::max(all.y + all.height, part.y + part.height);
    all.x = std::min(all.x, part.x);
    all.y = std::min(all.y, part.y);
    all.width = right - all.x;
    all.height = bottom - all.y;
}

}  // namespace

text_block::text_block(const session& session, const std::string& text, const text_look& look)
    : session_(session), lines_(split(text, '\n')), look_(look), scrap_(make_picture(session, 1, 1, 0)) {
    if (!is_utf8(text)) throw failure("the text is not UTF-8");
}

kel_text_style text_block::style(int size, int valign) const {
    return {look_.font.c_str(), look_.color, size, look_.halign, valign};
}

void text_block::refuse(int size) const {
    throw failure("the text cannot be drawn with " + look_.font + " at " + std::to_string(size) +
                  " points: no such font, or the letters are too large");
}

kel_rect text_block::draw(const picture& to, kel_point pen, int size) const {
    const kel_text_style style = this->style(size, KEL_TEXT_VALIGN_BASELINE);
    kel_rect all = {pen.x, pen.y, 0, 0};
    for (const std::string& line : lines_) {
        kel_rect ink = {0, 0, -1, 0};
        kel_text_draw(&to.slice, line.c_str(), &pen, &style, &ink);
        if (ink.width < 0) refuse(size);
        include(all, ink);
        pen.y += line_height(size);
    }
    return all;
}

kel_rect text_block::measure(int size) const {
    const kel_rect ink = draw(scrap_, {0, 0}, size);
    if (ink.width == 0) throw failure("there is nothing to see of this text");
    return ink;
}

int text_block::fit(int width, int height) const {
    int fits = 0, too_large = largest_size;
    while (too_large - fits > 1) {
        const int size = (fits + too_large) / 2;
        const kel_rect ink = measure(size);
        (ink.width <= width && ink.height <= height ? fits : too_large) = size;
    }
    if (fits == 0) throw failure("the text does not fit into the box, however small");
    return fits;
}

picture text_block::draw(int size) const {
    const kel_rect ink = measure(size);
    picture made = make_picture(session_, ink.width, ink.height, 0);
    draw(made, {-ink.x, -ink.y}, size);
    return made;
}

picture text_block::draw_in_box(int width, int height, int valign) const {
    picture made = make_picture(session_, width, height, 0);
    const kel_text_style style = this->style(1, valign);
    const kel_rect box = {0, 0, width, height};
    kel_rect ink = {0, 0, -1, 0};
    kel_text_draw_in_bb(&made.slice, lines_.front().c_str(), &box, &style, &ink);
    if (ink.width < 0) refuse(0);
    if (ink.width == 0) throw failure("there is nothing to see of this text");
    return made;
}

}  // namespace kel_tool
