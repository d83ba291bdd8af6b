// Textures: which of them are made of images, and what changes their pixels.
#include <algorithm>

#include "egl/coherence.hpp"
#include "egl/error.hpp"
#include "egl/gl_state.hpp"
#include "egl/replacements.hpp"
#include "egl/transfer.hpp"

namespace platform::egl {
namespace {

bool replaces_image(GLenum target, GLint level) {
    return target == GL_TEXTURE_2D && level == 0;
}

// Binds nothing to the image and lets the driver report the error.
void refuse_image(GLenum target) {
    if (driver.glEGLImageTargetTexture2DOES) driver.glEGLImageTargetTexture2DOES(target, nullptr);
}

}  // namespace

void active_texture(GLenum unit) {
    driver.glActiveTexture(unit);
    if (const auto& context = current().context)
        context->units_used = std::max(context->units_used,
                                       get_integer(GL_ACTIVE_TEXTURE) - static_cast<GLint>(GL_TEXTURE0) + 1);
}

void image_target_texture_2d(GLenum target, GLeglImageOES handle) {
    if (!is_image_handle(handle)) {
        if (replaces_image(target, 0)) before_replacing_bound_texture();
        if (driver.glEGLImageTargetTexture2DOES) driver.glEGLImageTargetTexture2DOES(target, handle);
        return;
    }
    const auto image = images().find(handle);
    const auto texture = static_cast<GLuint>(get_integer(GL_TEXTURE_BINDING_2D));
    if (!image || target != GL_TEXTURE_2D || texture == 0 || !current().context) return refuse_image(target);
    before_replacing_bound_texture();
    try {
        set_image_of(texture, image);
    } catch (const std::bad_alloc&) {
        return refuse_image(target);
    }
    specify_texture(*image->memory);
}

void delete_textures(GLsizei count, const GLuint* names) {
    for (GLsizei i = 0; i < count; ++i) before_deleting_texture(names[i]);
    driver.glDeleteTextures(count, names);
}

void tex_image_2d(GLenum target, GLint level, GLint internal_format, GLsizei width, GLsizei height,
                  GLint border, GLenum format, GLenum type, const void* pixels) {
    if (replaces_image(target, level)) before_replacing_bound_texture();
    driver.glTexImage2D(target, level, internal_format, width, height, border, format, type, pixels);
}

void compressed_tex_image_2d(GLenum target, GLint level, GLenum internal_format, GLsizei width,
                             GLsizei height, GLint border, GLsizei size, const void* data) {
    if (replaces_image(target, level)) before_replacing_bound_texture();
    driver.glCompressedTexImage2D(target, level, internal_format, width, height, border, size, data);
}

void copy_tex_image_2d(GLenum target, GLint level, GLenum internal_format, GLint x, GLint y, GLsizei width,
                       GLsizei height, GLint border) {
    before_reading();
    if (replaces_image(target, level)) before_replacing_bound_texture();
    driver.glCopyTexImage2D(target, level, internal_format, x, y, width, height, border);
}

void tex_sub_image_2d(GLenum target, GLint level, GLint x, GLint y, GLsizei width, GLsizei height,
                      GLenum format, GLenum type, const void* pixels) {
    if (replaces_image(target, level)) before_writing_bound_texture();
    driver.glTexSubImage2D(target, level, x, y, width, height, format, type, pixels);
}

void copy_tex_sub_image_2d(GLenum target, GLint level, GLint x_offset, GLint y_offset, GLint x, GLint y,
                           GLsizei width, GLsizei height) {
    before_reading();
    if (replaces_image(target, level)) before_writing_bound_texture();
    driver.glCopyTexSubImage2D(target, level, x_offset, y_offset, x, y, width, height);
}

// The levels below become a picture of this moment.
void generate_mipmap(GLenum target) {
    if (target == GL_TEXTURE_2D) before_sampling_bound_texture();
    driver.glGenerateMipmap(target);
}

}  // namespace platform::egl
