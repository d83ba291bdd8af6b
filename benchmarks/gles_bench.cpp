// One 1280 by 720 frame from a buffer through a shader into a buffer, beside the same draw between an ordinary texture and
// a surface of the driver's own on the same rasteriser: what is above it is the library's and the EGL bridge's share (upload,
// load, read-back, calls).
#include <kel.h>

#include <GLES2/gl2ext.h>

#include "benchmarks/harness.hpp"

namespace {

using namespace kel_bench;

constexpr int width = 1280, height = 720;

constexpr const char* vertex_shader = R"(
attribute vec2 p;
varying vec2 t;
void main() { t = vec2(p.x * .5 + .5, .5 - p.y * .5); gl_Position = vec4(p, 0., 1.); })";

constexpr const char* copying_shader = R"(
precision mediump float;
varying vec2 t;
uniform sampler2D s;
void main() { gl_FragColor = texture2D(s, t); })";

constexpr const char* colour_shader = R"(
precision mediump float;
varying vec2 t;
uniform sampler2D s;
void main() {
    vec4 c = texture2D(s, t);
    c.rgb = mix(vec3(dot(c.rgb, vec3(.299, .587, .114))), c.rgb, 1.3);
    c.rgb = (c.rgb - .5) * 1.2 + .5;
    gl_FragColor = c;
})";

[[noreturn]] void give_up(const char* what) {
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

    GLuint link(const char* fragment_shader) const {
        const GLuint program = glCreateProgram();
        const std::pair<GLenum, const char*> shaders[] = {{GL_VERTEX_SHADER, vertex_shader},
                                                          {GL_FRAGMENT_SHADER, fragment_shader}};
        for (const auto& [type, text] : shaders) {
            GLint compiled = GL_FALSE;
            glAttachShader(program, kel_gles_create_shader(context_, type, text, &compiled));
            need(compiled, "shader");
        }
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
    Comparison::Work over_screen(GLuint program, bool clear, bool retarget = false) {
        return [=, this](uint64_t count) {
            kel_gles_make_current(context_, over_screen_);
            use(program, texture_->texture);
            while (count-- > 0) {
                const kel_slice slice = kel_slice_for_buffer(sources_[count % 2]);
                if (retarget) kel_gles_retarget_texture(texture_, &slice);
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

}  // namespace

int main(int argc, char** argv) {
    const Options options = parse_options(argc, argv);
    Scene scene;
    std::printf("%s\n\n", reinterpret_cast<const char*>(glGetString(GL_RENDERER)));
    const std::pair<const char*, const char*> shaders[] = {
        {"Textured quad", copying_shader}, {"Shader for contrast and saturation", colour_shader}};
    for (const auto& [title, text] : shaders) {
        const GLuint program = scene.link(text);
        Comparison frames(std::string(title) + ", 1280 by 720", {"ms a frame", 1e3}, 2);
        frames.add(Role::reference, "the driver's own texture and surface", scene.bare(program, false));
        frames.add(Role::subject, "buffer to buffer", scene.over_screen(program, false));
        frames.add(Role::subject, "buffer to buffer, a new buffer each frame",
                   scene.over_screen(program, false, true));
        frames.run(options);
        Comparison cleared(std::string(title) + " on a cleared surface, 1280 by 720", {"ms a frame", 1e3}, 2);
        cleared.add(Role::reference, "the driver's own texture and surface", scene.bare(program, true));
        cleared.add(Role::subject, "buffer to buffer", scene.over_screen(program, true));
        cleared.run(options);
    }
}
