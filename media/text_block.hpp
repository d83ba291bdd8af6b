// Lines of text as one block.
#pragma once

#include <kel.h>

#include <string>
#include <vector>

#include "image.hpp"
#include "session.hpp"

namespace kel_tool {

// What all lines have in common.
struct text_look {
    std::string font;  // a file
    uint32_t color;    // 0xAARRGGBB
    int halign;        // KEL_TEXT_HALIGN_*
};

class text_block {
  public:
    // Lines are cut at line ends. The session must have made text ready. Throws failure: text that is not UTF-8.
    text_block(const session& session, const std::string& text, const text_look& look);

    // The ink of all lines at a size in points, seen from the pen of the first line. Throws failure: font or size.
    [[nodiscard]] kel_rect measure(int size) const;

    // The largest size whose ink fits. Throws failure.
    [[nodiscard]] int fit(int width, int height) const;

    // A transparent picture of the ink, as measured. Throws failure.
    [[nodiscard]] picture draw(int size) const;

    // A transparent picture of that size with its only line fitted into it by the library. Throws failure.
    [[nodiscard]] picture draw_in_box(int width, int height, int valign) const;
    [[nodiscard]] bool is_single() const { return lines_.size() == 1; }

  private:
    // Draws all lines; returns their ink.
    kel_rect draw(const picture& to, kel_point pen, int size) const;
    [[nodiscard]] kel_text_style style(int size, int valign) const;
    [[noreturn]] void refuse(int size) const;

    const session& session_;
    std::vector<std::string> lines_;
    text_look look_;
    picture scrap_;  // where lines are drawn to be measured
};

}  // namespace kel_tool
