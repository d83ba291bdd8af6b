// A line of text on moving pictures, with the picture's time and number in it.
#pragma once

#include <kel.h>

#include <cstdint>
#include <optional>
#include <string>

#include "font_file.hpp"
#include "handles.hpp"
#include "session.hpp"

namespace kel_tool {

struct overlay_options {
    std::string text;                 // {time}, {timecode}, {pts} and {frame} stand for what the picture has
    std::string font = default_font;  // a name; a file, once it was looked up
    int size = 0;                     // points, at 160 dots per inch; 0: as the picture's height suggests
    uint32_t color = 0xFFFFFFFF;      // 0xAARRGGBB
    int halign = KEL_TEXT_HALIGN_CENTER;
    int valign = KEL_TEXT_VALIGN_BASELINE;
    std::optional<kel_point> position;  // without one and without a box: in the lower part of the picture
    std::optional<kel_rect> box;        // fills it, whatever the size
};

// The text with the placeholders filled in; {{ stands for one brace. frame_rate is that of {timecode}.
std::string fill_in(const std::string& text, int64_t pts, int64_t number, int frame_rate);

class overlay {
  public:
    // For pictures of a size. Throws failure, also when the font cannot be used.
    overlay(session& session, const overlay_options& options, int width, int height, int frame_rate);

    // Blends the text into an RGBA picture.
    void draw(const kel_slice& picture, int64_t pts, int64_t number);

  private:
    int render(const std::string& text);

    overlay_options options_;
    kel_context* context_;
    int frame_rate_;
    buffer_handle buffer_;  // the text alone, on nothing
    kel_slice slice_;
    std::string shown_;  // what the buffer holds
    kel_rect ink_ = {};  // where, cut to the picture
};

}  // namespace kel_tool
