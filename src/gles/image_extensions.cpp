#include "gles/image_extensions.hpp"

#include <cerrno>
#include <cstring>

#include "base/lock.hpp"

namespace {

// Shared by all contexts. Written at every creation of a surface, without a lock, always with the same
// values.
kel::image_extensions loaded;

bool lists(const char* extensions, const char* name) {
    return extensions && strstr(extensions, name);
}

bool lists(const GLubyte* extensions, const char* name) {
    return lists(reinterpret_cast<const char*>(extensions), name);
}

template <typename Function>
bool load(Function& function, const char* name) {
    function = reinterpret_cast<Function>(eglGetProcAddress(name));
    return function != nullptr;
}

}  // namespace

int kel::kel_gles_load_image_extensions(const kel_gles_state& state) {
    constexpr const char* of_egl[] = {"EGL_KHR_image", "EGL_KHR_gl_texture_2D_image"};
    for (const char* name : of_egl) {
        if (!lists(eglQueryString(state.display, EGL_EXTENSIONS), name)) return EINVAL;
    }
    if (!lists(glGetString(GL_EXTENSIONS), "GL_OES_EGL_image")) return EINVAL;

    image_extensions found;
    if (!load(found.create_image, "eglCreateImageKHR") || !load(found.destroy_image, "eglDestroyImageKHR") ||
        !load(found.image_target_texture, "glEGLImageTargetTexture2DOES"))
        return EINVAL;
    write_for_unlocked(loaded.create_image, found.create_image);
    write_for_unlocked(loaded.destroy_image, found.destroy_image);
    write_for_unlocked(loaded.image_target_texture, found.image_target_texture);
    return 0;
}

kel::image_extensions kel::loaded_image_extensions() {
    return {read_unlocked(loaded.create_image), read_unlocked(loaded.destroy_image),
            read_unlocked(loaded.image_target_texture)};
}
