// kel text: lines of text as a PNG file.
#pragma once

#include <string>

#include "media/font_file.hpp"

namespace kel_tool {

// Words of the command line; empty ones were not given.
struct text_options {
    std::string text;  // with line ends
    std::string output;
    bool replace = false;
    std::string font = default_font;
    int points = 24;  // at 160 dots per inch
    std::string color = "white", background;
    std::string size, position, box, align;
    int margin = 8;  // pixels
};

void draw_text(const text_options& options);  // throws failure

}  // namespace kel_tool
