// RGB onto RGB: scaling, conversion and blending by pixman.
#pragma once

#include "screen/pixel_view.hpp"

namespace platform::screen {

inline constexpr int opaque = 255;

struct drawing_style {
    int alpha = opaque;                             // of everything that is drawn
    int transparency = SCREEN_TRANSPARENCY_SOURCE;  // SCREEN_TRANSPARENCY_*
    bool smooth = true;                             // between pixels when scaling; else the nearest one
    uint32_t color = 0;                             // 0xAARRGGBB; SOURCE_COLOR compares the lower 24 bits
};

// One axis of a scaled copy: destination pixel i, counted from the destination's first one, shows the source at
// (offset + i + 1/2) × source_length / destination_length + start.
struct axis {
    int offset;
    int source_length, destination_length;
    int start;
};

class composer {
  public:
    // Fills `destination` from `source`; where a sample falls outside, the source's nearest edge serves.
    void draw(const rgb_view& destination, const rgb_view& source, const axis& x, const axis& y,
              const drawing_style& style);

  private:
    scratch_memory prepared_, layer_;
};

void fill(const rgb_view& destination, uint32_t color);

}  // namespace platform::screen
