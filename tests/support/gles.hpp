// What the tests that draw share: programs, a quad that covers the target, and the pixels of frames.
#pragma once

#include <kel.h>

#include <cstdint>
#include <vector>

namespace kel_test {

// Attribute `p` (location 0) is the corner; `t` is the texture coordinate, with t = 0 at the top of the target.
inline constexpr const char* quad_vertex_shader = R"(
attribute vec2 p;
varying vec2 t;
void main() { t = vec2(p.x * .5 + .5, .5 - p.y * .5); gl_Position = vec4(p, 0., 1.); })";

// The texture `s` times the colour `k`.
inline constexpr const char* tint_fragment_shader = R"(
precision mediump float;
varying vec2 t;
uniform sampler2D s;
uniform vec4 k;
void main() { gl_FragColor = texture2D(s, t) * k; })";

// The display of the machine, initialised. Its driver stays loaded after eglTerminate: it forgets memory when
// it is unloaded, and nobody could tell any more that the leak is not ours.
EGLDisplay open_display();

// A linked program in use, with the quad's corners set up; a shader that does not compile is a test failure.
GLuint use_program(const char* vertex_shader, const char* fragment_shader);

// The program above in use, with this colour and texture unit.
void use_tint(float red = 1, float green = 1, float blue = 1, float alpha = 1, int unit = 0);

void draw_quad();

using bytes = std::vector<uint8_t>;

// A picture in memory; four bytes a pixel are blue, green, red, alpha.
struct PixelRows {
    void* pointer;
    int width, height, stride, bytes_per_pixel = 4;
    uint8_t* at(int x, int y) const {
        return static_cast<uint8_t*>(pointer) + y * stride + x * bytes_per_pixel;
    }
    bytes pixel(int x, int y) const { return bytes(at(x, y), at(x, y) + bytes_per_pixel); }
};

// Fills the pixels with multiples of 4, so that a tint of 1, 1/2, 1/4 is exact, and the padding with 0xEE.
void fill(const PixelRows& rows, int seed);

// All pixels, without the padding, row by row from the top.
bytes pixels(const PixelRows& rows);

// What the tint (1, 1/2, 1/4, 1) makes of such pixels.
bytes tinted(const PixelRows& rows);

// True when no byte between the rows was changed since fill().
bool padding_is_untouched(const PixelRows& rows);

}  // namespace kel_test
