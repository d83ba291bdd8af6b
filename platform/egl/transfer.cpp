#include "egl/transfer.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "egl/gl_state.hpp"

namespace platform::egl {
namespace {

struct pixel_layout {
    int screen_format;
    GLenum format, type;  // BGRA is the memory's order and by far the fastest one to read back
    int bytes;            // a pixel
    bool alpha;           // false: the alpha that is sampled is one
};

constexpr pixel_layout layouts[] = {
    {SCREEN_FORMAT_RGBA8888, GL_BGRA_EXT, GL_UNSIGNED_BYTE, 4, true},
    {SCREEN_FORMAT_RGBX8888, GL_BGRA_EXT, GL_UNSIGNED_BYTE, 4, false},
    {SCREEN_FORMAT_RGB565, GL_RGB, GL_UNSIGNED_SHORT_5_6_5, 2, false},
};

const pixel_layout* find_layout(int screen_format) {
    for (const pixel_layout& layout : layouts) {
        if (layout.screen_format == screen_format) return &layout;
    }
    return nullptr;
}

const pixel_layout& layout_of(const platform_screen_frame& frame) {
    return *find_layout(frame.format);
}

uint8_t* row(const platform_screen_frame& frame, GLint y) {
    return static_cast<uint8_t*>(frame.pointer) + static_cast<std::ptrdiff_t>(y) * frame.stride;
}

// A framebuffer for reading from a texture.
class texture_reader {
  public:
    explicit texture_reader(GLuint texture) : name_(make()), scope_(name_) {
        driver.glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
    }
    ~texture_reader() { driver.glDeleteFramebuffers(1, &name_); }
    texture_reader(const texture_reader&) = delete;
    texture_reader& operator=(const texture_reader&) = delete;

  private:
    static GLuint make() {
        GLuint name = 0;
        driver.glGenFramebuffers(1, &name);
        return name;
    }
    GLuint name_;
    read_framebuffer_scope scope_;
};

bool has_reversed_packing() {
    const auto* extensions = reinterpret_cast<const char*>(driver.glGetString(GL_EXTENSIONS));
    return extensions && strstr(extensions, "GL_ANGLE_pack_reverse_row_order");
}

void read_rows(const platform_screen_frame& frame, GLint y, GLint width, GLint height) {
    pack_scope pack(frame.stride / 4);
    driver.glReadPixels(0, y, width, height, GL_BGRA_EXT, GL_UNSIGNED_BYTE, frame.pointer);
}

void swap_rows(const platform_screen_frame& frame, GLint width, GLint height) {
    for (GLint top = 0, bottom = height - 1; top < bottom; ++top, --bottom) {
        std::swap_ranges(row(frame, top), row(frame, top) + width * 4, row(frame, bottom));
    }
}

void make_opaque(const platform_screen_frame& frame, GLint width, GLint height) {
    for (GLint y = 0; y < height; ++y) {
        uint8_t* alpha = row(frame, y) + 3;
        for (GLint x = 0; x < width; ++x) alpha[x * 4] = UINT8_MAX;
    }
}

// GL reads back 8 bits each; those of a 5-6-5 texture go back to where they came from without a loss.
void read_rows_565(const platform_screen_frame& frame) {
    constexpr GLint run = 256;  // pixels
    uint8_t pixels[run * 4];
    const pack_scope pack(0);
    for (GLint y = 0; y < frame.height; ++y) {
        for (GLint x = 0; x < frame.width; ++x) {
            if (x % run == 0) {
                const GLint width = std::min(run, frame.width - x);
                driver.glReadPixels(x, y, width, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixels);
            }
            const uint8_t* pixel = pixels + x % run * 4;
            const auto packed =
                static_cast<uint16_t>((pixel[0] >> 3) << 11 | (pixel[1] >> 2) << 5 | pixel[2] >> 3);
            memcpy(row(frame, y) + x * 2, &packed, sizeof packed);
        }
    }
}

// Whatever alpha the memory held, blending with a surface without alpha finds one.
void clear_alpha() {
    GLboolean mask[4];
    GLfloat colour[4];
    driver.glGetBooleanv(GL_COLOR_WRITEMASK, mask);
    driver.glGetFloatv(GL_COLOR_CLEAR_VALUE, colour);
    driver.glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_TRUE);
    driver.glClearColor(0, 0, 0, 1);
    driver.glClear(GL_COLOR_BUFFER_BIT);
    driver.glColorMask(mask[0], mask[1], mask[2], mask[3]);
    driver.glClearColor(colour[0], colour[1], colour[2], colour[3]);
}

}  // namespace

bool can_be_texture(int screen_format) {
    return find_layout(screen_format) != nullptr;
}

bool can_be_surface(int screen_format) {
    const pixel_layout* layout = find_layout(screen_format);
    return layout && layout->bytes == 4;
}

void specify_texture(const platform_screen_frame& frame) {
    const pixel_layout& layout = layout_of(frame);
    unpack_scope unpack(frame.stride / layout.bytes);
    driver.glTexImage2D(GL_TEXTURE_2D, 0, static_cast<GLint>(layout.format), frame.width, frame.height, 0,
                        layout.format, layout.type, frame.pointer);
    if (!layout.alpha) driver.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_SWIZZLE_A, GL_ONE);
}

void unspecify_texture(const platform_screen_frame& frame) {
    if (!layout_of(frame).alpha) driver.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_SWIZZLE_A, GL_ALPHA);
}

void upload_texture(GLuint texture, const platform_screen_frame& frame) {
    const pixel_layout& layout = layout_of(frame);
    texture_scope bound(texture);
    unpack_scope unpack(frame.stride / layout.bytes);
    driver.glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, frame.width, frame.height, layout.format, layout.type,
                           frame.pointer);
}

void store_texture(GLuint texture, const platform_screen_frame& frame) {
    const texture_reader reader(texture);
    const pixel_layout& layout = layout_of(frame);
    if (layout.bytes == 2) return read_rows_565(frame);
    read_rows(frame, 0, frame.width, frame.height);
    if (!layout.alpha) make_opaque(frame, frame.width, frame.height);
}

void load_surface(const platform_screen_frame& frame) {
    GLuint texture = 0;
    driver.glGenTextures(1, &texture);
    {
        const texture_scope bound(texture);
        specify_texture(frame);
        const texture_reader reader(texture);
        const draw_framebuffer_scope surface(0);
        const disable_scope unlimited(GL_SCISSOR_TEST);
        driver.glBlitFramebuffer(0, 0, frame.width, frame.height, 0, frame.height, frame.width, 0,
                                 GL_COLOR_BUFFER_BIT, GL_NEAREST);
        if (!layout_of(frame).alpha) clear_alpha();
    }
    driver.glDeleteTextures(1, &texture);
}

void store_surface(GLint width, GLint height, const platform_screen_frame& frame) {
    const GLint columns = std::min(width, frame.width);
    const GLint rows = std::min(height, frame.height);
    const read_framebuffer_scope surface(0);
    if (has_reversed_packing()) {
        const pixel_store_scope reversed(GL_PACK_REVERSE_ROW_ORDER_ANGLE, GL_TRUE);
        read_rows(frame, height - rows, columns, rows);
    } else {
        read_rows(frame, height - rows, columns, rows);
        swap_rows(frame, columns, rows);
    }
    if (!layout_of(frame).alpha) make_opaque(frame, columns, rows);
}

}  // namespace platform::egl
