// Coverage into frames of 4-byte pixels: blue, green, red, alpha.
#pragma once

#include <kel.h>

#include "text/glyph_cache.hpp"

namespace kel {

// What may be written: the slice's width and height, and never more than the buffer.
struct canvas {
    uint8_t* pixels;
    int64_t stride;  // bytes
    int32_t width, height;
};
canvas canvas_of(const kel_slice& slice);

// A pixel with coverage v (never 0) becomes the colour with alpha v × A / 255, truncated, whatever it was before.
struct ink {
    explicit ink(uint32_t argb) : alpha(static_cast<uint16_t>(argb >> 24)), rgb(argb & 0xFFFFFF) {}
    uint16_t alpha;
    uint32_t rgb;
};

// Both clip; (x, y) is the pixel of the top left corner.
void paint_bitmap(const canvas& to, const ink& color, int64_t x, int64_t y, const FT_Bitmap& bitmap);
void paint_coverage(const canvas& to, const ink& color, int64_t x, int64_t y, const glyph_coverage& coverage);

}  // namespace kel
