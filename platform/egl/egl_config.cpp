// Configurations and extensions: what the driver can do with a pbuffer can be done with Screen's objects.
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "egl/error.hpp"
#include "egl/replacements.hpp"

namespace platform::egl {
namespace {

constexpr EGLint native_bits = EGL_PIXMAP_BIT | EGL_WINDOW_BIT;

EGLint with_pbuffers(EGLint surface_type) {
    if (surface_type == EGL_DONT_CARE || !(surface_type & native_bits)) return surface_type;
    return (surface_type & ~native_bits) | EGL_PBUFFER_BIT;
}

bool contains_word(std::string_view list, std::string_view word) {
    return (' ' + std::string(list) + ' ').find(' ' + std::string(word) + ' ') != std::string::npos;
}

// The driver's list with what is added here; the text stays for as long as the process lives.
const char* extended(EGLDisplay display, const char* extensions) {
    static std::mutex lock;
    static auto* texts = new std::map<std::pair<EGLDisplay, std::string>, std::string>;
    std::lock_guard hold(lock);
    auto [text, added] = texts->try_emplace({display, extensions}, extensions);
    if (added) {
        for (const char* name : {"EGL_KHR_image", "EGL_KHR_image_base", "EGL_KHR_image_pixmap"}) {
            if (!contains_word(text->second, name)) text->second.append(" ").append(name);
        }
    }
    return text->second.c_str();
}

}  // namespace

EGLBoolean choose_config(EGLDisplay display, const EGLint* attributes, EGLConfig* configs, EGLint size,
                         EGLint* count) {
    return or_bad_alloc([&]() -> EGLBoolean {
        std::vector<EGLint> list;
        bool typed = false;
        for (const EGLint* a = attributes; a && *a != EGL_NONE; a += 2) {
            const bool type = a[0] == EGL_SURFACE_TYPE;
            typed = typed || type;
            list.insert(list.end(), {a[0], type ? with_pbuffers(a[1]) : a[1]});
        }
        // A list that asks for no surface type means windows.
        if (!typed) list.insert(list.end(), {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT});
        list.push_back(EGL_NONE);
        return driver.eglChooseConfig(display, list.data(), configs, size, count);
    });
}

EGLBoolean get_config_attrib(EGLDisplay display, EGLConfig config, EGLint attribute, EGLint* value) {
    const EGLBoolean known = driver.eglGetConfigAttrib(display, config, attribute, value);
    if (known && attribute == EGL_SURFACE_TYPE && (*value & EGL_PBUFFER_BIT)) *value |= native_bits;
    return known;
}

const char* query_string(EGLDisplay display, EGLint name) {
    const char* text = driver.eglQueryString(display, name);
    if (!text || name != EGL_EXTENSIONS || display == EGL_NO_DISPLAY) return text;
    return or_bad_alloc([&] { return extended(display, text); });
}

}  // namespace platform::egl
