#include "egl/replacements.hpp"

#include <string_view>

namespace platform::egl {
namespace {

struct replacement {
    std::string_view name;
    void* function;
};

// The types are checked against the driver's table.
template <typename Function>
replacement replace(const char* name, Function driver_functions::*, Function function) {
    return {name, reinterpret_cast<void*>(function)};
}
#define REPLACE(name, function) replace(#name, &driver_functions::name, &(function))

const replacement* table(std::size_t& count) {
    static const replacement rows[] = {
        REPLACE(eglChooseConfig, choose_config),
        REPLACE(eglCreateContext, create_context),
        REPLACE(eglCreateImage, create_image),
        REPLACE(eglCreateImageKHR, create_image_khr),
        REPLACE(eglCreateSync, create_sync),
        REPLACE(eglCreateSyncKHR, create_sync_khr),
        REPLACE(eglDestroyContext, destroy_context),
        REPLACE(eglDestroyImage, destroy_image),
        REPLACE(eglDestroyImageKHR, destroy_image_khr),
        REPLACE(eglDestroySurface, destroy_surface),
        REPLACE(eglGetConfigAttrib, get_config_attrib),
        REPLACE(eglMakeCurrent, make_current),
        REPLACE(eglQueryString, query_string),
        REPLACE(eglReleaseThread, release_thread),
        REPLACE(eglSwapBuffers, swap_buffers),
        REPLACE(eglTerminate, terminate),
        REPLACE(eglWaitClient, wait_client),
        REPLACE(eglWaitGL, wait_gl),
        REPLACE(glActiveTexture, active_texture),
        REPLACE(glClear, clear),
        REPLACE(glCompressedTexImage2D, compressed_tex_image_2d),
        REPLACE(glCopyTexImage2D, copy_tex_image_2d),
        REPLACE(glCopyTexSubImage2D, copy_tex_sub_image_2d),
        REPLACE(glDeleteTextures, delete_textures),
        REPLACE(glDrawArrays, draw_arrays),
        REPLACE(glDrawElements, draw_elements),
        REPLACE(glEGLImageTargetTexture2DOES, image_target_texture_2d),
        REPLACE(glFinish, finish),
        REPLACE(glGenerateMipmap, generate_mipmap),
        REPLACE(glReadPixels, read_pixels),
        REPLACE(glTexImage2D, tex_image_2d),
        REPLACE(glTexSubImage2D, tex_sub_image_2d),
        {"eglCreatePixmapSurface", reinterpret_cast<void*>(&create_pixmap_surface)},
        {"eglCreateWindowSurface", reinterpret_cast<void*>(&create_window_surface)},
    };
    count = std::size(rows);
    return rows;
}

}  // namespace

void* find_replacement(const char* name) {
    std::size_t count = 0;
    const replacement* rows = table(count);
    for (const replacement* row = rows; row != rows + count; ++row) {
        if (row->name == name) return row->function;
    }
    return nullptr;
}

}  // namespace platform::egl
