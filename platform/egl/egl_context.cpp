// Contexts, what is current on a thread, and the calls that wait for drawing.
#include "egl/coherence.hpp"
#include "egl/error.hpp"
#include "egl/replacements.hpp"

namespace platform::egl {

EGLContext create_context(EGLDisplay display, EGLConfig config, EGLContext share, const EGLint* attributes) {
    return or_bad_alloc([&]() -> EGLContext {
        const auto shared = contexts().find(share);
        auto group = shared ? shared->group : std::make_shared<share_group>();
        auto record =
            std::make_shared<context_record>(context_record{display, EGL_NO_CONTEXT, std::move(group)});
        record->handle = driver.eglCreateContext(display, config, share, attributes);
        if (!record->handle) return EGL_NO_CONTEXT;
        try {
            contexts().add(record->handle, record);
        } catch (const std::bad_alloc&) {
            driver.eglDestroyContext(display, record->handle);
            throw;
        }
        return record->handle;
    });
}

EGLBoolean destroy_context(EGLDisplay display, EGLContext context) {
    const EGLBoolean destroyed = driver.eglDestroyContext(display, context);
    if (destroyed) contexts().remove(context);
    return destroyed;
}

EGLBoolean make_current(EGLDisplay display, EGLSurface draw, EGLSurface read, EGLContext context) {
    settle();
    if (!driver.eglMakeCurrent(display, draw, read, context)) return EGL_FALSE;
    current() = {contexts().find(context), surfaces().find(draw), surfaces().find(read), draw, read};
    return EGL_TRUE;
}

EGLBoolean release_thread() {
    settle();
    current() = {};
    return driver.eglReleaseThread();
}

// What is current somewhere lives until it is not.
EGLBoolean terminate(EGLDisplay display) {
    if (!driver.eglTerminate(display)) return EGL_FALSE;
    surfaces().remove_display(display);
    contexts().remove_display(display);
    images().remove_display(display);
    return EGL_TRUE;
}

EGLBoolean wait_client() {
    settle();
    return driver.eglWaitClient();
}

EGLBoolean wait_gl() {
    settle();
    return driver.eglWaitGL();
}

// Whoever waits for a fence reads the memory next, perhaps on a thread that cannot store it.
EGLSync create_sync(EGLDisplay display, EGLenum type, const EGLAttrib* attributes) {
    if (!driver.eglCreateSync) return fail(EGL_BAD_DISPLAY);
    if (type == EGL_SYNC_FENCE) settle();
    return driver.eglCreateSync(display, type, attributes);
}

EGLSyncKHR create_sync_khr(EGLDisplay display, EGLenum type, const EGLint* attributes) {
    if (!driver.eglCreateSyncKHR) return fail(EGL_BAD_DISPLAY);
    if (type == EGL_SYNC_FENCE_KHR) settle();
    return driver.eglCreateSyncKHR(display, type, attributes);
}

}  // namespace platform::egl
