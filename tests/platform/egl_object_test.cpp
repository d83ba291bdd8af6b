// EGL objects over Screen's: what is offered, what is refused and how, and that nothing outlives its last holder.
#include <algorithm>
#include <cstdlib>
#include <new>
#include <numeric>
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
    EGLint all = 0, pixmaps = 0, windows = 0, none = 0, value = 0;
    const EGLint of_pixmaps[] = {EGL_SURFACE_TYPE, EGL_PIXMAP_BIT, EGL_NONE};
    const EGLint of_windows[] = {EGL_RED_SIZE, 1, EGL_NONE};  // windows are the default
    const EGLint impossible[] = {EGL_SURFACE_TYPE, EGL_PIXMAP_BIT, EGL_RED_SIZE, 99, EGL_NONE};
    EXPECT_TRUE(eglGetConfigs(display, nullptr, 0, &all));
    EXPECT_TRUE(eglChooseConfig(display, of_pixmaps, nullptr, 0, &pixmaps));
    EXPECT_TRUE(eglChooseConfig(display, of_windows, nullptr, 0, &windows));
    EXPECT_TRUE(eglChooseConfig(display, impossible, nullptr, 0, &none));
    EXPECT_GT(pixmaps, 0);
    EXPECT_LE(pixmaps, all);
    EXPECT_EQ(windows, pixmaps);
    EXPECT_EQ(none, 0);
    EXPECT_TRUE(eglGetConfigAttrib(display, config, EGL_SURFACE_TYPE, &value));
    EXPECT_EQ(value & (EGL_PIXMAP_BIT | EGL_WINDOW_BIT | EGL_PBUFFER_BIT),
              EGL_PIXMAP_BIT | EGL_WINDOW_BIT | EGL_PBUFFER_BIT);
    EXPECT_FALSE(eglGetConfigAttrib(display, config, 0x12345, &value));
    EXPECT_EQ(eglGetError(), EGL_BAD_ATTRIBUTE);

    const char* text = eglQueryString(display, EGL_EXTENSIONS);
    EXPECT_EQ(eglQueryString(display, EGL_EXTENSIONS), text);  // the same text for good
    const std::string words = " " + std::string(text) + " ";
    for (const char* name : {" EGL_KHR_image ", " EGL_KHR_image_base ", " EGL_KHR_image_pixmap ",
                             " EGL_KHR_gl_texture_2D_image "}) {
        EXPECT_NE(words.find(name), std::string::npos) << name;
        EXPECT_EQ(words.find(name), words.rfind(name)) << name;
    }
}

