// The functions that stand in for the driver's, under the standard names' signatures.
#pragma once

#include "egl/driver.hpp"

namespace platform::egl {

// The replacement for a function, or null where the driver's own serves.
void* find_replacement(const char* name);

// egl_config.cpp
EGLBoolean choose_config(EGLDisplay, const EGLint*, EGLConfig*, EGLint, EGLint*);
EGLBoolean get_config_attrib(EGLDisplay, EGLConfig, EGLint, EGLint*);
const char* query_string(EGLDisplay, EGLint);

// egl_surface.cpp
EGLSurface create_pixmap_surface(EGLDisplay, EGLConfig, EGLNativePixmapType, const EGLint*);
EGLSurface create_window_surface(EGLDisplay, EGLConfig, EGLNativeWindowType, const EGLint*);
EGLBoolean destroy_surface(EGLDisplay, EGLSurface);
EGLBoolean swap_buffers(EGLDisplay, EGLSurface);

// egl_context.cpp
EGLContext create_context(EGLDisplay, EGLConfig, EGLContext, const EGLint*);
EGLBoolean destroy_context(EGLDisplay, EGLContext);
EGLBoolean make_current(EGLDisplay, EGLSurface, EGLSurface, EGLContext);
EGLBoolean release_thread();
EGLBoolean terminate(EGLDisplay);
EGLBoolean wait_client();
EGLBoolean wait_gl();
EGLSync create_sync(EGLDisplay, EGLenum, const EGLAttrib*);
EGLSyncKHR create_sync_khr(EGLDisplay, EGLenum, const EGLint*);

// egl_image.cpp
EGLImage create_image(EGLDisplay, EGLContext, EGLenum, EGLClientBuffer, const EGLAttrib*);
EGLImageKHR create_image_khr(EGLDisplay, EGLContext, EGLenum, EGLClientBuffer, const EGLint*);
EGLBoolean destroy_image(EGLDisplay, EGLImage);
EGLBoolean destroy_image_khr(EGLDisplay, EGLImageKHR);

// gl_texture.cpp
void active_texture(GLenum);
void compressed_tex_image_2d(GLenum, GLint, GLenum, GLsizei, GLsizei, GLint, GLsizei, const void*);
void copy_tex_image_2d(GLenum, GLint, GLenum, GLint, GLint, GLsizei, GLsizei, GLint);
void copy_tex_sub_image_2d(GLenum, GLint, GLint, GLint, GLint, GLint, GLsizei, GLsizei);
void delete_textures(GLsizei, const GLuint*);
void generate_mipmap(GLenum);
void image_target_texture_2d(GLenum, GLeglImageOES);
void tex_image_2d(GLenum, GLint, GLint, GLsizei, GLsizei, GLint, GLenum, GLenum, const void*);
void tex_sub_image_2d(GLenum, GLint, GLint, GLint, GLsizei, GLsizei, GLenum, GLenum, const void*);

// gl_draw.cpp
void clear(GLbitfield);
void draw_arrays(GLenum, GLint, GLsizei);
void draw_elements(GLenum, GLsizei, GLenum, const void*);
void finish();
void read_pixels(GLint, GLint, GLsizei, GLsizei, GLenum, GLenum, void*);

}  // namespace platform::egl
