// Any bytes as a font, any bytes as a text. What a warm font draws must be what a cold one drew.
#include <aoi/aoi.h>
#include <kel.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

// The head of an input, then `text_length` bytes of text, then the font file; none stands for a packaged font.
struct Head {
    int16_t x, y;
    uint16_t box_width, box_height;
    uint8_t points, align, color, text_length;
};

constexpr int32_t frame_width = 160;
constexpr int32_t frame_height = 90;

struct World {
    World() {
        AoLogSetSink([](void*, int, const char*) {}, nullptr);
        const kel_video_format format = {SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_WRITE, frame_width,
                                         frame_height};
        context = kel_create_context();
        buffer = kel_create_pixmap_buffer(context, &format);
        path = "/proc/self/fd/" + std::to_string(file);
    }
    kel_context* context;
    kel_buffer* buffer;
    int file = memfd_create("font", MFD_CLOEXEC);
    std::string path;
};

struct Drawn {
    int point_glyphs, box_glyphs;
    std::vector<uint8_t> pixels;
    bool operator==(const Drawn&) const = default;
};

Drawn draw(const World& world, const Head& head, const std::string& text, const kel_text_style& style) {
    auto* pixels = static_cast<uint8_t*>(world.buffer->ptr);
    memset(pixels, 0, world.buffer->size);
    const kel_slice slice = kel_slice_for_buffer(world.buffer);
    const kel_point at = {head.x, head.y};
    const kel_rect box = {head.x, head.y, head.box_width, head.box_height};
    kel_rect drawn;
    Drawn result;
    result.point_glyphs = kel_text_draw(&slice, text.c_str(), &at, &style, &drawn);
    result.box_glyphs = kel_text_draw_in_bb(&slice, text.c_str(), &box, &style, &drawn);
    result.pixels.assign(pixels, pixels + world.buffer->size);
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const World world;
    Head head;
    if (size < sizeof head) return 0;
    memcpy(&head, data, sizeof head);
    data += sizeof head;
    size -= sizeof head;
    const size_t length = head.text_length < size ? head.text_length : size;
    const std::string text(reinterpret_cast<const char*>(data), length);
    const bool own_font = size > length;
    if (ftruncate(world.file, 0) != 0 || pwrite(world.file, data + length, size - length, 0) < 0) abort();

    const char* path = own_font ? world.path.c_str() : "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
    const kel_text_style style = {path, head.color * 0x01010101u, head.points, head.align & 3,
                                  head.align >> 2 & 3};
    kel_text_init(world.context);
    const Drawn cold = draw(world, head, text, style);
    if (draw(world, head, text, style) != cold) abort();
    if (kel_buffer* buffer =
            head.points < 40 ? kel_text_create(world.context, text.c_str(), &style, 0) : nullptr) {
        kel_release_buffer(buffer);
    }
    kel_text_deinit(world.context);
    return 0;
}
