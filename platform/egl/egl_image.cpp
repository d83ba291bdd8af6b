// Images made of pixmaps. Images of other things are the driver's.
#include "egl/error.hpp"
#include "egl/records.hpp"
#include "egl/replacements.hpp"
#include "egl/transfer.hpp"

namespace platform::egl {
namespace {

// EGL_IMAGE_PRESERVED may be asked for: the pixels are always kept.
template <typename Attribute>
bool accepts(const Attribute* attributes) {
    for (; attributes && *attributes != EGL_NONE; attributes += 2) {
        if (attributes[0] != EGL_IMAGE_PRESERVED_KHR) return false;
    }
    return true;
}

template <typename Attribute>
EGLImage create_pixmap_image(EGLDisplay display, EGLContext context, EGLClientBuffer pixmap,
                             const Attribute* attributes) {
    if (!driver.eglQueryString(display, EGL_VERSION)) return EGL_NO_IMAGE;  // no display, or not initialised
    return or_bad_alloc([&]() -> EGLImage {
        held_frame memory(static_cast<screen_pixmap_t>(static_cast<void*>(pixmap)));
        if (context != EGL_NO_CONTEXT || !accepts(attributes) || !memory || !can_be_texture(memory->format))
            return fail(EGL_BAD_PARAMETER);
        const EGLImage handle = next_image_handle();
        images().add(handle, std::make_shared<image_record>(image_record{display, std::move(memory)}));
        succeed();
        return handle;
    });
}

template <typename Destroy>
EGLBoolean destroy(EGLDisplay display, EGLImage handle, Destroy of_driver) {
    if (!is_image_handle(handle)) return of_driver ? of_driver(display, handle) : fail(EGL_BAD_PARAMETER);
    const auto image = images().find(handle);
    if (!image || image->display != display) return fail(EGL_BAD_PARAMETER);
    images().remove(handle);
    return succeed();
}

}  // namespace

EGLImage create_image(EGLDisplay display, EGLContext context, EGLenum target, EGLClientBuffer buffer,
                      const EGLAttrib* attributes) {
    if (target == EGL_NATIVE_PIXMAP_KHR) return create_pixmap_image(display, context, buffer, attributes);
    if (!driver.eglCreateImage) return fail(EGL_BAD_PARAMETER);
    return driver.eglCreateImage(display, context, target, buffer, attributes);
}

EGLImageKHR create_image_khr(EGLDisplay display, EGLContext context, EGLenum target, EGLClientBuffer buffer,
                             const EGLint* attributes) {
    if (target == EGL_NATIVE_PIXMAP_KHR) return create_pixmap_image(display, context, buffer, attributes);
    if (!driver.eglCreateImageKHR) return fail(EGL_BAD_PARAMETER);
    return driver.eglCreateImageKHR(display, context, target, buffer, attributes);
}

EGLBoolean destroy_image(EGLDisplay display, EGLImage image) {
    return destroy(display, image, driver.eglDestroyImage);
}

EGLBoolean destroy_image_khr(EGLDisplay display, EGLImageKHR image) {
    return destroy(display, image, driver.eglDestroyImageKHR);
}

}  // namespace platform::egl
