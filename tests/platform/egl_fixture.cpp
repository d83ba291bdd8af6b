#include "egl_fixture.hpp"

using namespace kel_test;

namespace {

template <typename Function>
void load(Function& function, const char* name) {
    function = reinterpret_cast<Function>(eglGetProcAddress(name));
    ASSERT_TRUE(function) << name;
}

}  // namespace

void Egl::SetUp() {
    Screen::SetUp();
    display = open_display();
    const EGLint wanted[] = {EGL_RED_SIZE,  8, EGL_GREEN_SIZE,   8,
                             EGL_BLUE_SIZE, 8, EGL_ALPHA_SIZE,   8,
                             EGL_SAMPLES,   0, EGL_SURFACE_TYPE, EGL_PIXMAP_BIT | EGL_WINDOW_BIT,
                             EGL_NONE};
    EGLint count = 0;
    ASSERT_TRUE(eglChooseConfig(display, wanted, &config, 1, &count));
    ASSERT_EQ(count, 1);
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

EGLContext Egl::make_context(EGLContext share) {
    const EGLint attributes[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
    EGLContext made = eglCreateContext(display, config, share, attributes);
    EXPECT_NE(made, EGL_NO_CONTEXT);
    return made;
}

Picture Egl::make_picture(int width, int height, int format) {
    Picture picture{make_pixmap(format, width, height), {nullptr, width, height, 0}};
    screen_buffer_t buffer = buffer_of(picture.pixmap);
    screen_get_buffer_property_pv(buffer, SCREEN_PROPERTY_POINTER, &picture.rows.pointer);
    screen_get_buffer_property_iv(buffer, SCREEN_PROPERTY_STRIDE, &picture.rows.stride);
    if (format == SCREEN_FORMAT_RGB565) picture.rows.bytes = 2;
    fill(picture.rows, 0);
    return picture;
}

EGLSurface Egl::surface_of(const Picture& picture) {
    EGLSurface surface = eglCreatePixmapSurface(display, config, picture.pixmap, nullptr);
    EXPECT_NE(surface, EGL_NO_SURFACE);
    EXPECT_TRUE(eglMakeCurrent(display, surface, surface, gles));
    glViewport(0, 0, picture.rows.width, picture.rows.height);
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
    for (GLenum name : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER})
        glTexParameteri(GL_TEXTURE_2D, name, GL_NEAREST);
    for (GLenum name : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T})
        glTexParameteri(GL_TEXTURE_2D, name, GL_CLAMP_TO_EDGE);
    EGLImageKHR image = image_of(picture);
    image_target_texture(GL_TEXTURE_2D, image);
    EXPECT_TRUE(destroy_image(display, image));
    return texture;
}
