// The GLES state of a context, its shaders and its surfaces.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "gles_fixture.hpp"
#include "support/faults.hpp"

namespace {

using namespace kel_test;

TEST(GlesState, WithoutItEverythingIsNeutral) {
    kel_context* context = kel_create_context();
    const kel_video_format format = {SCREEN_FORMAT_RGBA8888, 0, 4, 4};
    kel_buffer* buffer = kel_create_pixmap_buffer(context, &format);
    const kel_slice slice = kel_slice_for_buffer(buffer);
    for (kel_context* without : {static_cast<kel_context*>(nullptr), context}) {
        EXPECT_EQ(kel_gles_get_egl_display(without), EGL_NO_DISPLAY);
        EXPECT_EQ(kel_gles_get_egl_context(without), EGL_NO_CONTEXT);
        EXPECT_EQ(kel_gles_get_egl_config(without), nullptr);
        EXPECT_EQ(kel_gles_make_current(without, &buffer), EGLBoolean{EGL_FALSE});
        EXPECT_EQ(kel_gles_create_pixmap_surface(without, buffer), EGL_NO_SURFACE);
        EXPECT_EQ(kel_gles_create_window_surface(without, buffer->pool), EGL_NO_SURFACE);
        kel_gles_deinit(without);
    }
    EXPECT_EQ(kel_gles_texture_from_slice(&slice), nullptr);
    EXPECT_EQ(kel_gles_init(nullptr, open_display()), 22);
    EXPECT_EQ(kel_gles_init(context, EGL_NO_DISPLAY), 22);
    EXPECT_EQ(context->gles, nullptr);
    kel_release_buffer(buffer);
    kel_destroy_context(&context);
}

// A driver made up of a list of configurations; handles are their numbers, from 1.
std::vector<EGLint> offered;  // the samples of each; negative when they cannot be asked for
EGLConfig used;

EGLBoolean count_configs(EGLDisplay, EGLConfig* configs, EGLint size, EGLint* count) {
    EXPECT_TRUE(configs == nullptr && size == 0);
    *count = static_cast<EGLint>(offered.size());
    return EGL_TRUE;
}
EGLBoolean choose_offered(EGLDisplay, const EGLint* attributes, EGLConfig* configs, EGLint size,
                          EGLint* count) {
    const std::pair<EGLint, EGLint> expected[] = {{EGL_RED_SIZE, 8},
                                                  {EGL_GREEN_SIZE, 8},
                                                  {EGL_BLUE_SIZE, 8},
                                                  {EGL_ALPHA_SIZE, 8},
                                                  {EGL_DEPTH_SIZE, 8},
                                                  {EGL_SURFACE_TYPE, EGL_PIXMAP_BIT},
                                                  {EGL_RENDERABLE_TYPE, EGL_OPENGL_ES2_BIT}};
    for (const auto& pair : expected) {
        EXPECT_EQ(std::pair(attributes[0], attributes[1]), pair);
        attributes += 2;
    }
    EXPECT_EQ(*attributes, EGL_NONE);
    EXPECT_EQ(size, static_cast<EGLint>(offered.size()));
    for (uintptr_t i = 0; i < offered.size(); ++i) configs[i] = reinterpret_cast<EGLConfig>(i + 1);
    *count = size;
    return EGL_TRUE;
}
EGLBoolean samples_of(EGLDisplay, EGLConfig config, EGLint attribute, EGLint* value) {
    EXPECT_EQ(attribute, EGL_SAMPLES);
    EXPECT_EQ(*value, 0);
    const EGLint samples = offered[reinterpret_cast<uintptr_t>(config) - 1];
    if (samples >= 0) *value = samples;
    return samples >= 0;
}
EGLContext create_with(EGLDisplay, EGLConfig config, EGLContext share, const EGLint* attributes) {
    EXPECT_EQ(share, EGL_NO_CONTEXT);
    EXPECT_EQ(std::vector<EGLint>(attributes, attributes + 3),
              (std::vector<EGLint>{EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE}));
    used = config;
    return &used;
}
EGLBoolean destroy_made_up(EGLDisplay, EGLContext context) {
    EXPECT_EQ(context, &used);
    return EGL_TRUE;
}

TEST(GlesState, TakesTheLastConfigurationWithoutMultisamplingOrTheFirst) {
    const ImportHook hooks[] = {hook(count_configs, "eglGetConfigs"), hook(choose_offered, "eglChooseConfig"),
                                hook(samples_of, "eglGetConfigAttrib"), hook(create_with, "eglCreateContext"),
                                hook(destroy_made_up, "eglDestroyContext")};
    const EGLDisplay display = open_display();
    const std::pair<std::vector<EGLint>, uintptr_t> rows[] = {
        {{0}, 1}, {{0, 0, 4, 0, 8}, 4}, {{4, 8}, 1}, {{4, 8, 0}, 3}, {{0, 4}, 1}, {{4, -1, 2}, 2}, {{}, 0},
    };
    for (const auto& [samples, expected] : rows) {
        offered = samples;
        kel_context* context = kel_create_context();
        EXPECT_EQ(kel_gles_init(context, display), expected ? 0 : 22);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(kel_gles_get_egl_config(context)), expected);
        if (expected) {
            EXPECT_EQ(used, kel_gles_get_egl_config(context));
            EXPECT_EQ(kel_gles_get_egl_context(context), &used);
            EXPECT_EQ(kel_gles_init(context, &used), 0);  // has one: nothing changes
            EXPECT_EQ(kel_gles_get_egl_display(context), display);
        }
        kel_destroy_context(&context);
    }
}

