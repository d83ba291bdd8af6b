#include <algorithm>
#include <cstring>

#include "mm/stream_decoder.hpp"
#include "mm/stream_encoder.hpp"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

namespace platform::mmf {
namespace {

// The usual frame rates divide it, and every encoder can count in it.
constexpr AVRational ticks = {1, 60000};
constexpr int usual_frame_rate = 25;

// Encoders read whole vectors and blocks, also past a picture's edges.
constexpr int alignment = 64, block_rows = 32;

AVPixelFormat best_format(const AVCodec& codec) {
    if (!codec.pix_fmts) return AV_PIX_FMT_YUV420P;
    for (const AVPixelFormat* each = codec.pix_fmts; *each != AV_PIX_FMT_NONE; ++each)
        if (*each == AV_PIX_FMT_NV12) return *each;
    return avcodec_find_best_pix_fmt_of_list(codec.pix_fmts, AV_PIX_FMT_NV12, 0, nullptr);
}

// 0 to 100 in the terms of the two kinds of encoders: a constant rate factor, or a quantiser.
void set_quality(AVCodecContext& context, int quality) {
    const int factor = 51 - quality * 51 / 100;
    if (av_opt_set_int(context.priv_data, "crf", factor, 0) >= 0) return;
    context.flags |= AV_CODEC_FLAG_QSCALE;
    context.global_quality = FF_QP2LAMBDA * (1 + (100 - quality) * 30 / 100);
}

}  // namespace

std::unique_ptr<video_encoder> video_encoder::open(output_file& file, int width, int height, int frame_rate,
                                                   const encoder_settings& settings, std::string& error) {
    std::unique_ptr<video_encoder> encoder(new video_encoder(file));
    encoder->codec_ = file.encoder(AVMEDIA_TYPE_VIDEO, settings.codec, error);
    if (!encoder->codec_) return nullptr;
    encoder->context_ = avcodec_alloc_context3(encoder->codec_);
    if (!encoder->context_ || !encoder->packet_ || !encoder->frame_) {
        error = error_text(AVERROR(ENOMEM));
        return nullptr;
    }
    AVCodecContext& context = *encoder->context_;
    encoder->rows_ = height;
    context.width = width & ~1;
    context.height = height & ~1;
    context.pix_fmt = best_format(*encoder->codec_);
    context.framerate = {frame_rate > 0 ? frame_rate : usual_frame_rate, 1};
    // Raw pictures carry no times: their unit is one picture.
    context.time_base =
        encoder->codec_->id == AV_CODEC_ID_WRAPPED_AVFRAME ? av_inv_q(context.framerate) : ticks;
    set_quality(context, settings.quality);
    if (!encoder->stream_encoder::open(settings, error)) return nullptr;
    return encoder;
}

video_encoder::~video_encoder() {
    sws_freeContext(scaler_);
    av_buffer_pool_uninit(&pictures_);
}

// Memory for the frame's picture, out of a pool: new memory would cost a fault for every page of every picture.
bool video_encoder::get_picture() {
    const int rows = (frame_->height + block_rows - 1) / block_rows * block_rows;
    const int bytes = av_image_get_buffer_size(context_->pix_fmt, frame_->width, rows, alignment);
    if (bytes < 0) return false;
    if (!pictures_) pictures_ = av_buffer_pool_init(static_cast<size_t>(bytes) + alignment, nullptr);
    frame_->buf[0] = pictures_ ? av_buffer_pool_get(pictures_) : nullptr;
    return frame_->buf[0] && av_image_fill_arrays(frame_->data, frame_->linesize, frame_->buf[0]->data,
                                                  context_->pix_fmt, frame_->width, rows, alignment) >= 0;
}

bool video_encoder::write(const void* data, uint32_t bytes, int64_t pts, std::string& error) {
    // An NV12 buffer has three half-heights of rows.
    const int stride = static_cast<int>(int64_t{bytes} * 2 / (3 * int64_t{rows_}));
    if (stride < context_->width) {
        error = "a picture of " + std::to_string(bytes) + " bytes is too small";
        return false;
    }
    auto* luma = static_cast<uint8_t*>(const_cast<void*>(data));
    uint8_t* planes[] = {luma, luma + static_cast<ptrdiff_t>(stride) * rows_, nullptr, nullptr};
    const int strides[] = {stride, stride, 0, 0};
    av_frame_unref(frame_);
    frame_->format = context_->pix_fmt;
    frame_->width = context_->width;
    frame_->height = context_->height;
    if (context_->pix_fmt == AV_PIX_FMT_NV12) {
        std::copy(planes, planes + 2, frame_->data);
        std::copy(strides, strides + 2, frame_->linesize);
    } else {
        scaler_ = sws_getCachedContext(scaler_, context_->width, context_->height, AV_PIX_FMT_NV12,
                                       context_->width, context_->height, context_->pix_fmt, SWS_BILINEAR,
                                       nullptr, nullptr, nullptr);
        if (!scaler_ || !get_picture() ||
            sws_scale(scaler_, planes, strides, 0, context_->height, frame_->data, frame_->linesize) < 0) {
            error = "a picture cannot be converted";
            return false;
        }
    }
    frame_->quality = context_->global_quality;  // encoders with a quantiser take it from each picture
    const int64_t time = av_rescale_q(pts, {1, 1000000}, context_->time_base);
    frame_->pts = last_ = std::max(time, last_ == INT64_MIN ? time : last_ + 1);
    return encode(frame_, error);
}

}  // namespace platform::mmf
