#include "support/gles.hpp"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>

#include <algorithm>
#include <cstring>

namespace kel_test {
namespace {

int pin_driver(dl_phdr_info* object, std::size_t, void*) {
    if (std::strstr(object->dlpi_name, "_dri.so")) dlopen(object->dlpi_name, RTLD_NOW | RTLD_NODELETE);
    return 0;
}

GLuint compile(GLenum type, const char* source) {
    const GLuint shader = glCreateShader(type);
    glShaderSource(shader, 1, &source, nullptr);
    glCompileShader(shader);
    GLint compiled = GL_FALSE;
    glGetShaderiv(shader, GL_COMPILE_STATUS, &compiled);
    char log[1024] = "";
    if (!compiled) glGetShaderInfoLog(shader, sizeof log, nullptr, log);
    EXPECT_TRUE(compiled) << log << source;
    return shader;
}

}  // namespace

EGLDisplay open_display() {
    EGLDisplay display = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    EXPECT_TRUE(eglInitialize(display, nullptr, nullptr));
    static const int pinned = dl_iterate_phdr(pin_driver, nullptr);
    EXPECT_EQ(pinned, 0);
    return display;
}

GLuint use_program(const char* vertex_shader, const char* fragment_shader) {
    static const GLfloat corners[] = {-1, -1, 1, -1, -1, 1, 1, 1};
    const GLuint program = glCreateProgram();
    for (const GLuint shader :
         {compile(GL_VERTEX_SHADER, vertex_shader), compile(GL_FRAGMENT_SHADER, fragment_shader)}) {
        glAttachShader(program, shader);
        glDeleteShader(shader);
    }
    glBindAttribLocation(program, 0, "p");
    glLinkProgram(program);
    glUseProgram(program);
    glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, corners);
    glEnableVertexAttribArray(0);
    EXPECT_EQ(glGetError(), GLenum{GL_NO_ERROR});
    return program;
}

void use_tint(float red, float green, float blue, float alpha, int unit) {
    const GLuint program = use_program(quad_vertex_shader, tint_fragment_shader);
    glUniform4f(glGetUniformLocation(program, "k"), red, green, blue, alpha);
    glUniform1i(glGetUniformLocation(program, "s"), unit);
}

void draw_quad() {
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
}

void fill(const PixelRows& rows, int seed) {
    for (int y = 0; y < rows.height; ++y) {
        std::fill_n(rows.at(0, y), rows.stride, uint8_t{0xEE});
        for (int i = 0; i < rows.width * rows.bytes_per_pixel; ++i)
            rows.at(0, y)[i] = i % 4 == 3 ? 255 : static_cast<uint8_t>((seed + i * 5 + y * 28) & 0xFC);
    }
}

bytes pixels(const PixelRows& rows) {
    bytes all;
    for (int y = 0; y < rows.height; ++y) all.insert(all.end(), rows.at(0, y), rows.at(rows.width, y));
    return all;
}

bytes tinted(const PixelRows& rows) {
    bytes all = pixels(rows);
    for (std::size_t i = 0; i < all.size(); i += 4) {
        all[i] = static_cast<uint8_t>(all[i] / 4);
        all[i + 1] = static_cast<uint8_t>(all[i + 1] / 2);
    }
    return all;
}

bool padding_is_untouched(const PixelRows& rows) {
    for (int y = 0; y < rows.height; ++y)
        for (const uint8_t* byte = rows.at(rows.width, y); byte != rows.at(0, y) + rows.stride; ++byte)
            if (*byte != 0xEE) return false;
    return true;
}

}  // namespace kel_test
