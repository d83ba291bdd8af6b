// A GLES 2 context over Screen, pixmaps to draw from and into, and the count of what is left.
#pragma once

#include "platform/screen/screen_fixture.hpp"
#include "support/gles.hpp"

#include <GLES2/gl2ext.h>

// A pixmap with its memory.
struct Picture : kel_test::PixelRows {
    screen_pixmap_t pixmap;
};

class Egl : public Screen {
  protected:
    void SetUp() override;
    void TearDown() override;

    EGLContext make_context(EGLContext share = EGL_NO_CONTEXT);
    Picture make_picture(int width, int height, int format = SCREEN_FORMAT_RGBA8888);
    EGLSurface surface_of(const Picture& picture, EGLContext with = EGL_NO_CONTEXT);  // current afterwards
    EGLImageKHR image_of(const Picture& picture);
    GLuint texture_of(const Picture& picture);  // bound afterwards; its image is destroyed at once
    void make_nothing_current();

    EGLDisplay display = EGL_NO_DISPLAY;
    EGLConfig config = nullptr;
    EGLContext gles = EGL_NO_CONTEXT;
    PFNEGLCREATEIMAGEKHRPROC create_image;
    PFNEGLDESTROYIMAGEKHRPROC destroy_image;
    PFNGLEGLIMAGETARGETTEXTURE2DOESPROC image_target_texture;
};

template <typename Function>
void load(Function& function, const char* name) {
    function = reinterpret_cast<Function>(eglGetProcAddress(name));
    ASSERT_TRUE(function) << name;
}

// The pixels after drawing the bound texture into the picture, which is current.
inline kel_test::bytes drawn(const Picture& target) {
    kel_test::draw_quad();
    glFinish();
    return pixels(target);
}
