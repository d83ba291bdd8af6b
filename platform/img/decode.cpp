#include "img/decode.hpp"

#include <cerrno>
#include <cstdlib>

extern "C" {
#include <libavutil/dict.h>
}

namespace platform::img {
namespace {

constexpr int silent = 64;  // moves libavcodec's own messages beyond every threshold

struct context_deleter {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
using context = std::unique_ptr<AVCodecContext, context_deleter>;

}  // namespace

int decode(const file_data& file, frame& picture) {
    const AVCodec* codec = avcodec_find_decoder(file.codec);
    if (!codec) return IMG_ERR_FORMAT;
    const context decoder(avcodec_alloc_context3(codec));
    picture.reset(av_frame_alloc());
    if (!decoder || !picture) return IMG_ERR_MEM;
    decoder->log_level_offset = silent;
    decoder->thread_count = 1;
    decoder->max_pixels = file.most_pixels;
    decoder->err_recognition = AV_EF_CRCCHECK | AV_EF_BITSTREAM | AV_EF_BUFFER | AV_EF_EXPLODE;
    if (avcodec_open2(decoder.get(), codec, nullptr) < 0) return IMG_ERR_MEM;
    int result = avcodec_send_packet(decoder.get(), file.bytes.get());
    if (result >= 0) result = avcodec_receive_frame(decoder.get(), picture.get());
    if (result == AVERROR(ENOMEM)) return IMG_ERR_MEM;
    const int64_t claimed = int64_t{decoder->width} * decoder->height;
    if (result < 0 || picture->decode_error_flags)
        return claimed > file.most_pixels ? IMG_ERR_LIMIT : IMG_ERR_CORRUPT;
    return IMG_ERR_OK;
}

int orientation_of(const AVFrame& picture) {
    const AVDictionaryEntry* entry = av_dict_get(picture.metadata, "Orientation", nullptr, 0);
    const int number = entry ? atoi(entry->value) : 1;
    return number >= 1 && number <= 8 ? number : 1;
}

}  // namespace platform::img
