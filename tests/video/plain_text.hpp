// Text drawing written plainly from its formulas over FreeType: no caches, nothing shared with the library.
#pragma once

#include <ft2build.h>
#include <kel.h>

#include FT_FREETYPE_H

#include <string>
#include <vector>

#include "golden/golden.hpp"

namespace kel_test {

// What a text call gives besides pixels.
struct Outcome {
    int glyphs = 0;
    kel_rect drawn = {-1, -1, -1, -1};  // as the caller set it, when the call left it alone
    std::vector<std::string> messages = {};
    bool operator==(const Outcome& other) const;
};
void PrintTo(const Outcome& outcome, std::ostream* out);

class PlainText {
  public:
    explicit PlainText(const std::string& font_path);
    ~PlainText();
    PlainText(const PlainText&) = delete;
    PlainText& operator=(const PlainText&) = delete;

    // `clip`: the slice's width and height.
    Outcome draw(golden::Picture& to, kel_point clip, const char* utf8, kel_point position,
                 const kel_text_style& style);
    Outcome draw_in_bb(golden::Picture& to, kel_point clip, const char* utf8, kel_rect box,
                       const kel_text_style& style);
    kel_rect measure(const char* utf8, int32_t points);

  private:
    struct Run;
    Outcome draw_run(golden::Picture& to, kel_point clip, Run& run, kel_point origin, uint32_t color);

    std::string bytes_;
    FT_Library library_;
    FT_Face face_;
};

}  // namespace kel_test
