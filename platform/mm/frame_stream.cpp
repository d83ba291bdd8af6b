#include "mm/frame_stream.hpp"

#include <algorithm>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}

namespace platform::mmf {
namespace {

constexpr int most_side = 16384;

// One plane of items, turned clockwise: the item that comes to (x, y) of the turned plane.
template <typename Item>
void turn(const Item* from, int from_stride, int width, int height, Item* into, int into_stride,
          int degrees) {
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const int source_x = degrees == 90 ? y : degrees == 180 ? width - 1 - x : height - 1 - y;
            const int source_y = degrees == 90 ? width - 1 - x : degrees == 180 ? height - 1 - y : x;
            into[y * into_stride + x] = from[source_y * from_stride + source_x];
        }
}

}  // namespace

picture_stream::picture_stream(std::unique_ptr<stream_decoder> decoder)
    : decoder_(std::move(decoder)), rotation_(decoder_->rotation()) {}

picture_stream::~picture_stream() {
    sws_freeContext(scaler_);
}

std::unique_ptr<picture_stream> picture_stream::open(std::unique_ptr<stream_decoder> decoder,
                                                     std::string& error) {
    std::unique_ptr<picture_stream> stream(new picture_stream(std::move(decoder)));
    int width = stream->decoder_->codec().width & ~1, height = stream->decoder_->codec().height & ~1;
    if (width < 2 || height < 2 || width > most_side || height > most_side) {
        error = "the video's size is " + std::to_string(stream->decoder_->codec().width) + "x" +
                std::to_string(stream->decoder_->codec().height);
        return nullptr;
    }
    if (stream->rotation_ % 180 != 0) std::swap(width, height);
    stream->width_ = width;
    stream->height_ = height;
    return stream;
}

// A frame whose size differs from the stream's is scaled to it; an odd last column or row is left out.
bool picture_stream::convert_frame(uint8_t* out, int stride) {
    const AVFrame& frame = decoder_->frame();
    const bool turned = rotation_ % 180 != 0;
    const int width = turned ? height_ : width_, height = turned ? width_ : height_;
    const int source_width = std::max(frame.width & ~1, 2), source_height = std::max(frame.height & ~1, 2);
    if (frame.width < 2 || frame.height < 2) return false;
    scaler_ =
        sws_getCachedContext(scaler_, source_width, source_height, static_cast<AVPixelFormat>(frame.format),
                             width, height, AV_PIX_FMT_NV12, SWS_BILINEAR, nullptr, nullptr, nullptr);
    if (!scaler_) return false;
    const int lying_stride = rotation_ ? width : stride;
    if (rotation_) lying_.resize(static_cast<size_t>(width) * static_cast<size_t>(height) * 3 / 2);
    uint8_t* luma = rotation_ ? lying_.data() : out;
    uint8_t* planes[] = {luma, luma + static_cast<ptrdiff_t>(lying_stride) * height};
    const int strides[] = {lying_stride, lying_stride};
    if (sws_scale(scaler_, frame.data, frame.linesize, 0, source_height, planes, strides) < 0) return false;
    if (!rotation_) return true;
    turn(planes[0], lying_stride, width_, height_, out, stride, rotation_);
    turn(reinterpret_cast<const uint16_t*>(planes[1]), lying_stride / 2, width_ / 2, height_ / 2,
         reinterpret_cast<uint16_t*>(out + static_cast<ptrdiff_t>(stride) * height_), stride / 2, rotation_);
    return true;
}

bool picture_stream::read(void* out, int stride, int64_t& pts) {
    while (decoder_->next() == stream_decoder::result::frame) {
        if (convert_frame(static_cast<uint8_t*>(out), stride)) {
            pts = decoder_->pts();
            return true;
        }
        decoder_->leave_out("its picture cannot be converted");
    }
    return false;
}

}  // namespace platform::mmf
