// The kinds of files that can be read: how they begin, what they can hold, whether they are all there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

extern "C" {
#include <libavcodec/codec_id.h>
}

namespace platform::img {

inline constexpr int64_t largest_picture = int64_t{64} << 20;  // pixels
inline constexpr size_t longest_signature = 16;                // bytes

struct file_kind {
    AVCodecID codec;
    std::string_view signature;  // '?' stands for any byte
    int64_t pixels_per_byte;     // of the file, at most
    // False for a file that ends too early. May shorten `size` to what makes the picture. Null: only the decoder
    // can tell.
    bool (*is_whole)(std::span<uint8_t> bytes, size_t& size);
};

// The kind of file that begins so, or null.
const file_kind* find_kind(std::span<const uint8_t> start);

}  // namespace platform::img