TEST_F(Egl, RefusalsSayWhy) {
    const Picture picture = make_picture(4, 4);
    const screen_pixmap_t planar = make_pixmap(SCREEN_FORMAT_NV12, 4, 4),
                          packed = make_pixmap(SCREEN_FORMAT_YUY2, 4, 4);
    const screen_pixmap_t gone = make_pixmap(SCREEN_FORMAT_RGBA8888, 4, 4);
    EXPECT_EQ(screen_destroy_pixmap(gone), 0);
    screen_pixmap_t bare;
    screen_window_t empty;
    EXPECT_EQ(screen_create_pixmap(&bare, context), 0);
    EXPECT_EQ(screen_create_window_type(&empty, context, SCREEN_CHILD_WINDOW), 0);
    const EGLint narrow_colours[] = {EGL_RED_SIZE,   5,       EGL_BUFFER_SIZE, 16, EGL_SURFACE_TYPE,
                                     EGL_PIXMAP_BIT, EGL_NONE};
    EGLConfig narrow;
    EGLint count;
    EXPECT_TRUE(eglChooseConfig(display, narrow_colours, &narrow, 1, &count));
    EGLint buffer_size = 0;
    eglGetConfigAttrib(display, narrow, EGL_BUFFER_SIZE, &buffer_size);

    const auto pixmap_surface = [&](EGLDisplay d, EGLConfig c, void* pixmap) {
        return eglCreatePixmapSurface(d, c, pixmap, nullptr) == EGL_NO_SURFACE ? eglGetError() : 0;
    };
    EXPECT_EQ(pixmap_surface(display, config, gone), EGL_BAD_NATIVE_PIXMAP);
    EXPECT_EQ(pixmap_surface(display, config, nullptr), EGL_BAD_NATIVE_PIXMAP);
    EXPECT_EQ(pixmap_surface(display, config, bare), EGL_BAD_NATIVE_PIXMAP);
    EXPECT_EQ(pixmap_surface(display, config, this), EGL_BAD_NATIVE_PIXMAP);
    EXPECT_EQ(pixmap_surface(display, config, planar), EGL_BAD_MATCH);
    EXPECT_EQ(pixmap_surface(display, config, make_pixmap(SCREEN_FORMAT_RGB565, 4, 4)), EGL_BAD_MATCH);
    EXPECT_EQ(pixmap_surface(display, nullptr, picture.pixmap), EGL_BAD_CONFIG);
    EXPECT_EQ(pixmap_surface(EGL_NO_DISPLAY, config, picture.pixmap), EGL_BAD_DISPLAY);
    if (buffer_size == 16) {
        EXPECT_EQ(pixmap_surface(display, narrow, picture.pixmap), EGL_BAD_MATCH);
    }
    EXPECT_EQ(eglCreateWindowSurface(display, config, empty, nullptr), EGL_NO_SURFACE);
    EXPECT_EQ(eglGetError(), EGL_BAD_NATIVE_WINDOW);

    const EGLint preserved[] = {EGL_IMAGE_PRESERVED_KHR, EGL_TRUE, EGL_NONE},
                 unknown[] = {0x777, 1, EGL_NONE};
    const auto image = [&](EGLContext ctx, EGLenum target, void* pixmap, const EGLint* attributes) {
        EGLImageKHR made = create_image(display, ctx, target, pixmap, attributes);
        const EGLint error = eglGetError();
        EXPECT_EQ(made == EGL_NO_IMAGE_KHR, error != EGL_SUCCESS);
        EXPECT_TRUE(!made || destroy_image(display, made));
        return error;
    };
    EXPECT_EQ(image(EGL_NO_CONTEXT, EGL_NATIVE_PIXMAP_KHR, picture.pixmap, preserved), EGL_SUCCESS);
    EXPECT_EQ(image(gles, EGL_NATIVE_PIXMAP_KHR, picture.pixmap, nullptr), EGL_BAD_PARAMETER);
    for (void* pixmap : {static_cast<void*>(planar), static_cast<void*>(packed), static_cast<void*>(gone),
                         static_cast<void*>(bare), static_cast<void*>(nullptr)})
        EXPECT_EQ(image(EGL_NO_CONTEXT, EGL_NATIVE_PIXMAP_KHR, pixmap, nullptr), EGL_BAD_PARAMETER);
    EXPECT_EQ(image(EGL_NO_CONTEXT, EGL_NATIVE_PIXMAP_KHR, picture.pixmap, unknown), EGL_BAD_PARAMETER);
    EXPECT_EQ(image(EGL_NO_CONTEXT, 0x999, picture.pixmap, nullptr),
              EGL_BAD_PARAMETER);  // the driver's answer

    const EGLImageKHR made = image_of(picture);
    EXPECT_TRUE(destroy_image(display, made));
    EXPECT_FALSE(destroy_image(display, made));
    EXPECT_EQ(eglGetError(), EGL_BAD_PARAMETER);
    surface_of(picture);
    texture_of(picture);
    image_target_texture(GL_TEXTURE_2D, made);  // ended: the texture stays what it is
    EXPECT_EQ(glGetError(), GLenum{GL_INVALID_VALUE});
    const EGLImageKHR other = image_of(picture);
    image_target_texture(GL_TEXTURE_CUBE_MAP, other);
    EXPECT_NE(glGetError(), GLenum{GL_NO_ERROR});
    EXPECT_TRUE(destroy_image(display, other));
}

