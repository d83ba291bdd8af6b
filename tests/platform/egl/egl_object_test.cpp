// EGL objects over Screen's: what is offered, what is refused and how, and that nothing outlives its last holder.
#include <algorithm>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>

#include "egl_fixture.hpp"
#include "support/import_hooks.hpp"

namespace {

using namespace kel_test;

// Also run with no driver to be found, where there is no display and no crash.
TEST(EglVendor, HasADisplayWhereItHasADriver) {
    const bool expected = !std::getenv("KEL_TEST_WITHOUT_EGL");
    EXPECT_EQ(eglGetDisplay(EGL_DEFAULT_DISPLAY) != EGL_NO_DISPLAY, expected);
}

TEST_F(Egl, ConfigurationsServePixmapsAndWindows) {
    const auto count = [&](const std::vector<EGLint>& attributes) {
        EGLint matches = -1;
        EXPECT_TRUE(eglChooseConfig(display, attributes.data(), nullptr, 0, &matches));
        return matches;
    };
    EXPECT_GT(count({EGL_SURFACE_TYPE, EGL_PIXMAP_BIT, EGL_NONE}), 0);
    EXPECT_EQ(count({EGL_NONE}), count({EGL_SURFACE_TYPE, EGL_WINDOW_BIT, EGL_NONE}));  // the default
    EXPECT_EQ(count({EGL_SURFACE_TYPE, EGL_PIXMAP_BIT, EGL_RED_SIZE, 99, EGL_NONE}), 0);
    EGLint types = 0;
    EXPECT_TRUE(eglGetConfigAttrib(display, config, EGL_SURFACE_TYPE, &types));
    EXPECT_EQ(~types & (EGL_PIXMAP_BIT | EGL_WINDOW_BIT | EGL_PBUFFER_BIT), 0);
    const std::string words = std::string(" ") + eglQueryString(display, EGL_EXTENSIONS) + " ";
    for (const char* name : {" EGL_KHR_image ", " EGL_KHR_image_base ", " EGL_KHR_image_pixmap "})
        EXPECT_TRUE(words.find(name) != std::string::npos && words.find(name) == words.rfind(name)) << name;
}

TEST_F(Egl, RefusalsSayWhy) {
    const Picture picture = make_picture(4, 4);
    const screen_pixmap_t planar = make_pixmap(SCREEN_FORMAT_NV12, 4, 4);
    const screen_pixmap_t narrow = make_pixmap(SCREEN_FORMAT_RGB565, 4, 4);
    const screen_pixmap_t gone = make_pixmap(SCREEN_FORMAT_RGBA8888, 4, 4);
    screen_pixmap_t bare;
    screen_window_t empty;
    EXPECT_EQ(screen_destroy_pixmap(gone), 0);
    EXPECT_EQ(screen_create_pixmap(&bare, context), 0);
    EXPECT_EQ(screen_create_window_type(&empty, context, SCREEN_CHILD_WINDOW), 0);
    const auto error_of = [](const void* made) { return made ? EGL_SUCCESS : eglGetError(); };
    const auto surface = [&](EGLDisplay on, EGLConfig with, void* pixmap) {
        return error_of(eglCreatePixmapSurface(on, with, pixmap, nullptr));
    };
    const auto image = [&](EGLContext with, EGLenum target, void* pixmap, const EGLint* attributes) {
        const EGLImageKHR made = create_image(display, with, target, pixmap, attributes);
        const EGLint error = error_of(made);
        EXPECT_TRUE(!made || destroy_image(display, made));
        return error;
    };
    const EGLint preserved[] = {EGL_IMAGE_PRESERVED_KHR, EGL_TRUE, EGL_NONE};
    const EGLint unknown[] = {0x777, 1, EGL_NONE};
    const std::pair<EGLint, EGLint> rows[] = {
        {surface(display, config, gone), EGL_BAD_NATIVE_PIXMAP},
        {surface(display, config, nullptr), EGL_BAD_NATIVE_PIXMAP},
        {surface(display, config, bare), EGL_BAD_NATIVE_PIXMAP},
        {surface(display, config, planar), EGL_BAD_MATCH},
        {surface(display, config, narrow), EGL_BAD_MATCH},
        {surface(display, nullptr, picture.pixmap), EGL_BAD_CONFIG},
        {surface(nullptr, config, picture.pixmap), EGL_BAD_DISPLAY},
        {error_of(eglCreateWindowSurface(display, config, empty, nullptr)), EGL_BAD_NATIVE_WINDOW},
        {image(nullptr, EGL_NATIVE_PIXMAP_KHR, picture.pixmap, preserved), EGL_SUCCESS},
        {image(gles, EGL_NATIVE_PIXMAP_KHR, picture.pixmap, nullptr), EGL_BAD_PARAMETER},
        {image(nullptr, EGL_NATIVE_PIXMAP_KHR, picture.pixmap, unknown), EGL_BAD_PARAMETER},
        {image(nullptr, 0x999, picture.pixmap, nullptr), EGL_BAD_PARAMETER},  // the driver's answer
        {image(nullptr, EGL_NATIVE_PIXMAP_KHR, planar, nullptr), EGL_BAD_PARAMETER},
        {image(nullptr, EGL_NATIVE_PIXMAP_KHR, gone, nullptr), EGL_BAD_PARAMETER},
    };
    for (const auto& row : rows) EXPECT_EQ(row.first, row.second) << &row - rows;

    surface_of(picture);
    texture_of(picture);
    const EGLImageKHR ended = image_of(picture), other = image_of(picture);
    EXPECT_TRUE(destroy_image(display, ended));
    EXPECT_FALSE(destroy_image(display, ended));
    EXPECT_EQ(eglGetError(), EGL_BAD_PARAMETER);
    image_target_texture(GL_TEXTURE_2D, ended);
    EXPECT_EQ(glGetError(), GLenum{GL_INVALID_VALUE});
    image_target_texture(GL_TEXTURE_CUBE_MAP, other);
    EXPECT_NE(glGetError(), GLenum{GL_NO_ERROR});
    EXPECT_TRUE(destroy_image(display, other));
}

// Objects end in each of the 120 orders, some while they are current or bound; drawing in between stays safe.
TEST_F(Egl, NothingIsLeftWhateverEndsFirst) {
    int order[] = {0, 1, 2, 3, 4};
    const screen_live_counts_t before = live();
    do {
        const Picture source = make_picture(4, 4), target = make_picture(4, 4);
        const EGLContext own = make_context();
        const EGLSurface surface = surface_of(target, own);
        const GLuint texture = texture_of(source);
        const EGLImageKHR image = image_of(source);
        image_target_texture(GL_TEXTURE_2D, image);
        const std::function<bool()> ends[] = {
            [&] { return destroy_image(display, image) != 0; },
            [&] { return glDeleteTextures(1, &texture), true; },
            [&] { return eglDestroySurface(display, surface) != 0; },
            [&] {
                return screen_destroy_pixmap(source.pixmap) == 0 && screen_destroy_pixmap(target.pixmap) == 0;
            },
            [&] { return eglDestroyContext(display, own) != 0; },
        };
        for (int i : order) {
            glClear(GL_COLOR_BUFFER_BIT);
            EXPECT_TRUE(ends[i]()) << i;
        }
        make_nothing_current();
        ASSERT_TRUE(live() == before) << ::testing::PrintToString(order);
    } while (std::next_permutation(std::begin(order), std::end(order)));
}

TEST_F(Egl, ImagesHoldTheirMemoryAndTexturesTheirImages) {
    const Picture source = make_picture(5, 5), target = make_picture(5, 5);
    surface_of(target);
    texture_of(source);  // its image is gone already
    use_tint();
    fill(source, 72);
    const bytes expected = pixels(source);
    EXPECT_EQ(screen_destroy_pixmap(source.pixmap), 0);
    const int held = live().frames;
    EXPECT_EQ(drawn(target), expected);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 1, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    EXPECT_EQ(live().frames, held - 1);
}

TEST_F(Egl, TerminationEndsWhatIsLeft) {
    const Picture picture = make_picture(4, 4);
    surface_of(picture);
    const EGLImageKHR image = image_of(picture);
    make_nothing_current();
    EXPECT_TRUE(eglTerminate(display));
    EXPECT_EQ(eglCreatePixmapSurface(display, config, picture.pixmap, nullptr), EGL_NO_SURFACE);
    EXPECT_EQ(eglGetError(), EGL_NOT_INITIALIZED);
    EXPECT_TRUE(eglInitialize(display, nullptr, nullptr));
    EXPECT_FALSE(destroy_image(display, image));
    EXPECT_EQ(screen_destroy_pixmap(picture.pixmap), 0);
    EXPECT_EQ(live().frames, 0);
}

int allocations_until_failure;

void* failing_new(std::size_t size) {
    if (allocations_until_failure-- == 0) throw std::bad_alloc();
    return operator new(size);
}

TEST_F(Egl, RunningOutOfMemoryIsAnErrorAndLeavesNothing) {
    const Picture picture = make_picture(4, 4);
    const screen_window_t window = make_window(4, 4, 1);
    const EGLint attributes[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
    EGLint count;
    const std::function<bool()> attempts[] = {
        [&] {
            EGLSurface made = eglCreateWindowSurface(display, config, window, nullptr);
            return made && eglDestroySurface(display, made);
        },
        [&] {
            EGLContext made = eglCreateContext(display, config, nullptr, attributes);
            return made && eglDestroyContext(display, made);
        },
        [&] {
            EGLImageKHR made = create_image(display, nullptr, EGL_NATIVE_PIXMAP_KHR, picture.pixmap, nullptr);
            return made && destroy_image(display, made);
        },
        [&] { return eglChooseConfig(display, attributes + 2, nullptr, 0, &count) != 0; },
    };
    const ImportHook hooks[] = {hook(failing_new, "_Znwm", "libEGL_screen.so"),
                                hook(failing_new, "_Znwj", "libEGL_screen.so")};  // its name on 32 bits
    ASSERT_TRUE(hooks[0].bound() || hooks[1].bound());
    const int frames = live().frames;
    for (const auto& attempt : attempts) {
        int failures = 0;
        while (allocations_until_failure = failures, !attempt()) {
            EXPECT_EQ(eglGetError(), EGL_BAD_ALLOC);
            EXPECT_EQ(live().frames, frames);
            ASSERT_LT(++failures, 50);
        }
        EXPECT_GT(failures, 0);
    }
    allocations_until_failure = -1;
}

}  // namespace
