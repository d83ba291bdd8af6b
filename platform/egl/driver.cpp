#include "egl/driver.hpp"

namespace platform::egl {

driver_functions driver;

bool load_driver_functions(void* (*get_proc_address)(const char*)) {
#define PLATFORM_EGL_LOAD(name) \
    driver.name = reinterpret_cast<decltype(driver.name)>(get_proc_address(#name));
#define PLATFORM_EGL_LOAD_OR_FAIL(name) \
    PLATFORM_EGL_LOAD(name)             \
    if (!driver.name) return false;
    PLATFORM_EGL_OPTIONAL_FUNCTIONS(PLATFORM_EGL_LOAD)
    PLATFORM_EGL_REQUIRED_FUNCTIONS(PLATFORM_EGL_LOAD_OR_FAIL)
    return true;
}

}  // namespace platform::egl
