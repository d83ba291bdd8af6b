// One rasteriser's frames of 1280 by 720, for benchmarks that draw: buffers behind textures and surfaces, and the driver's
// own objects in their place.
#pragma once

#include <kel.h>

#include <GLES2/gl2ext.h>

#include "benchmarks/harness.hpp"

namespace kel_bench {

inline constexpr int width = 1280, height = 720;

inline constexpr const char* vertex_shader = R"(
attribute vec2 p;
varying vec2 t;
void main() { t = vec2(p.x * .5 + .5, .5 - p.y * .5); gl_Position = vec4(p, 0., 1.); })";

inline constexpr const char* copying_shader = R"(
precision mediump float;
varying vec2 t;
uniform sampler2D s;
void main() { gl_FragColor = texture2D(s, t); })";

[[noreturn]] inline void give_up(const char* what) {
    std::fprintf(stderr, "%s failed: EGL %#x, GL %#x\n", what, static_cast<unsigned>(eglGetError()),
                 glGetError());
    std::exit(1);
}

template <typename T>
T need(T value, const char* what) {
    if (!value) give_up(what);
    return value;
}

// The frames of one rasteriser: a buffer to draw from, one to draw into, and what the driver has in their place.
class Scene {
  public:
    Scene() {
        display_ = eglGetDisplay(EGL_DEFAULT_DISPLAY);
        context_ = need(kel_create_context(), "kel_create_context");
        if (kel_gles_init(context_, display_) != 0) give_up("kel_gles_init");
        const kel_video_format format = {SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_OPENGL_ES2, width, height};
        kel_buffer_pool* pool = need(kel_create_pixmap_buffer_pool(context_, &format, 3), "pool");
        for (kel_buffer*& source : sources_) {
            source = kel_acquire_buffer(pool);
            auto* bytes = static_cast<uint8_t*>(source->ptr);
            for (uint32_t i = 0; i < source->size; ++i)
                bytes[i] = static_cast<uint8_t>(i * 2654435761u >> 24);
        }
        over_screen_ = need(kel_gles_create_pixmap_surface(context_, kel_acquire_buffer(pool)), "surface");
        const EGLint size[] = {EGL_WIDTH, width, EGL_HEIGHT, height, EGL_NONE};
        bare_ = need(eglCreatePbufferSurface(display_, kel_gles_get_egl_config(context_), size), "pbuffer");

        const kel_slice slice = kel_slice_for_buffer(sources_[0]);
        texture_ = need(kel_gles_texture_from_slice(&slice), "texture");
        glGenTextures(1, &plain_texture_);
        glBindTexture(GL_TEXTURE_2D, plain_texture_);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_BGRA_EXT, width, height, 0, GL_BGRA_EXT, GL_UNSIGNED_BYTE,
                     sources_[0]->ptr);
        for (GLenum name : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER})
            glTexParameteri(GL_TEXTURE_2D, name, GL_LINEAR);
        for (GLenum name : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T})
            glTexParameteri(GL_TEXTURE_2D, name, GL_CLAMP_TO_EDGE);
        static const GLfloat corners[] = {-1, -1, 1, -1, -1, 1, 1, 1};
        glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, corners);
        glEnableVertexAttribArray(0);
    }

    kel_context* context() const { return context_; }

    void attach(GLuint program, GLenum type, const char* text) const {
        GLint compiled = GL_FALSE;
        glAttachShader(program, kel_gles_create_shader(context_, type, text, &compiled));
        need(compiled, "shader");
    }

    GLuint link(const char* fragment_shader) const {
        const GLuint program = glCreateProgram();
        attach(program, GL_VERTEX_SHADER, vertex_shader);
        attach(program, GL_FRAGMENT_SHADER, fragment_shader);
        glBindAttribLocation(program, 0, "p");
        glLinkProgram(program);
        return program;
    }

    // Between the driver's own objects.
    Comparison::Work bare(GLuint program, bool clear) {
        return [=, this](uint64_t count) {
            kel_gles_make_current(context_, bare_);
            use(program, plain_texture_);
            while (count-- > 0) draw(clear);
        };
    }

    // From a buffer to a buffer; with a buffer that comes new for every frame, or one that stays.
    // `each_frame` comes before every draw.
    Comparison::Work over_screen(
        GLuint program, bool clear, bool retarget = false, const std::function<void()>& each_frame = [] {}) {
        return [=, this](uint64_t count) {
            kel_gles_make_current(context_, over_screen_);
            use(program, texture_->texture);
            while (count-- > 0) {
                const kel_slice slice = kel_slice_for_buffer(sources_[count % 2]);
                if (retarget) kel_gles_retarget_texture(texture_, &slice);
                each_frame();
                draw(clear);
            }
        };
    }

  private:
    static void use(GLuint program, GLuint texture) {
        glUseProgram(program);
        glBindTexture(GL_TEXTURE_2D, texture);
    }
    static void draw(bool clear) {
        if (clear) glClear(GL_COLOR_BUFFER_BIT);
        glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
        glFinish();
    }

    EGLDisplay display_;
    kel_context* context_;
    kel_buffer* sources_[2];
    kel_texture* texture_;
    GLuint plain_texture_ = 0;
    EGLSurface over_screen_, bare_;
};

}  // namespace kel_bench
