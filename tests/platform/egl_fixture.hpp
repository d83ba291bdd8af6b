// A GLES 2 context over Screen, pixmaps to draw from and into, and the count of what is left.
#pragma once

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>

#include "screen_fixture.hpp"
#include "support/gles.hpp"

// A pixmap with its memory.
struct Picture {
    screen_pixmap_t pixmap;
    kel_test::PixelRows rows;
};

class Egl : public Screen {
  protected:
    void SetUp() override;
    void TearDown() override;

    Picture make_picture(int width, int height, int format = SCREEN_FORMAT_RGBA8888);
    EGLSurface surface_of(const Picture& picture);  // current afterwards
    GLuint texture_of(const Picture& picture);      // bound afterwards; its image is destroyed at once
    EGLImageKHR image_of(const Picture& picture);
    EGLContext make_context(EGLContext share = EGL_NO_CONTEXT);
    void make_nothing_current() { eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT); }

    EGLDisplay display = EGL_NO_DISPLAY;
    EGLConfig config = nullptr;
    EGLContext gles = EGL_NO_CONTEXT;
    PFNEGLCREATEIMAGEKHRPROC create_image;
    PFNEGLDESTROYIMAGEKHRPROC destroy_image;
    PFNGLEGLIMAGETARGETTEXTURE2DOESPROC image_target_texture;
};
