// Surfaces of pixmaps and windows.
#include <vector>

#include "egl/coherence.hpp"
#include "egl/error.hpp"
#include "egl/replacements.hpp"
#include "egl/transfer.hpp"

namespace platform::egl {
namespace {

EGLint config_attribute(EGLDisplay display, EGLConfig config, EGLint attribute) {
    EGLint value = 0;
    driver.eglGetConfigAttrib(display, config, attribute, &value);
    return value;
}

bool has_8_bits_each(EGLDisplay display, EGLConfig config) {
    return config_attribute(display, config, EGL_RED_SIZE) == 8 &&
           config_attribute(display, config, EGL_GREEN_SIZE) == 8 &&
           config_attribute(display, config, EGL_BLUE_SIZE) == 8;
}

// The client's attributes that pbuffers know too, and the size.
std::vector<EGLint> pbuffer_attributes(const EGLint* wanted, const platform_screen_frame& frame) {
    std::vector<EGLint> list{EGL_WIDTH, frame.width, EGL_HEIGHT, frame.height};
    for (; wanted && *wanted != EGL_NONE; wanted += 2) {
        if (wanted[0] != EGL_RENDER_BUFFER) list.insert(list.end(), {wanted[0], wanted[1]});
    }
    list.push_back(EGL_NONE);
    return list;
}

// A window keeps its memory to itself: which buffer comes next changes with every swap.
EGLSurface create_surface(EGLDisplay display, EGLConfig config, const EGLint* attributes, held_frame memory,
                          screen_window_t window) {
    if (!driver.eglQueryString(display, EGL_VERSION)) return EGL_NO_SURFACE;
    if (!memory) return fail(window ? EGL_BAD_NATIVE_WINDOW : EGL_BAD_NATIVE_PIXMAP);
    EGLint id;
    if (!driver.eglGetConfigAttrib(display, config, EGL_CONFIG_ID, &id)) return EGL_NO_SURFACE;
    if (!can_be_surface(memory->format) || !has_8_bits_each(display, config)) return fail(EGL_BAD_MATCH);

    const bool multisampled = config_attribute(display, config, EGL_SAMPLES) > 0;
    auto record = std::make_shared<surface_record>(
        surface_record{display, EGL_NO_SURFACE, window, {}, memory->width, memory->height, multisampled});
    const std::vector<EGLint> list = pbuffer_attributes(attributes, *memory);
    record->handle = driver.eglCreatePbufferSurface(display, config, list.data());
    if (!record->handle) return EGL_NO_SURFACE;
    if (!window) record->pixmap = std::move(memory);
    try {
        surfaces().add(record->handle, record);
    } catch (const std::bad_alloc&) {
        driver.eglDestroySurface(display, record->handle);
        throw;
    }
    return record->handle;
}

}  // namespace

EGLSurface create_pixmap_surface(EGLDisplay display, EGLConfig config, EGLNativePixmapType pixmap,
                                 const EGLint* attributes) {
    return or_bad_alloc([&] {
        held_frame memory(static_cast<screen_pixmap_t>(pixmap));
        return create_surface(display, config, attributes, std::move(memory), nullptr);
    });
}

EGLSurface create_window_surface(EGLDisplay display, EGLConfig config, EGLNativeWindowType window,
                                 const EGLint* attributes) {
    return or_bad_alloc([&] {
        const auto screen_window = static_cast<screen_window_t>(window);
        return create_surface(display, config, attributes, held_frame(screen_window), screen_window);
    });
}

EGLBoolean destroy_surface(EGLDisplay display, EGLSurface surface) {
    if (const auto record = surfaces().find(surface); record && record == current().draw) settle();
    const EGLBoolean destroyed = driver.eglDestroySurface(display, surface);
    if (destroyed) surfaces().remove(surface);
    return destroyed;
}

EGLBoolean swap_buffers(EGLDisplay display, EGLSurface surface) {
    const auto& draw = current().draw;
    const bool current_window = draw && draw->handle == surface && draw->window;
    settle();
    if (!driver.eglSwapBuffers(display, surface)) return EGL_FALSE;
    if (current_window && platform_screen_advance_window(draw->window) != 0)
        return fail(EGL_BAD_NATIVE_WINDOW);
    return EGL_TRUE;
}

}  // namespace platform::egl
