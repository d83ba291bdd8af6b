// What eglGetError reports for the functions that are answered here. A call handed to the driver needs nothing:
// libglvnd asks the driver.
#pragma once

#include <EGL/egl.h>
#include <glvnd/libeglabi.h>

#include <new>

namespace platform::egl {

// libglvnd's services to its vendors.
inline const __EGLapiExports* libglvnd = nullptr;

inline EGLBoolean succeed() {
    libglvnd->setEGLError(EGL_SUCCESS);
    return EGL_TRUE;
}

// Any null handle, or EGL_FALSE.
struct failure {
    template <typename T>
    operator T*() const {
        return nullptr;
    }
    operator EGLBoolean() const { return EGL_FALSE; }
};

inline failure fail(EGLint error) {
    libglvnd->setEGLError(error);
    return {};
}

// The body's result; running out of memory in it is an EGL error.
template <typename Body>
auto or_bad_alloc(Body body) -> decltype(body()) {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return fail(EGL_BAD_ALLOC);
    }
}

}  // namespace platform::egl
