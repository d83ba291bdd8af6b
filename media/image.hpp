// Still pictures: frames of 32-bit pixels, alpha not premultiplied.
#pragma once

#include <kel.h>

#include <cstdint>

#include "handles.hpp"
#include "session.hpp"

namespace kel_tool {

struct picture {
    buffer_handle buffer;
    kel_slice slice;  // all of it
};

// Filled with 0xAARRGGBB. Throws failure.
picture make_picture(const session& session, int width, int height, uint32_t color);

// A picture as the library draws it elsewhere: takes a buffer of 32-bit pixels over.
picture take_picture(kel_buffer* buffer);

// Draws `from`, which has transparent parts, at a place of `to`; what lies outside is cut off. Where `to` is
// transparent itself, `keep_alpha` copies instead of blending, which keeps every bit.
void lay_over(const session& session, const picture& from, const picture& to, int x, int y, bool keep_alpha);

}  // namespace kel_tool
