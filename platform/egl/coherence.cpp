#include "egl/coherence.hpp"

#include <new>

#include "egl/gl_state.hpp"
#include "egl/transfer.hpp"

namespace platform::egl {
namespace {

using image = std::shared_ptr<image_record>;

GLuint bound_texture() {
    return static_cast<GLuint>(get_integer(GL_TEXTURE_BINDING_2D));
}

// Stores a written texture and forgets that it was written.
void store(const written_texture& entry) {
    store_texture(entry.name, *entry.image->memory);
    auto& written = current().context->written;
    written.erase(written.begin() + (&entry - written.data()));
}

// The written texture that shows this memory, or null.
const written_texture* find_written(const held_frame& memory) {
    for (const written_texture& entry : current().context->written) {
        if (entry.image->memory->pointer == memory->pointer) return &entry;
    }
    return nullptr;
}

// Brings the memory's pixels into the texture unless it is the newer one itself.
void refresh(GLuint texture, const image& shown) {
    if (const written_texture* entry = find_written(shown->memory)) {
        if (entry->name == texture) return;
        store(*entry);
    }
    upload_texture(texture, *shown->memory);
}

// The same, and counts the texture as written from now on.
void claim(GLuint texture, const image& shown) {
    refresh(texture, shown);
    if (find_written(shown->memory)) return;
    try {
        current().context->written.push_back({texture, shown});
    } catch (const std::bad_alloc&) {
        // GL gives no way to report it from here: what is drawn stays in the texture alone.
    }
}

void refresh_bound_textures() {
    const GLint active = get_integer(GL_ACTIVE_TEXTURE);
    for (GLint unit = 0; unit < current().context->units_used; ++unit) {
        driver.glActiveTexture(GL_TEXTURE0 + static_cast<GLenum>(unit));
        const GLuint texture = bound_texture();
        if (const image shown = find_image_of(texture)) refresh(texture, shown);
    }
    driver.glActiveTexture(static_cast<GLenum>(active));
}

// The texture that a framebuffer object draws into or is read from; 0 for something else.
GLuint attached_texture(GLenum target) {
    GLint type = GL_NONE, name = 0;
    driver.glGetFramebufferAttachmentParameteriv(target, GL_COLOR_ATTACHMENT0,
                                                 GL_FRAMEBUFFER_ATTACHMENT_OBJECT_TYPE, &type);
    if (type != GL_TEXTURE) return 0;
    driver.glGetFramebufferAttachmentParameteriv(target, GL_COLOR_ATTACHMENT0,
                                                 GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &name);
    return static_cast<GLuint>(name);
}

bool has_images() {
    return current().context->group->count != 0;
}

// Makes a current surface the one for both drawing and reading while it lives; false when that is refused.
class surface_scope {
  public:
    explicit surface_scope(const surface_record& surface) {
        if (now_.draw_handle == now_.read_handle) return;
        made_current_ = driver.eglMakeCurrent(surface.display, surface.handle, surface.handle, context());
        refused_ = !made_current_;
    }
    ~surface_scope() {
        if (made_current_)
            driver.eglMakeCurrent(now_.context->display, now_.draw_handle, now_.read_handle, context());
    }
    surface_scope(const surface_scope&) = delete;
    surface_scope& operator=(const surface_scope&) = delete;
    explicit operator bool() const { return !refused_; }

  private:
    EGLContext context() const { return now_.context->handle; }
    const current_objects& now_ = current();
    bool made_current_ = false, refused_ = false;
};

// A clean pixmap surface shows the memory; a window's buffer has no pixels to keep. Multisampled pixels cannot be
// loaded: such a surface keeps those of the driver.
bool can_be_loaded(const surface_record& surface) {
    return !surface.dirty && surface.pixmap && !surface.multisampled;
}

void load(const surface_record& surface) {
    if (!can_be_loaded(surface)) return;
    if (const written_texture* entry = find_written(surface.pixmap)) store(*entry);
    load_surface(*surface.pixmap);
}

void store(surface_record& surface) {
    surface.dirty = false;
    const surface_scope readable(surface);
    if (!readable) return;
    if (surface.window) {
        const held_frame memory(surface.window);  // empty when the window has ended
        if (memory) store_surface(surface.width, surface.height, *memory);
    } else {
        store_surface(surface.width, surface.height, *surface.pixmap);
    }
}

// Makes the target of drawing ready; the memory need not be loaded first where all of it is overwritten.
void claim_target(bool overwrites) {
    const current_objects& now = current();
    const bool surface_needs_it = now.draw && !now.draw->dirty;
    if (!surface_needs_it && !has_images()) return;
    if (get_integer(GL_DRAW_FRAMEBUFFER_BINDING) == 0) {
        if (!surface_needs_it) return;
        if (!overwrites) load(*now.draw);
        now.draw->dirty = true;
    } else if (const GLuint texture = attached_texture(GL_DRAW_FRAMEBUFFER)) {
        if (const image shown = find_image_of(texture)) claim(texture, shown);
    }
}

void release(GLuint texture) {
    const image shown = remove_image_of(texture);
    if (!shown) return;
    const written_texture* entry = find_written(shown->memory);
    if (entry && entry->name == texture) store(*entry);
}

}  // namespace

void before_drawing() {
    if (!current().context) return;
    if (has_images()) refresh_bound_textures();
    claim_target(false);
}

void before_clearing(bool overwrites) {
    if (current().context) claim_target(overwrites);
}

void before_reading() {
    const current_objects& now = current();
    if (!now.context) return;
    if (get_integer(GL_READ_FRAMEBUFFER_BINDING) == 0) {
        if (!now.read || !can_be_loaded(*now.read)) return;
        if (const surface_scope drawable(*now.read); drawable) load(*now.read);
    } else if (has_images()) {
        const GLuint texture = attached_texture(GL_READ_FRAMEBUFFER);
        if (const image shown = find_image_of(texture)) refresh(texture, shown);
    }
}

void before_sampling_bound_texture() {
    if (!current().context || !has_images()) return;
    const GLuint texture = bound_texture();
    if (const image shown = find_image_of(texture)) refresh(texture, shown);
}

void before_writing_bound_texture() {
    if (!current().context || !has_images()) return;
    const GLuint texture = bound_texture();
    if (const image shown = find_image_of(texture)) claim(texture, shown);
}

void before_replacing_bound_texture() {
    if (!current().context || !has_images()) return;
    const GLuint texture = bound_texture();
    if (const image shown = find_image_of(texture)) unspecify_texture(*shown->memory);
    release(texture);
}

void before_deleting_texture(GLuint texture) {
    if (current().context && has_images()) release(texture);
}

void settle() {
    const current_objects& now = current();
    if (!now.context) return;
    if (now.draw && now.draw->dirty) store(*now.draw);
    while (!now.context->written.empty()) store(now.context->written.back());
}

}  // namespace platform::egl
