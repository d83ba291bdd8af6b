// Surfaces that draw into the memory of pools and buffers.
#include "base/lock.hpp"
#include "gles/image_extensions.hpp"

namespace {

bool is_window_pool(const kel_buffer_pool& pool) {
    return kel::read_unlocked(pool.flags) & KEL_POOL_WINDOW;
}

// Leaves the surface current on the calling thread; destroys one that cannot be used with image textures.
EGLSurface make_usable(kel_context* context, EGLSurface surface) {
    if (surface == EGL_NO_SURFACE) return EGL_NO_SURFACE;
    kel_gles_make_current(context, surface);
    if (kel::kel_gles_load_image_extensions(*context->gles) == 0) return surface;
    const EGLDisplay display = context->gles->display;
    eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    eglDestroySurface(display, surface);
    return EGL_NO_SURFACE;
}

}  // namespace

EGLSurface kel_gles_create_window_surface(kel_context* context, kel_buffer_pool* pool) {
    if (!context || !context->gles || !pool) return EGL_NO_SURFACE;
    if (pool->format.type != KEL_BUFFER_VIDEO || !is_window_pool(*pool) || !pool->window)
        return EGL_NO_SURFACE;
    const kel_gles_state& state = *context->gles;
    return make_usable(context, eglCreateWindowSurface(state.display, state.config, pool->window, nullptr));
}

EGLSurface kel_gles_create_pixmap_surface(kel_context* context, kel_buffer* buffer) {
    if (!context || !context->gles || !buffer) return EGL_NO_SURFACE;
    const kel_buffer_pool& pool = *buffer->pool;
    if (pool.format.type != KEL_BUFFER_VIDEO || is_window_pool(pool) || !buffer->pixmap)
        return EGL_NO_SURFACE;
    const kel_gles_state& state = *context->gles;
    return make_usable(context, eglCreatePixmapSurface(state.display, state.config, buffer->pixmap, nullptr));
}