std::vector<FaultPoint> state_fault_points() {
    return {KEL_FAULT_POINT(eglInitialize, EGL_FALSE, 0), KEL_FAULT_POINT(eglGetConfigs, EGL_FALSE, 0),
            KEL_FAULT_POINT(eglChooseConfig, EGL_FALSE, 0), KEL_FAULT_POINT(eglCreateContext, nullptr, 0)};
}

TEST(GlesState, EachFailureLeavesTheContextWithout) {
    const EGLDisplay display = open_display();
    const int tried = sweep_faults(state_fault_points(), [&](const Fault* fault, LogCapture& log) {
        kel_context* context = kel_create_context();
        if (!context) return;
        const bool memory = fault && fault->is("calloc", fault->occurrence);
        EXPECT_EQ(kel_gles_init(context, display), !fault ? 0 : memory ? 12 : 22);
        EXPECT_EQ(context->gles == nullptr, fault != nullptr);
        EXPECT_TRUE(log.messages().empty());
        EXPECT_NE(eglQueryString(display, EGL_VERSION), nullptr);  // never terminated
        kel_destroy_context(&context);
    });
    EXPECT_EQ(tried, 7);
}

std::vector<FaultPoint> surface_fault_points() {
    return {KEL_FAULT_POINT(eglCreatePixmapSurface, nullptr, 0),
            KEL_FAULT_POINT(eglCreateWindowSurface, nullptr, 0),
            KEL_FAULT_POINT(eglQueryString, nullptr, 0),
            KEL_FAULT_POINT(eglMakeCurrent, EGL_FALSE, 0),
            KEL_FAULT_POINT(glGetString, nullptr, 0),
            KEL_FAULT_POINT(eglGetProcAddress, nullptr, 0)};
}

int surfaces_destroyed;
EGLBoolean counted_destroy(EGLDisplay display, EGLSurface surface) {
    ++surfaces_destroyed;
    EXPECT_EQ(eglGetCurrentSurface(EGL_DRAW), EGL_NO_SURFACE);
    return eglDestroySurface(display, surface);
}

TEST_F(Gles, SurfacesAreLeftCurrentOrNotAtAll) {
    kel_buffer* buffer = make_buffer(8, 8);
    kel_buffer_pool* windows = make_window_pool(8, 8, 2);
    const ImportHook counted = hook(counted_destroy, "eglDestroySurface");
    for (const bool window : {false, true}) {
        sweep_faults(surface_fault_points(), [&](const Fault* fault, LogCapture& log) {
            surfaces_destroyed = 0;
            const EGLSurface surface = window ? kel_gles_create_window_surface(context, windows)
                                              : kel_gles_create_pixmap_surface(context, buffer);
            EXPECT_EQ(surface == EGL_NO_SURFACE, fault != nullptr);
            EXPECT_EQ(eglGetCurrentSurface(EGL_DRAW), surface);
            EXPECT_EQ(eglGetCurrentSurface(EGL_READ), surface);
            const bool made = !fault || fault->function.find("eglCreate") != 0;
            EXPECT_EQ(surfaces_destroyed, fault && made ? 1 : 0);
            EXPECT_TRUE(log.messages().empty());
            EXPECT_TRUE(fault || eglDestroySurface(display, surface));
            eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        });
    }
    kel_release_buffer(buffer);
    kel_destroy_buffer_pool(&windows);
}

