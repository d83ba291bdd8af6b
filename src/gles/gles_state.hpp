// What a context has of EGL.
#pragma once

#include <kel.h>

struct kel_gles_state {
    EGLDisplay display;  // the client's
    EGLContext context;  // owned
    EGLConfig config;    // of the context and of every surface
};

#if UINTPTR_MAX == UINT32_MAX
static_assert(offsetof(kel_gles_state, display) == 0 && offsetof(kel_gles_state, context) == 4 &&
              offsetof(kel_gles_state, config) == 8 && sizeof(kel_gles_state) == 12);
#endif
