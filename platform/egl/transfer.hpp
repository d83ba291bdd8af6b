// Pixels between a Screen object's memory and the driver. Row 0 of the memory is t = 0 of a texture and the top,
// clip y = +1, of a surface. Bytes between the rows are never touched. A context must be current; GL state is
// left as it was.
#pragma once

#include "egl/driver.hpp"
#include "screen/frame_access.h"

namespace platform::egl {

bool can_be_texture(int screen_format);  // one plane of red, green and blue
bool can_be_surface(int screen_format);  // the same with 8 bits each

// Makes the texture bound to GL_TEXTURE_2D an image of the memory.
void specify_texture(const platform_screen_frame& frame);

// Undoes what specify_texture has set beyond the image itself.
void unspecify_texture(const platform_screen_frame& frame);

// Brings the memory's present pixels into the texture, which was specified with the same frame.
void upload_texture(GLuint texture, const platform_screen_frame& frame);

// Stores the pixels of such a texture in the memory.
void store_texture(GLuint texture, const platform_screen_frame& frame);

// Draws the memory into the current draw surface, which has the frame's size and one sample a pixel.
void load_surface(const platform_screen_frame& frame);

// Stores the current read surface, `height` pixels high, in the memory as far as both reach.
void store_surface(GLint width, GLint height, const platform_screen_frame& frame);

}  // namespace platform::egl
