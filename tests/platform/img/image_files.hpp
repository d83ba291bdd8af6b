// Picture files made by libavcodec's encoders.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

namespace picture_files {

using Bytes = std::vector<uint8_t>;

inline int checked(int result) {
    if (result < 0) throw std::runtime_error("libavcodec refuses: " + std::to_string(result));
    return result;
}

// `bgra`: width × height pixels without gaps. A palette format gets its reds as indices.
inline Bytes encode(AVCodecID codec_id, AVPixelFormat format, int width, int height, const Bytes& bgra) {
    const AVCodec* codec = avcodec_find_encoder(codec_id);
    if (!codec) throw std::runtime_error(std::string("no encoder for ") + avcodec_get_name(codec_id));
    AVCodecContext* context = avcodec_alloc_context3(codec);
    AVFrame* frame = av_frame_alloc();
    AVPacket* packet = av_packet_alloc();
    context->width = frame->width = width;
    context->height = frame->height = height;
    context->pix_fmt = format;
    frame->format = format;
    context->time_base = {1, 1};
    context->flags |= AV_CODEC_FLAG_QSCALE;
    context->global_quality = frame->quality = FF_QP2LAMBDA * (codec_id == AV_CODEC_ID_MJPEG ? 1 : 100);
    context->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL;
    if (codec_id == AV_CODEC_ID_WEBP && format == AV_PIX_FMT_BGRA)
        av_opt_set_int(context->priv_data, "lossless", 1, 0);
    checked(avcodec_open2(context, codec, nullptr));
    checked(av_frame_get_buffer(frame, 0));
    const uint8_t* const source[] = {bgra.data()};
    const int stride[] = {width * 4};
    if (format == AV_PIX_FMT_PAL8) {  // every pixel becomes its red, a palette of fading oranges
        for (uint32_t i = 0; i < 256; ++i) {
            reinterpret_cast<uint32_t*>(frame->data[1])[i] = 0xff000000 | i << 16 | (i / 2) << 8;
        }
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x)
                frame->data[0][y * frame->linesize[0] + x] = bgra[size_t(y * width + x) * 4 + 2];
        }
    } else {
        SwsContext* scaler =
            sws_getContext(width, height, AV_PIX_FMT_BGRA, width, height, format,
                           SWS_POINT | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INP, nullptr, nullptr, nullptr);
        if (!scaler) throw std::runtime_error("no such conversion");
        sws_scale(scaler, source, stride, 0, height, frame->data, frame->linesize);
        sws_freeContext(scaler);
    }
    checked(avcodec_send_frame(context, frame));
    if (codec->capabilities & AV_CODEC_CAP_DELAY) checked(avcodec_send_frame(context, nullptr));
    checked(avcodec_receive_packet(context, packet));
    const Bytes file(packet->data, packet->data + packet->size);
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&context);
    return file;
}

// The JPEG file with an EXIF segment that says how it is turned.
inline Bytes with_orientation(const Bytes& jpeg, uint8_t orientation) {
    const uint8_t segment[] = {0xff, 0xe1, 0, 34, 'E', 'x',         'i', 'f', 0, 0,    'M', 'M',
                               0,    42,   0, 0,  0,   8,           0,   1,   1, 0x12, 0,   3,
                               0,    0,    0, 1,  0,   orientation, 0,   0,   0, 0,    0,   0};
    Bytes result = jpeg;
    result.insert(result.begin() + 2, std::begin(segment), std::end(segment));
    return result;
}

}  // namespace picture_files
