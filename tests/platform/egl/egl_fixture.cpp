#include "egl_fixture.hpp"

using namespace kel_test;

void Egl::SetUp() {
    Screen::SetUp();
    display = open_display();
    const EGLint bits = EGL_PIXMAP_BIT | EGL_WINDOW_BIT;
    const EGLint wanted[] = {EGL_RED_SIZE, 8, EGL_ALPHA_SIZE,   8,    EGL_BUFFER_SIZE, 32,
                             EGL_SAMPLES,  0, EGL_SURFACE_TYPE, bits, EGL_NONE};
    EGLint count = 0;
    ASSERT_TRUE(eglChooseConfig(display, wanted, &config, 1, &count) && count == 1);
    gles = make_context();
    load(create_image, "eglCreateImageKHR");
    load(destroy_image, "eglDestroyImageKHR");
    load(image_target_texture, "glEGLImageTargetTexture2DOES");
}

void Egl::TearDown() {
    EXPECT_EQ(glGetError(), GLenum{GL_NO_ERROR});
    make_nothing_current();
    eglTerminate(display);
    Screen::TearDown();
}

void Egl::make_nothing_current() {
    EXPECT_TRUE(eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT));
}

EGLContext Egl::make_context(EGLContext share) {
    const EGLint attributes[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
    EGLContext made = eglCreateContext(display, config, share, attributes);
    EXPECT_NE(made, EGL_NO_CONTEXT);
    return made;
}

Picture Egl::make_picture(int width, int height, int format) {
    Picture picture{{nullptr, width, height, 0}, make_pixmap(format, width, height)};
    screen_buffer_t buffer = buffer_of(picture.pixmap);
    screen_get_buffer_property_pv(buffer, SCREEN_PROPERTY_POINTER, &picture.pointer);
    screen_get_buffer_property_iv(buffer, SCREEN_PROPERTY_STRIDE, &picture.stride);
    if (format == SCREEN_FORMAT_RGB565) picture.bytes_per_pixel = 2;
    fill(picture, 0);
    return picture;
}

EGLSurface Egl::surface_of(const Picture& picture, EGLContext with) {
    EGLSurface surface = eglCreatePixmapSurface(display, config, picture.pixmap, nullptr);
    EXPECT_NE(surface, EGL_NO_SURFACE);
    EXPECT_TRUE(eglMakeCurrent(display, surface, surface, with ? with : gles));
    glViewport(0, 0, picture.width, picture.height);
    return surface;
}

EGLImageKHR Egl::image_of(const Picture& picture) {
    EGLImageKHR image = create_image(display, EGL_NO_CONTEXT, EGL_NATIVE_PIXMAP_KHR, picture.pixmap, nullptr);
    EXPECT_NE(image, EGL_NO_IMAGE_KHR);
    EXPECT_EQ(eglGetError(), EGL_SUCCESS);
    return image;
}

GLuint Egl::texture_of(const Picture& picture) {
    GLuint texture = 0;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    for (GLenum name : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T})
        glTexParameteri(GL_TEXTURE_2D, name, GL_CLAMP_TO_EDGE);
    EGLImageKHR image = image_of(picture);
    image_target_texture(GL_TEXTURE_2D, image);
    EXPECT_TRUE(destroy_image(display, image));
    return texture;
}
