// Lets a program that links the platform use EGL over Screen without any set-up of its own.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <string>

namespace {

// libglvnd reads the variable at the first call of EGL; a choice that the user has made stays.
__attribute__((constructor)) void activate_egl_vendor() try {
    Dl_info self;
    if (!dladdr(reinterpret_cast<void*>(&activate_egl_vendor), &self) || !self.dli_fname) return;
    std::string path = self.dli_fname;
    path.erase(path.rfind('/') + 1);
    path += "kel/egl_screen.json";
    if (access(path.c_str(), R_OK) == 0) setenv("__EGL_VENDOR_LIBRARY_FILENAMES", path.c_str(), 0);
} catch (const std::exception&) {
    // Out of memory this early: EGL works without Screen's objects, and says so when it is given one.
}

}  // namespace