const char *egl_extensions, *gl_extensions;
const char* made_up_egl_string(EGLDisplay, EGLint) {
    return egl_extensions;
}
const GLubyte* made_up_gl_string(GLenum) {
    return reinterpret_cast<const GLubyte*>(gl_extensions);
}

TEST_F(Gles, SurfacesNeedTheImageExtensions) {
    kel_buffer* buffer = make_buffer(8, 8);
    const ImportHook hooks[] = {hook(made_up_egl_string, "eglQueryString"),
                                hook(made_up_gl_string, "glGetString")};
    const struct {
        const char *egl, *gl;
        bool enough;
    } rows[] = {
        {"EGL_KHR_image EGL_KHR_gl_texture_2D_image", "GL_OES_EGL_image", true},
        {"EGL_KHR_image_base xEGL_KHR_gl_texture_2D_imagex", "GL_OES_EGL_image_external",
         true},  // parts of words do
        {"EGL_KHR_gl_texture_2D_image", "GL_OES_EGL_image", false},
        {"EGL_KHR_image", "GL_OES_EGL_image", false},
        {"EGL_KHR_image EGL_KHR_gl_texture_2D_image", "GL_OES_EGL", false},
    };
    for (const auto& row : rows) {
        egl_extensions = row.egl;
        gl_extensions = row.gl;
        const EGLSurface surface = kel_gles_create_pixmap_surface(context, buffer);
        EXPECT_EQ(surface != EGL_NO_SURFACE, row.enough) << row.egl << ", " << row.gl;
        EXPECT_EQ(eglGetCurrentSurface(EGL_DRAW), surface);
        EXPECT_TRUE(!surface || eglDestroySurface(display, surface));
    }
    kel_release_buffer(buffer);
}

TEST_F(Gles, SurfacesOfTheWrongKindAreRefusedBeforeEglIsAsked) {
    const kel_audio_format audio = {48000, 2, KEL_AUDIO_TYPE_S16LE};
    kel_buffer_pool* audio_pool = kel_create_audio_buffer_pool(context, &audio, 10, 1);
    kel_buffer_pool* windows = make_window_pool(8, 8, 1);
    kel_buffer *buffer = make_buffer(8, 8), *planar = make_buffer(8, 8, SCREEN_FORMAT_NV12);
    kel_buffer* of_window = kel_acquire_buffer(windows);
    kel_buffer no_pixmap = *buffer;
    no_pixmap.pixmap = nullptr;
    kel_buffer_pool no_window = {};
    no_window.format.type = KEL_BUFFER_VIDEO;
    no_window.flags = KEL_POOL_WINDOW;
    {
        const Faults faults(surface_fault_points());
        for (kel_buffer_pool* pool :
             {static_cast<kel_buffer_pool*>(nullptr), audio_pool, buffer->pool, &no_window})
            EXPECT_EQ(kel_gles_create_window_surface(context, pool), EGL_NO_SURFACE);
        for (kel_buffer* refused :
             {static_cast<kel_buffer*>(nullptr), &audio_pool->buffers[0], of_window, &no_pixmap})
            EXPECT_EQ(kel_gles_create_pixmap_surface(context, refused), EGL_NO_SURFACE);
        EXPECT_EQ(faults.calls(), 0);
        EXPECT_EQ(kel_gles_create_pixmap_surface(context, planar), EGL_NO_SURFACE);  // EGL's refusal
        EXPECT_EQ(faults.calls(), 1);
    }
    EXPECT_EQ(kel_gles_make_current(context, EGL_NO_SURFACE), EGLBoolean{EGL_FALSE});
    kel_release_buffer(buffer);
    kel_release_buffer(planar);
    for (kel_buffer_pool** pool : {&audio_pool, &windows}) kel_destroy_buffer_pool(pool);
}

