// The functions of the EGL vendor behind this one: the machine's own, which renders.
#pragma once

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>
#include <GLES3/gl3.h>

namespace platform::egl {

// clang-format off
// Without these nothing can be done.
#define PLATFORM_EGL_REQUIRED_FUNCTIONS(X)                                                                 \
    X(eglChooseConfig) X(eglCreateContext) X(eglCreatePbufferSurface) X(eglDestroyContext)                 \
    X(eglDestroySurface) X(eglGetConfigAttrib) X(eglMakeCurrent) X(eglQueryString) X(eglReleaseThread)     \
    X(eglSwapBuffers) X(eglTerminate) X(eglWaitClient) X(eglWaitGL) X(glActiveTexture) X(glBindBuffer)     \
    X(glBindFramebuffer) X(glBindTexture) X(glBlitFramebuffer) X(glClear) X(glClearColor) X(glColorMask)   \
    X(glCompressedTexImage2D) X(glCopyTexImage2D) X(glCopyTexSubImage2D) X(glDeleteFramebuffers)           \
    X(glDeleteTextures) X(glDisable) X(glDrawArrays) X(glDrawElements) X(glEnable) X(glFinish)             \
    X(glFramebufferTexture2D) X(glGenFramebuffers) X(glGenTextures) X(glGenerateMipmap) X(glGetBooleanv)   \
    X(glGetFloatv) X(glGetFramebufferAttachmentParameteriv) X(glGetIntegerv) X(glGetString)                \
    X(glIsEnabled) X(glPixelStorei) X(glReadPixels) X(glTexImage2D) X(glTexParameteri)                     \
    X(glTexSubImage2D)

// These serve objects that are not Screen's; null where the driver has none.
#define PLATFORM_EGL_OPTIONAL_FUNCTIONS(X)                                                                 \
    X(eglCreateImage) X(eglCreateImageKHR) X(eglCreateSync) X(eglCreateSyncKHR) X(eglDestroyImage)         \
    X(eglDestroyImageKHR) X(eglQueryDevicesEXT) X(glEGLImageTargetTexture2DOES)
// clang-format on

struct driver_functions {
// NOLINTNEXTLINE(bugprone-macro-parentheses): a declaration, not an expression
#define PLATFORM_EGL_DECLARE(name) decltype(&::name) name;
    PLATFORM_EGL_REQUIRED_FUNCTIONS(PLATFORM_EGL_DECLARE)
    PLATFORM_EGL_OPTIONAL_FUNCTIONS(PLATFORM_EGL_DECLARE)
#undef PLATFORM_EGL_DECLARE
};

// Filled before libglvnd can call anything else here.
extern driver_functions driver;

// False when a required function is missing.
bool load_driver_functions(void* (*get_proc_address)(const char*));

}  // namespace platform::egl
