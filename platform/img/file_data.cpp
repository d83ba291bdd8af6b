#include "img/file_data.hpp"

#include <algorithm>
#include <cstring>

#include "img/file_kind.hpp"

extern "C" {
#include <libavutil/mem.h>
}

namespace platform::img {
namespace {

constexpr size_t largest_file = size_t{128} << 20;  // bytes

// Memory as libavcodec wants it: from its allocator, with zeroed padding behind.
class growing_bytes {
  public:
    ~growing_bytes() { av_free(bytes_); }
    uint8_t* data() { return bytes_; }
    size_t size() const { return size_; }
    // Reads until `limit` bytes are there or the stream ends.
    int read(io_stream& stream, size_t limit) {
        while (size_ < limit) {
            if (size_ == room_ && !grow(std::min(limit, std::max<size_t>(room_ * 2, 64 << 10))))
                return IMG_ERR_MEM;
            const ssize_t got = stream.read(bytes_ + size_, std::min(room_, limit) - size_);
            if (got < 0) return IMG_ERR_FILE;
            if (got == 0) break;
            size_ += static_cast<size_t>(got);
        }
        return IMG_ERR_OK;
    }
    packet to_packet(size_t size) {
        packet result(av_packet_alloc());
        if (!result) return nullptr;
        memset(bytes_ + size, 0, AV_INPUT_BUFFER_PADDING_SIZE);
        if (av_packet_from_data(result.get(), bytes_, static_cast<int>(size)) < 0) return nullptr;
        bytes_ = nullptr;
        return result;
    }

  private:
    bool grow(size_t room) {
        void* moved = av_realloc(bytes_, room + AV_INPUT_BUFFER_PADDING_SIZE);
        if (!moved) return false;
        bytes_ = static_cast<uint8_t*>(moved);
        room_ = room;
        return true;
    }
    uint8_t* bytes_ = nullptr;
    size_t size_ = 0, room_ = 0;
};

}  // namespace

int read_file(io_stream& stream, file_data& file) {
    growing_bytes bytes;
    if (const int error = bytes.read(stream, longest_signature)) return error;
    const file_kind* found = find_kind({bytes.data(), bytes.size()});
    if (!found) return IMG_ERR_FORMAT;
    if (const int error = bytes.read(stream, largest_file + 1)) return error;
    if (bytes.size() > largest_file) return IMG_ERR_LIMIT;
    size_t size = bytes.size();
    if (found->is_whole && !found->is_whole({bytes.data(), size}, size)) return IMG_ERR_CORRUPT;
    file.codec = found->codec;
    file.most_pixels = std::min(largest_picture, static_cast<int64_t>(size) * found->pixels_per_byte);
    file.bytes = bytes.to_packet(size);
    return file.bytes ? IMG_ERR_OK : IMG_ERR_MEM;
}

}  // namespace platform::img