TEST_F(Gles, WindowSurfacesFillTheBuffersOfTheirPoolInTurn) {
    kel_buffer_pool* windows = make_window_pool(8, 6, 3);
    const EGLSurface surface = kel_gles_create_window_surface(context, windows);
    for (int frame = 0; frame < 5; ++frame) {
        glClearColor(static_cast<GLfloat>(frame) / 255, 0, 0, 1);
        glClear(GL_COLOR_BUFFER_BIT);
        EXPECT_TRUE(eglSwapBuffers(display, surface));
        const bytes seen = pixels(rows_of(&windows->buffers[frame % 3]));
        EXPECT_EQ(bytes(seen.end() - 4, seen.end()), (bytes{0, 0, static_cast<uint8_t>(frame), 255}));
    }
    EXPECT_TRUE(eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT));
    EXPECT_TRUE(kel_gles_make_current(context, surface));
    EXPECT_EQ(eglGetCurrentContext(), kel_gles_get_egl_context(context));
    EXPECT_TRUE(eglDestroySurface(display, surface));
    kel_destroy_buffer_pool(&windows);
}

int files_open;
FILE* counted_fopen(const char* path, const char* mode) {
    FILE* file = fopen(path, mode);
    files_open += file != nullptr;
    return file;
}
int counted_fclose(FILE* file) {
    --files_open;
    return fclose(file);
}

TEST_F(Gles, ShadersComeFromTextsAndFiles) {
    kel_buffer* buffer = make_buffer(4, 4);
    const auto make = [](GLenum type, const char* source, GLint* status) {
        errno = 0;
        return kel_gles_create_shader(nullptr, type, source, status);
    };
    EXPECT_EQ(make(GL_VERTEX_SHADER, quad_vertex_shader, nullptr), 0u);  // nothing is current
    EXPECT_EQ(errno, EINVAL);
    const EGLSurface surface = kel_gles_create_pixmap_surface(context, buffer);
    GLint status = 7;
    EXPECT_EQ(make(GL_TEXTURE_2D, quad_vertex_shader, &status), 0u);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(glGetError(), GLenum{GL_INVALID_ENUM});
    EXPECT_EQ(make(GL_VERTEX_SHADER, nullptr, &status), 0u);
    EXPECT_EQ(status, 7);
    EXPECT_NE(make(GL_VERTEX_SHADER, quad_vertex_shader, &status), 0u);
    EXPECT_EQ(status, GL_TRUE);
    EXPECT_NE(make(GL_FRAGMENT_SHADER, "void main() { nonsense }", &status), 0u);  // for the caller to judge
    EXPECT_EQ(status, GL_FALSE);
    EXPECT_NE(make(GL_FRAGMENT_SHADER, "void main() {}", nullptr), 0u);

    const std::string path = ::testing::TempDir() + "kel_shader_" + std::to_string(getpid()) + ".glsl";
    const ImportHook hooks[] = {hook(counted_fopen, "fopen"), hook(counted_fclose, "fclose")};
    const auto load = [&](const std::string& from, GLint* result) {
        errno = 0;
        return kel_gles_create_shader_from_file(context, GL_FRAGMENT_SHADER, from.c_str(), result);
    };
    for (const char* text : {tint_fragment_shader, "", "#version 100\r\nvoid main() { }"}) {
        std::ofstream(path, std::ios::binary) << text;
        const GLuint shader = load(path, &status);
        std::string stored(strlen(text) + 16, '?');
        GLsizei length = 0;
        glGetShaderSource(shader, static_cast<GLsizei>(stored.size()), &length, stored.data());
        EXPECT_EQ(stored.substr(0, static_cast<std::size_t>(length)), text);
        EXPECT_EQ(status, *text ? GL_TRUE : GL_FALSE);
    }
    sweep_faults({}, [&](const Fault* fault, LogCapture&) {
        EXPECT_EQ(load(path, nullptr) == 0, fault != nullptr);
        EXPECT_EQ(errno, fault ? ENOMEM : 0);
        EXPECT_EQ(files_open, 0);
    });
    EXPECT_EQ(load(::testing::TempDir(), nullptr), 0u);  // a folder
    EXPECT_NE(errno, 0);
    EXPECT_TRUE(std::filesystem::remove(path));
    EXPECT_EQ(load(path, nullptr), 0u);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(files_open, 0);
    EXPECT_TRUE(eglDestroySurface(display, surface));
    kel_release_buffer(buffer);
}

}  // namespace
