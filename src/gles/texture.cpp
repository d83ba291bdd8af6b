// Textures that show buffers without a copy: an EGL image around the buffer's pixmap is the texture's
// storage.
#include <cerrno>
#include <cstdlib>

#include "base/guard.hpp"
#include "gles/image_extensions.hpp"

namespace {

constexpr GLuint no_name = ~GLuint{0};

void drop_image(kel_texture& texture) {
    if (!texture.image) return;
    kel::loaded_image_extensions().destroy_image(texture.display, texture.image);
    texture.image = nullptr;
}

void drop_buffer(kel_texture& texture) {
    if (!texture.buffer) return;
    kel_release_buffer(texture.buffer);
    texture.buffer = nullptr;
}

void bind(kel_texture& texture) {
    if (texture.texture == no_name) glGenTextures(1, &texture.texture);
    glBindTexture(GL_TEXTURE_2D, texture.texture);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
}

}  // namespace

kel_texture* kel_gles_texture_from_slice(const kel_slice* slice) {
    if (!slice || !slice->buffer || !kel_gles_get_egl_display(slice->buffer->pool->context)) return nullptr;
    auto record = kel::make_record<kel_texture>();
    if (!record) return nullptr;
    record->texture = no_name;
    kel_texture* texture = record.release();
    if (kel_gles_retarget_texture(texture, slice) != 0) kel_gles_destroy_texture(&texture);
    return texture;
}

int kel_gles_retarget_texture(kel_texture* texture, const kel_slice* slice) {
    if (!texture || !slice) return EINVAL;
    kel_buffer* buffer = slice->buffer;
    if (buffer && buffer == texture->buffer) return 0;
    drop_image(*texture);
    drop_buffer(*texture);

    const kel::image_extensions extensions = kel::loaded_image_extensions();
    if (!buffer || !buffer->pixmap || !extensions) return EINVAL;
    if (kel_ref_buffer(buffer) != 0) return EINVAL;
    kel::scope_exit release([&] { kel_release_buffer(buffer); });
    bind(*texture);
    const EGLDisplay display = kel_gles_get_egl_display(buffer->pool->context);
    texture->image =
        extensions.create_image(display, EGL_NO_CONTEXT, EGL_NATIVE_PIXMAP_KHR, buffer->pixmap, nullptr);
    if (!texture->image) return EINVAL;
    texture->display = display;
    extensions.image_target_texture(GL_TEXTURE_2D, texture->image);
    release.dismiss();
    texture->buffer = buffer;
    return 0;
}

void kel_gles_destroy_texture(kel_texture** texture) {
    if (!texture || !*texture) return;
    kel_texture& record = **texture;
    if (record.texture != no_name) glDeleteTextures(1, &record.texture);
    drop_image(record);
    drop_buffer(record);
    free(*texture);
    *texture = nullptr;
}