// Objects end in each of the 120 orders, some while they are current or bound; drawing in between stays safe.
TEST_F(Egl, NothingIsLeftWhateverEndsFirst) {
    std::vector<int> order(5);
    std::iota(order.begin(), order.end(), 0);
    const screen_live_counts_t before = live();
    do {
        const Picture source = make_picture(4, 4), target = make_picture(4, 4);
        const EGLContext own = make_context();
        const EGLSurface surface = eglCreatePixmapSurface(display, config, target.pixmap, nullptr);
        EXPECT_TRUE(eglMakeCurrent(display, surface, surface, own));
        const GLuint texture = texture_of(source);
        const EGLImageKHR image = image_of(source);
        image_target_texture(GL_TEXTURE_2D, image);
        for (int step : order) {
            if (eglGetCurrentContext() == own) glClear(GL_COLOR_BUFFER_BIT);
            switch (step) {
                case 0:
                    EXPECT_TRUE(destroy_image(display, image));
                    break;
                case 1:
                    glDeleteTextures(1, &texture);
                    break;
                case 2:
                    EXPECT_TRUE(eglDestroySurface(display, surface));
                    break;
                case 3:
                    EXPECT_EQ(screen_destroy_pixmap(source.pixmap) | screen_destroy_pixmap(target.pixmap), 0);
                    break;
                case 4:
                    EXPECT_TRUE(eglDestroyContext(display, own));
                    break;
            }
        }
        make_nothing_current();
        ASSERT_TRUE(live() == before) << ::testing::PrintToString(order);
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(Egl, ImagesHoldTheirMemoryAndTexturesTheirImages) {
    const Picture source = make_picture(5, 5), target = make_picture(5, 5);
    surface_of(target);
    const GLuint texture = texture_of(source);  // its image is gone already
    use_tint();
    fill(source, 72);
    const bytes expected = pixels(source);
    EXPECT_EQ(screen_destroy_pixmap(source.pixmap), 0);
    const int held = live().frames;
    EXPECT_EQ(drawn(target), expected);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 1, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    EXPECT_EQ(live().frames, held - 1);
    glDeleteTextures(1, &texture);
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
    surface_of(picture);
    const EGLint attributes[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
    const std::function<bool()> attempts[] = {
        [&] {
            EGLSurface made = eglCreateWindowSurface(display, config, window, nullptr);
            return made && eglDestroySurface(display, made);
        },
        [&] {
            EGLContext made = eglCreateContext(display, config, EGL_NO_CONTEXT, attributes);
            return made && eglDestroyContext(display, made);
        },
        [&] {
            EGLImageKHR made =
                create_image(display, EGL_NO_CONTEXT, EGL_NATIVE_PIXMAP_KHR, picture.pixmap, nullptr);
            return made && destroy_image(display, made);
        },
        [&] {
            EGLint count;
            return eglChooseConfig(display, nullptr, nullptr, 0, &count) != EGL_FALSE;
        },
    };
    const ImportHook failing = hook(failing_new, "_Znwm", "libEGL_screen.so");
    const ImportHook failing_on_32_bits = hook(failing_new, "_Znwj", "libEGL_screen.so");
    ASSERT_TRUE(failing.bound() || failing_on_32_bits.bound());
    const int frames = live().frames;
    for (const auto& attempt : attempts) {
        int failures = 0;
        for (int until = 0;; ++until, ++failures) {
            allocations_until_failure = until;
            if (attempt()) break;
            EXPECT_EQ(eglGetError(), EGL_BAD_ALLOC);
            EXPECT_EQ(live().frames, frames);
            ASSERT_LT(failures, 50);
        }
        EXPECT_GT(failures, 0);
    }
    allocations_until_failure = -1;
}

}  // namespace
