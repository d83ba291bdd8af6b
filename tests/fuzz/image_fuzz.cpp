// Any bytes as a picture: nothing is written outside the rows asked for, and the same bytes give the same picture.
#include <kel.h>

extern "C" {
#include <libavutil/crc.h>
#include <libavutil/log.h>
}

#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

struct World {
    World() {
        AoLogSetSink([](void*, int, const char*) {}, nullptr);
        av_log_set_level(AV_LOG_QUIET);
        context = kel_create_context();
        context->max_image_width = context->max_image_height = 256;
        img_lib_attach(&ilib);
    }
    kel_context* context;
    img_lib_t ilib;
};

// Damage shall reach the decoder behind the checksums of a PNG's chunks.
void repair_checksums(std::vector<uint8_t>& file) {
    if (file.size() < 8 || memcmp(file.data(), "\x89PNG", 4) != 0) return;
    for (size_t at = 8; file.size() - at >= 12;) {
        const size_t length = size_t{file[at]} << 24 | file[at + 1] << 16 | file[at + 2] << 8 | file[at + 3];
        if (length > file.size() - at - 12) return;
        const uint32_t sum = ~av_crc(av_crc_get_table(AV_CRC_32_IEEE_LE), ~0u, &file[at + 4], length + 4);
        for (size_t i = 0; i < 4; ++i) file[at + 8 + length + i] = static_cast<uint8_t>(sum >> (24 - 8 * i));
        at += length + 12;
    }
}

struct Stream {
    explicit Stream(const std::vector<uint8_t>& file) : stream(io_open_memory(file.data(), file.size())) {}
    ~Stream() { io_close(stream); }
    io_stream_t* stream;
};

// The picture as `width` × `height` pixels, with a guarded gap behind each row; empty when it cannot be read.
std::vector<uint8_t> load(const World& world, const std::vector<uint8_t>& file, unsigned width,
                          unsigned height) {
    constexpr uint8_t guard = 0xcd;
    const unsigned stride = width * 4 + 8;
    std::vector<uint8_t> rows(size_t{stride} * height, guard);
    img_t img{
        {{rows.data(), stride}}, width, height, IMG_FMT_ARGB8888, IMG_FORMAT | IMG_W | IMG_H | IMG_DIRECT};
    if (img_load_resize(world.ilib, Stream(file).stream, nullptr, &img) != IMG_ERR_OK) rows.clear();
    for (size_t gap = width * 4; gap < rows.size(); gap += stride) {
        for (size_t i = 0; i < 8; ++i) {
            if (rows[gap + i] != guard) abort();
        }
    }
    return rows;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const World world;
    std::vector<uint8_t> file(data, data + size);
    repair_checksums(file);
    const unsigned width = 1 + static_cast<unsigned>(size % 41),
                   height = 1 + static_cast<unsigned>(size % 13);
    const std::vector<uint8_t> rows = load(world, file, width, height);
    if (load(world, file, width, height) != rows) abort();
    kel_buffer* buffer = kel_load_image(world.context, world.ilib, Stream(file).stream, SCREEN_USAGE_READ);
    if (buffer && rows.empty()) abort();
    if (buffer) {
        const kel_video_format& format = kel_get_buffer_format(buffer)->video;
        if (format.width > 128 || format.height > 128) abort();
        kel_release_buffer(buffer);
    }
    return 0;
}
