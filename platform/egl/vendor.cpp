// The vendor library that libglvnd loads: the driver with the Screen bridge in front of it.
#include <dlfcn.h>
#include <platform_export.h>

#include <cstdlib>

#include "egl/error.hpp"
#include "egl/replacements.hpp"

namespace platform::egl {
namespace {

decltype(__EGLapiImports::getProcAddress) driver_proc_address;
decltype(__EGLapiImports::getPlatformDisplay) driver_display;

// The machine's own vendor, by name or path.
const char* driver_name() {
    const char* name = std::getenv("SCREEN_EGL_DRIVER");
    return name && *name ? name : PLATFORM_EGL_DRIVER;
}

void* get_proc_address(const char* name) {
    void* replacement = find_replacement(name);
    return replacement ? replacement : driver_proc_address(name);
}

// Without a window system: where there is no surfaceless platform, the first device.
EGLDisplay default_display() {
    if (EGLDisplay display = driver_display(EGL_PLATFORM_SURFACELESS_MESA, nullptr, nullptr)) return display;
    EGLDeviceEXT device = nullptr;
    EGLint count = 0;
    if (!driver.eglQueryDevicesEXT || !driver.eglQueryDevicesEXT(1, &device, &count) || count < 1)
        return EGL_NO_DISPLAY;
    return driver_display(EGL_PLATFORM_DEVICE_EXT, device, nullptr);
}

EGLDisplay get_platform_display(EGLenum platform, void* native, const EGLAttrib* attributes) {
    return platform == EGL_NONE ? default_display() : driver_display(platform, native, attributes);
}

}  // namespace
}  // namespace platform::egl

extern "C" PLATFORM_API EGLBoolean __egl_Main(uint32_t version, const __EGLapiExports* exports,
                                              __EGLvendorInfo* vendor, __EGLapiImports* imports) {
    using namespace platform::egl;
    void* library = dlopen(driver_name(), RTLD_NOW | RTLD_LOCAL);
    if (!library) return EGL_FALSE;
    const auto entry = reinterpret_cast<__PFNEGLMAINPROC>(dlsym(library, __EGL_MAIN_PROTO_NAME));
    if (!entry || !entry(version, exports, vendor, imports) ||
        !load_driver_functions(imports->getProcAddress))
        return EGL_FALSE;
    libglvnd = exports;
    driver_proc_address = imports->getProcAddress;
    driver_display = imports->getPlatformDisplay;
    imports->getProcAddress = get_proc_address;
    imports->getPlatformDisplay = get_platform_display;
    // A driver that patches libglvnd's entry points would be called past the bridge.
    imports->isPatchSupported = nullptr;
    imports->initiatePatch = nullptr;
    imports->releasePatch = nullptr;
    return EGL_TRUE;
}
