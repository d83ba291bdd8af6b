// The GLES state of a context, its shaders and its surfaces.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>

#include "gles_fixture.hpp"
#include "support/faults.hpp"

namespace {

using namespace kel_test;

TEST(GlesState, WithoutItEverythingIsNeutral) {
    kel_context* context = kel_create_context();
    const kel_video_format format = {SCREEN_FORMAT_RGBA8888, 0, 4, 4};
    kel_buffer* buffer = kel_create_pixmap_buffer(context, &format);
    for (kel_context* without : {static_cast<kel_context*>(nullptr), context}) {
        EXPECT_EQ(kel_gles_get_egl_display(without), EGL_NO_DISPLAY);
        EXPECT_EQ(kel_gles_get_egl_context(without), EGL_NO_CONTEXT);
        EXPECT_EQ(kel_gles_get_egl_config(without), nullptr);
        EXPECT_EQ(kel_gles_make_current(without, &buffer), EGLBoolean{EGL_FALSE});
        EXPECT_EQ(kel_gles_create_pixmap_surface(without, buffer), EGL_NO_SURFACE);
        EXPECT_EQ(kel_gles_create_window_surface(without, buffer->pool), EGL_NO_SURFACE);
        EXPECT_EQ(kel_gles_init(without, EGL_NO_DISPLAY), 22);
        kel_gles_deinit(without);
    }
    kel_release_buffer(buffer);
    kel_destroy_context(&context);
}

std::vector<EGLConfig> asked;          // for their samples, in order
std::vector<size_t> without_sampling;  // which of them cannot be asked; the others have some

EGLBoolean samples_of(EGLDisplay, EGLConfig config, EGLint, EGLint* value) {
    const auto& list = without_sampling;
    const bool has_samples = std::find(list.begin(), list.end(), asked.size()) == list.end();
    asked.push_back(config);
    if (has_samples) *value = 4;
    return has_samples;
}

TEST(GlesState, TakesTheLastConfigurationWithoutMultisamplingOrTheFirst) {
    const EGLDisplay display = open_display();
    kel_context* context = kel_create_context();
    {
        const auto no_match = +[](EGLDisplay, const EGLint*, EGLConfig*, EGLint, EGLint* count) {
            *count = 0;
            return EGLBoolean{EGL_TRUE};
        };
        const ImportHook none = hook(no_match, "eglChooseConfig");
        EXPECT_EQ(kel_gles_init(context, display), 22);
    }
    const ImportHook sampled = hook(samples_of, "eglGetConfigAttrib");
    for (const std::vector<size_t>& which : {std::vector<size_t>{}, {1}, {0, 2}}) {
        asked.clear();
        without_sampling = which;
        EXPECT_EQ(kel_gles_init(context, display), 0);
        ASSERT_GT(asked.size(), 3u);  // so that one with samples comes last
        EXPECT_EQ(kel_gles_get_egl_config(context), asked[which.empty() ? 0 : which.back()]);
        EXPECT_EQ(kel_gles_init(context, &asked), 0);  // has one: nothing changes
        EXPECT_EQ(kel_gles_get_egl_display(context), display);
        kel_gles_deinit(context);
    }
    kel_destroy_context(&context);
}

TEST(GlesState, EachFailureLeavesTheContextWithout) {
    const EGLDisplay display = open_display();
    const std::vector<FaultPoint> points = {
        KEL_FAULT_POINT(eglInitialize, EGL_FALSE, 0), KEL_FAULT_POINT(eglGetConfigs, EGL_FALSE, 0),
        KEL_FAULT_POINT(eglChooseConfig, EGL_FALSE, 0), KEL_FAULT_POINT(eglCreateContext, nullptr, 0)};
    sweep_faults(points, [&](const Fault* fault, LogCapture& log) {
        kel_context* context = kel_create_context();
        if (!context) return;
        EXPECT_EQ(kel_gles_init(context, display), !fault ? 0 : fault->function == "calloc" ? 12 : 22);
        EXPECT_EQ(context->gles == nullptr, fault != nullptr);
        EXPECT_TRUE(log.messages().empty());
        EXPECT_NE(eglQueryString(display, EGL_VERSION), nullptr);  // never terminated
        kel_destroy_context(&context);
    });
}

std::vector<FaultPoint> surface_fault_points() {
    return {KEL_FAULT_POINT(eglCreatePixmapSurface, nullptr, 0),
            KEL_FAULT_POINT(eglCreateWindowSurface, nullptr, 0),
            KEL_FAULT_POINT(eglQueryString, nullptr, 0),
            KEL_FAULT_POINT(eglMakeCurrent, EGL_FALSE, 0),
            KEL_FAULT_POINT(glGetString, nullptr, 0),
            KEL_FAULT_POINT(eglGetProcAddress, nullptr, 0)};
}

TEST_F(Gles, SurfacesAreLeftCurrentOrNotAtAll) {
    kel_buffer_pool* windows = make_window_pool(8, 8, 2);
    for (const bool window : {false, true}) {
        sweep_faults(surface_fault_points(), [&](const Fault* fault, LogCapture& log) {
            const EGLSurface surface = window ? kel_gles_create_window_surface(context, windows)
                                              : kel_gles_create_pixmap_surface(context, target);
            EXPECT_EQ(surface == EGL_NO_SURFACE, fault != nullptr);
            EXPECT_EQ(eglGetCurrentSurface(EGL_DRAW), surface);
            EXPECT_EQ(eglGetCurrentSurface(EGL_READ), surface);
            EXPECT_TRUE(log.messages().empty());
            EXPECT_TRUE(fault || eglDestroySurface(display, surface));
            eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        });
    }
    kel_destroy_buffer_pool(&windows);
}

TEST_F(Gles, SurfacesNeedTheImageExtensions) {
    static const char *egl_text, *gl_text;
    const auto egl_string = +[](EGLDisplay, EGLint) { return egl_text; };
    const auto gl_string = +[](GLenum) { return reinterpret_cast<const GLubyte*>(gl_text); };
    const ImportHook hooks[] = {hook(egl_string, "eglQueryString"), hook(gl_string, "glGetString")};
    const std::tuple<const char*, const char*, bool> rows[] = {
        {"EGL_KHR_image EGL_KHR_gl_texture_2D_image", "GL_OES_EGL_image", true},
        {"EGL_KHR_image_base xEGL_KHR_gl_texture_2D_imagex", "GL_OES_EGL_image_external", true},  // parts do
        {"EGL_KHR_gl_texture_2D_image", "GL_OES_EGL_image", false},
        {"EGL_KHR_image", "GL_OES_EGL_image", false},
        {"EGL_KHR_image EGL_KHR_gl_texture_2D_image", "GL_OES_EGL", false}};
    for (const auto& [egl, gl, enough] : rows) {
        egl_text = egl;
        gl_text = gl;
        const EGLSurface surface = kel_gles_create_pixmap_surface(context, target);
        EXPECT_EQ(surface != EGL_NO_SURFACE, enough) << egl << ", " << gl;
        EXPECT_TRUE(!surface || eglDestroySurface(display, surface));
    }
}

TEST_F(Gles, SurfacesOfTheWrongKindAreRefusedBeforeEglIsAsked) {
    const kel_audio_format audio = {48000, 2, KEL_AUDIO_TYPE_S16LE};
    kel_buffer_pool* audio_pool = kel_create_audio_buffer_pool(context, &audio, 10, 1);
    kel_buffer_pool* windows = make_window_pool(8, 8, 1);
    EXPECT_EQ(kel_gles_make_current(context, EGL_NO_SURFACE), EGLBoolean{EGL_FALSE});
    kel_buffer no_pixmap = *target;
    no_pixmap.pixmap = nullptr;
    kel_buffer_pool no_window = {};
    no_window.format.type = KEL_BUFFER_VIDEO;
    no_window.flags = KEL_POOL_WINDOW;
    {
        const Faults faults(surface_fault_points());
        for (kel_buffer_pool* refused : {audio_pool, target->pool, &no_window})
            EXPECT_EQ(kel_gles_create_window_surface(context, refused), EGL_NO_SURFACE);
        for (kel_buffer* refused : {&audio_pool->buffers[0], &windows->buffers[0], &no_pixmap})
            EXPECT_EQ(kel_gles_create_pixmap_surface(context, refused), EGL_NO_SURFACE);
        EXPECT_EQ(faults.calls(), 0);
    }
    for (kel_buffer_pool** pool : {&audio_pool, &windows}) kel_destroy_buffer_pool(pool);
}

TEST_F(Gles, ShadersComeFromTextsAndFiles) {
    EXPECT_EQ(kel_gles_create_shader(context, GL_VERTEX_SHADER, "", nullptr), 0u);  // nothing is current
    const EGLSurface surface = kel_gles_create_pixmap_surface(context, target);
    errno = 0;
    GLint status = 7;
    EXPECT_EQ(kel_gles_create_shader(context, GL_VERTEX_SHADER, nullptr, &status), 0u);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(status, 7);

    const std::string path = ::testing::TempDir() + "kel_shader_" + std::to_string(getpid()) + ".glsl";
    for (const char* text : {tint_fragment_shader, "", "#version 100\r\nvoid main() { }"}) {
        std::ofstream(path, std::ios::binary) << text;
        const GLuint shader =
            kel_gles_create_shader_from_file(context, GL_FRAGMENT_SHADER, path.c_str(), &status);
        char stored[400] = "?";
        glGetShaderSource(shader, sizeof stored, nullptr, stored);
        EXPECT_STREQ(stored, text);
        EXPECT_EQ(status, *text ? GL_TRUE : GL_FALSE);  // for the caller to judge
    }
    const auto error_of = [&](const std::string& from) {
        errno = 0;
        const GLuint made =
            kel_gles_create_shader_from_file(context, GL_VERTEX_SHADER, from.c_str(), nullptr);
        EXPECT_EQ(made == 0, errno != 0);
        return errno;
    };
    sweep_faults({}, [&](const Fault* fault, LogCapture&) { EXPECT_EQ(error_of(path), fault ? ENOMEM : 0); });
    EXPECT_NE(error_of(::testing::TempDir()), 0);  // a folder
    EXPECT_TRUE(std::filesystem::remove(path));
    EXPECT_EQ(error_of(path), ENOENT);
    EXPECT_TRUE(eglDestroySurface(display, surface));
}

}  // namespace
