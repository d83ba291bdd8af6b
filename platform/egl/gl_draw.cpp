// Drawing, reading and waiting.
#include "egl/coherence.hpp"
#include "egl/gl_state.hpp"
#include "egl/replacements.hpp"

namespace platform::egl {
namespace {

bool clears_every_pixel() {
    GLboolean mask[4];
    driver.glGetBooleanv(GL_COLOR_WRITEMASK, mask);
    return mask[0] && mask[1] && mask[2] && mask[3] && !driver.glIsEnabled(GL_SCISSOR_TEST);
}

}  // namespace

void clear(GLbitfield mask) {
    if (mask & GL_COLOR_BUFFER_BIT) before_clearing(clears_every_pixel());
    driver.glClear(mask);
}

void draw_arrays(GLenum mode, GLint first, GLsizei count) {
    before_drawing();
    driver.glDrawArrays(mode, first, count);
}

void draw_elements(GLenum mode, GLsizei count, GLenum type, const void* indices) {
    before_drawing();
    driver.glDrawElements(mode, count, type, indices);
}

void finish() {
    driver.glFinish();
    settle();
}

void read_pixels(GLint x, GLint y, GLsizei width, GLsizei height, GLenum format, GLenum type, void* pixels) {
    before_reading();
    driver.glReadPixels(x, y, width, height, format, type, pixels);
}

}  // namespace platform::egl
