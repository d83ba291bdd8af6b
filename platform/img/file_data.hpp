// The bytes of a picture's file, read after its kind is known and freed of what no picture needs.
#pragma once

#include <cstdint>
#include <memory>

#include "img/stream.hpp"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace platform::img {

struct packet_deleter {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using packet = std::unique_ptr<AVPacket, packet_deleter>;

struct file_data {
    AVCodecID codec = AV_CODEC_ID_NONE;
    int64_t most_pixels = 0;  // that a file of this kind and size can hold
    packet bytes;
};

// Reads the stream to its end. IMG_ERR_*; what is no picture is refused after its first bytes.
int read_file(io_stream& stream, file_data& file);

}  // namespace platform::img
