#include "img/file_kind.hpp"

#include <algorithm>
#include <cstring>

namespace platform::img {
namespace {

using namespace std::string_view_literals;

uint32_t little_endian(const uint8_t* p) {
    return static_cast<uint32_t>(p[3]) << 24 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[1]) << 8 | p[0];
}

uint32_t big_endian(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
           static_cast<uint32_t>(p[2]) << 8 | p[3];
}

// Keeps the chunks that make the picture. The others could unpack to any size, and animate it.
bool keep_png_picture(std::span<uint8_t> bytes, size_t& size) {
    constexpr std::string_view kept[] = {"IHDR"sv, "PLTE"sv, "tRNS"sv, "IDAT"sv, "IEND"sv};
    size_t in = 8, out = 8;
    while (bytes.size() - in >= 12) {
        const size_t length = big_endian(&bytes[in]);
        if (length > bytes.size() - in - 12) return false;
        const std::string_view type(reinterpret_cast<const char*>(&bytes[in + 4]), 4);
        const bool is_end = type == "IEND"sv;
        if (std::find(std::begin(kept), std::end(kept), type) != std::end(kept)) {
            memmove(&bytes[out], &bytes[in], length + 12);
            out += length + 12;
        }
        in += length + 12;
        if (is_end) {
            size = out;
            return true;
        }
    }
    return false;
}

// The last scan of a whole JPEG has an end. Previews before it and appendages behind it end like pictures too.
bool last_scan_ends(std::span<uint8_t> bytes, size_t&) {
    const std::string_view all(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    const size_t scan = all.rfind("\xff\xda"sv), end = all.rfind("\xff\xd9"sv);
    return scan != std::string_view::npos && end != std::string_view::npos && end > scan;
}

bool holds_bmp_size(std::span<uint8_t> bytes, size_t&) {
    return bytes.size() >= 6 && bytes.size() >= little_endian(&bytes[2]);
}

// Steps over a GIF's blocks; every step is false at the end of the bytes.
struct gif_walk {
    std::span<const uint8_t> bytes;
    size_t at;
    bool skip(size_t count) { return bytes.size() - at >= count && (at += count, true); }
    bool take(uint8_t& byte) { return at < bytes.size() && (byte = bytes[at++], true); }
    bool skip_palette(uint8_t flags) { return !(flags & 0x80) || skip(size_t{6} << (flags & 7)); }
    bool skip_sub_blocks() {
        for (uint8_t length; take(length);) {
            if (length == 0) return true;
            if (!skip(length)) return false;
        }
        return false;
    }
};

bool holds_gif_picture(std::span<uint8_t> bytes, size_t&) {
    gif_walk walk{bytes, 6};
    uint8_t flags, block, label;
    if (!walk.skip(4) || !walk.take(flags) || !walk.skip(2) || !walk.skip_palette(flags)) return false;
    while (walk.take(block)) {
        switch (block) {
            case 0x2c:  // the picture
                return walk.skip(8) && walk.take(flags) && walk.skip_palette(flags) && walk.skip(1) &&
                       walk.skip_sub_blocks();
            case 0x21:  // an extension
                if (!walk.take(label) || !walk.skip_sub_blocks()) return false;
                break;
            default:
                return false;
        }
    }
    return false;
}

// What compression makes of one byte at most: deflate 1032 bytes of 8 pixels; a JPEG block 64 pixels of a bit; LZW
// a string of 4096 pixels of 12 bits. A WebP picture of one colour takes next to no bytes at all.
constexpr file_kind kinds[] = {
    {AV_CODEC_ID_PNG, "\x89PNG\r\n\x1a\n"sv, 8 * 1032, keep_png_picture},
    {AV_CODEC_ID_MJPEG, "\xff\xd8\xff"sv, 512, last_scan_ends},
    {AV_CODEC_ID_BMP, "BM"sv, 256, holds_bmp_size},
    {AV_CODEC_ID_GIF, "GIF8?a"sv, 4096, holds_gif_picture},
    {AV_CODEC_ID_WEBP, "RIFF????WEBPVP8"sv, largest_picture, nullptr},
};

bool matches(std::string_view signature, std::span<const uint8_t> bytes) {
    if (bytes.size() < signature.size()) return false;
    for (size_t i = 0; i < signature.size(); ++i) {
        if (signature[i] != '?' && static_cast<uint8_t>(signature[i]) != bytes[i]) return false;
    }
    return true;
}

}  // namespace

const file_kind* find_kind(std::span<const uint8_t> start) {
    for (const file_kind& k : kinds) {
        if (matches(k.signature, start)) return &k;
    }
    return nullptr;
}

}  // namespace platform::img
