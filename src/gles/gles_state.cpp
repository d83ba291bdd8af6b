// The GLES state of a context: one display, one configuration, one GLES 2 context.
#include "gles/gles_state.hpp"

#include <cerrno>
#include <cstdlib>

#include "base/guard.hpp"

namespace {

// clang-format off
constexpr EGLint wanted_config[] = {
    EGL_RED_SIZE, 8,
    EGL_GREEN_SIZE, 8,
    EGL_BLUE_SIZE, 8,
    EGL_ALPHA_SIZE, 8,
    EGL_DEPTH_SIZE, 8,
    EGL_SURFACE_TYPE, EGL_PIXMAP_BIT,
    EGL_RENDERABLE_TYPE, EGL_OPENGL_ES2_BIT,
    EGL_NONE,
};
// clang-format on

constexpr EGLint context_attributes[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};

// A configuration whose samples cannot be asked for counts as one without multisampling.
EGLint samples_of(EGLDisplay display, EGLConfig config) {
    EGLint samples = 0;
    eglGetConfigAttrib(display, config, EGL_SAMPLES, &samples);
    return samples;
}

// The last match without multisampling, or else the first match.
int choose_config(EGLDisplay display, EGLConfig& chosen) {
    EGLint available = 0;
    if (!eglGetConfigs(display, nullptr, 0, &available)) return EINVAL;
    auto configs = kel::make_records<EGLConfig>(static_cast<std::size_t>(available));
    if (!configs) return ENOMEM;
    EGLint matches = 0;
    if (!eglChooseConfig(display, wanted_config, configs.get(), available, &matches) || matches < 1)
        return EINVAL;

    chosen = configs[0];
    for (EGLint i = 0; i < matches; ++i) {
        const EGLConfig config = configs[static_cast<std::size_t>(i)];
        if (samples_of(display, config) == 0) chosen = config;
    }
    return 0;
}

}  // namespace

int kel_gles_init(kel_context* context, EGLDisplay display) {
    if (!context) return EINVAL;
    if (context->gles) return 0;
    auto state = kel::make_record<kel_gles_state>();
    if (!state) return ENOMEM;
    state->display = display;
    if (!eglInitialize(display, nullptr, nullptr)) return EINVAL;
    if (const int error = choose_config(display, state->config)) return error;
    state->context = eglCreateContext(display, state->config, EGL_NO_CONTEXT, context_attributes);
    if (state->context == EGL_NO_CONTEXT) return EINVAL;
    context->gles = state.release();
    return 0;
}

void kel_gles_deinit(kel_context* context) {
    if (!context || !context->gles) return;
    const kel_gles_state& state = *context->gles;
    eglMakeCurrent(state.display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    eglDestroyContext(state.display, state.context);
    free(context->gles);
    context->gles = nullptr;
}

EGLDisplay kel_gles_get_egl_display(const kel_context* context) {
    return context && context->gles ? context->gles->display : EGL_NO_DISPLAY;
}

EGLContext kel_gles_get_egl_context(const kel_context* context) {
    return context && context->gles ? context->gles->context : EGL_NO_CONTEXT;
}

EGLConfig kel_gles_get_egl_config(const kel_context* context) {
    return context && context->gles ? context->gles->config : nullptr;
}

EGLBoolean kel_gles_make_current(kel_context* context, EGLSurface surface) {
    if (!context || !context->gles || !surface) return EGL_FALSE;
    const kel_gles_state& state = *context->gles;
    return eglMakeCurrent(state.display, surface, surface, state.context);
}
