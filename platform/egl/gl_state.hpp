// GL state borrowed from the client: each guard puts it back as it was.
#pragma once

#include "egl/driver.hpp"

namespace platform::egl {

inline GLint get_integer(GLenum name) {
    GLint value = 0;
    driver.glGetIntegerv(name, &value);
    return value;
}

class pixel_store_scope {
  public:
    pixel_store_scope(GLenum name, GLint value) : name_(name), saved_(get_integer(name)) {
        if (saved_ != value) driver.glPixelStorei(name, value);
    }
    ~pixel_store_scope() { driver.glPixelStorei(name_, saved_); }
    pixel_store_scope(const pixel_store_scope&) = delete;
    pixel_store_scope& operator=(const pixel_store_scope&) = delete;

  private:
    GLenum name_;
    GLint saved_;
};

// Binds an object with one of the glBind functions; `query` asks for what is bound there.
class binding_scope {
  public:
    using bind_function = void (*)(GLenum target, GLuint name);
    binding_scope(bind_function bind, GLenum target, GLenum query, GLuint name)
        : bind_(bind), target_(target), saved_(static_cast<GLuint>(get_integer(query))) {
        if (saved_ != name) bind_(target_, name);
    }
    ~binding_scope() { bind_(target_, saved_); }
    binding_scope(const binding_scope&) = delete;
    binding_scope& operator=(const binding_scope&) = delete;

  private:
    bind_function bind_;
    GLenum target_;
    GLuint saved_;
};

struct texture_scope : binding_scope {
    explicit texture_scope(GLuint name)
        : binding_scope(driver.glBindTexture, GL_TEXTURE_2D, GL_TEXTURE_BINDING_2D, name) {}
};

struct read_framebuffer_scope : binding_scope {
    explicit read_framebuffer_scope(GLuint name)
        : binding_scope(driver.glBindFramebuffer, GL_READ_FRAMEBUFFER, GL_READ_FRAMEBUFFER_BINDING, name) {}
};

struct draw_framebuffer_scope : binding_scope {
    explicit draw_framebuffer_scope(GLuint name)
        : binding_scope(driver.glBindFramebuffer, GL_DRAW_FRAMEBUFFER, GL_DRAW_FRAMEBUFFER_BINDING, name) {}
};

// Pixels come from plain memory whose rows are `row_length` pixels apart.
class unpack_scope {
  public:
    explicit unpack_scope(GLint row_length) : row_length_(GL_UNPACK_ROW_LENGTH, row_length) {}

  private:
    pixel_store_scope row_length_;
    pixel_store_scope alignment_{GL_UNPACK_ALIGNMENT, 1};
    pixel_store_scope rows_{GL_UNPACK_SKIP_ROWS, 0};
    pixel_store_scope pixels_{GL_UNPACK_SKIP_PIXELS, 0};
    binding_scope buffer_{driver.glBindBuffer, GL_PIXEL_UNPACK_BUFFER, GL_PIXEL_UNPACK_BUFFER_BINDING, 0};
};

// The same for pixels that go to memory.
class pack_scope {
  public:
    explicit pack_scope(GLint row_length) : row_length_(GL_PACK_ROW_LENGTH, row_length) {}

  private:
    pixel_store_scope row_length_;
    pixel_store_scope alignment_{GL_PACK_ALIGNMENT, 1};
    pixel_store_scope rows_{GL_PACK_SKIP_ROWS, 0};
    pixel_store_scope pixels_{GL_PACK_SKIP_PIXELS, 0};
    binding_scope buffer_{driver.glBindBuffer, GL_PIXEL_PACK_BUFFER, GL_PIXEL_PACK_BUFFER_BINDING, 0};
};

class disable_scope {
  public:
    explicit disable_scope(GLenum capability)
        : capability_(capability), enabled_(driver.glIsEnabled(capability)) {
        if (enabled_) driver.glDisable(capability_);
    }
    ~disable_scope() {
        if (enabled_) driver.glEnable(capability_);
    }
    disable_scope(const disable_scope&) = delete;
    disable_scope& operator=(const disable_scope&) = delete;

  private:
    GLenum capability_;
    GLboolean enabled_;
};

}  // namespace platform::egl
