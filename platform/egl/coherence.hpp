// When memory and driver are brought together: the driver sees the memory's present pixels at each draw, the memory
// has what was drawn after settle(), and nothing else is ever written, so that what the processor wrote stays.
#pragma once

#include "egl/records.hpp"

namespace platform::egl {

// Before a draw: bound image textures and the target have the memory's pixels; the target counts as written.
void before_drawing();

// Before the framebuffer is written without textures; `overwrites`: all of its pixels, in all components.
void before_clearing(bool overwrites);

// Before pixels are read from the framebuffer.
void before_reading();

// Before the texture bound to GL_TEXTURE_2D is read otherwise than by drawing.
void before_sampling_bound_texture();

// Before part of the texture bound to GL_TEXTURE_2D is written.
void before_writing_bound_texture();

// Before level 0 of the texture bound to GL_TEXTURE_2D is replaced, or a texture is deleted: it is an image no more.
void before_replacing_bound_texture();
void before_deleting_texture(GLuint texture);

// Stores everything that the current context has drawn and not yet stored.
void settle();

}  // namespace platform::egl
