#include "mm/pcm_stream.hpp"

#include <algorithm>
#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswresample/swresample.h>
}

namespace platform::mmf {
namespace {

AVSampleFormat sample_format(int bits) {
    return bits == 8 ? AV_SAMPLE_FMT_U8 : bits == 16 ? AV_SAMPLE_FMT_S16 : AV_SAMPLE_FMT_S32;
}

}  // namespace

pcm_stream::pcm_stream(std::unique_ptr<stream_decoder> decoder, pcm_format format)
    : decoder_(std::move(decoder)), format_(format) {}

pcm_stream::~pcm_stream() {
    swr_free(&resampler_);
}

std::unique_ptr<pcm_stream> pcm_stream::open(std::unique_ptr<stream_decoder> decoder, int bits,
                                             int most_channels, std::string& error) {
    const AVCodecContext& codec = decoder->codec();
    const int channels = codec.ch_layout.nb_channels;
    if (codec.sample_rate < 1 || channels < 1) {
        error = "the audio has no rate or no channels";
        return nullptr;
    }
    const pcm_format format = {codec.sample_rate, std::min(channels, most_channels), bits};
    return std::unique_ptr<pcm_stream>(new pcm_stream(std::move(decoder), format));
}

int pcm_stream::ready() const {
    return static_cast<int>((pending_.size() - taken_) / static_cast<size_t>(format_.frame_bytes()));
}

void pcm_stream::append(const uint8_t* samples, int frames) {
    if (taken_ == pending_.size()) {
        pending_.clear();
        taken_ = 0;
    }
    const auto bytes = static_cast<size_t>(frames) * static_cast<size_t>(format_.frame_bytes());
    pending_.insert(pending_.end(), samples, samples + bytes);
    if (format_.bits != 32) return;
    // Full scale lies within 24 bits.
    uint8_t* added = pending_.data() + pending_.size() - bytes;
    for (size_t i = 0; i < bytes; i += 4) {
        int32_t value;
        std::memcpy(&value, added + i, 4);
        value >>= 8;
        std::memcpy(added + i, &value, 4);
    }
}

// Converts the decoder's frame behind what is pending. The converter is made anew when the stream changes its format.
bool pcm_stream::convert_frame() {
    const AVFrame& frame = decoder_->frame();
    const int channels = frame.ch_layout.nb_channels;
    if (!resampler_ || frame.format != source_format_ || frame.sample_rate != source_rate_ ||
        channels != source_channels_) {
        AVChannelLayout layout;
        av_channel_layout_default(&layout, format_.channels);
        AVChannelLayout source = frame.ch_layout;
        if (source.order == AV_CHANNEL_ORDER_UNSPEC) av_channel_layout_default(&source, channels);
        const bool set = swr_alloc_set_opts2(&resampler_, &layout, sample_format(format_.bits), format_.rate,
                                             &source, static_cast<AVSampleFormat>(frame.format),
                                             frame.sample_rate, 0, nullptr) >= 0 &&
                         swr_init(resampler_) >= 0;
        if (!set) {
            swr_free(&resampler_);
            return false;
        }
        source_format_ = frame.format;
        source_rate_ = frame.sample_rate;
        source_channels_ = channels;
    }
    const int room = swr_get_out_samples(resampler_, frame.nb_samples);
    if (room < 0) return false;
    std::vector<uint8_t> converted(static_cast<size_t>(room) * static_cast<size_t>(format_.frame_bytes()));
    uint8_t* planes[] = {converted.data()};
    const int frames = swr_convert(resampler_, planes, room, const_cast<const uint8_t**>(frame.extended_data),
                                   frame.nb_samples);
    if (frames < 0) return false;
    if (ready() == 0) {
        base_pts_ = decoder_->pts();
        frames_since_base_ = 0;
    }
    append(converted.data(), frames);
    return true;
}

int pcm_stream::read(void* out, int frames, int64_t& pts) {
    while (!ended_ && ready() < frames) {
        if (decoder_->next() == stream_decoder::result::end)
            ended_ = true;
        else if (!convert_frame())
            decoder_->leave_out("its samples cannot be converted");
    }
    const int given = std::min(ready(), frames);
    if (given == 0) return 0;
    pts = base_pts_ + frames_since_base_ * 1000000 / format_.rate;
    const auto bytes = static_cast<size_t>(given) * static_cast<size_t>(format_.frame_bytes());
    std::memcpy(out, pending_.data() + taken_, bytes);
    taken_ += bytes;
    frames_since_base_ += given;
    return given;
}

bool pcm_stream::seek(int64_t position) {
    if (!decoder_->seek(position)) return false;
    pending_.clear();
    taken_ = 0;
    ended_ = false;
    return true;
}

}  // namespace platform::mmf
