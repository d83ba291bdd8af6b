#include <algorithm>
#include <cstring>

#include "mm/stream_decoder.hpp"
#include "mm/stream_encoder.hpp"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/audio_fifo.h>
#include <libswresample/swresample.h>
}

namespace platform::mmf {
namespace {

constexpr int block_of_any_size = 1024;  // frames, for encoders that do not mind
constexpr int full_scale = 1 << 23;      // of a 32-bit value

// A hole in time up to this long becomes silence; what is nearer or farther is put right behind the last frame.
constexpr int shortest_hole_ms = 50;
constexpr int longest_hole_ms = 60000;

AVCodecID pcm_codec(int bits) {
    return bits == 8 ? AV_CODEC_ID_PCM_U8 : bits == 16 ? AV_CODEC_ID_PCM_S16LE : AV_CODEC_ID_PCM_S24LE;
}

AVSampleFormat sample_format(int bits) {
    return bits == 8 ? AV_SAMPLE_FMT_U8 : bits == 16 ? AV_SAMPLE_FMT_S16 : AV_SAMPLE_FMT_S32;
}

// The encoder's format that holds the most of ours.
AVSampleFormat best_format(const AVCodec& codec, int bits) {
    const AVSampleFormat wanted = sample_format(bits);
    if (!codec.sample_fmts) return wanted;
    AVSampleFormat best = codec.sample_fmts[0];
    for (const AVSampleFormat* each = codec.sample_fmts; *each != AV_SAMPLE_FMT_NONE; ++each) {
        if (av_get_packed_sample_fmt(*each) == wanted) return *each;
        const int size = av_get_bytes_per_sample(*each);
        if (size > av_get_bytes_per_sample(best)) best = *each;
    }
    return best;
}

// The encoder's rate next to ours.
int best_rate(const AVCodec& codec, int rate) {
    int best = codec.supported_samplerates ? codec.supported_samplerates[0] : rate;
    for (const int* each = codec.supported_samplerates; each && *each; ++each)
        if (std::abs(*each - rate) < std::abs(best - rate)) best = *each;
    return best;
}

}  // namespace

std::unique_ptr<audio_encoder> audio_encoder::open(output_file& file, const pcm_format& format,
                                                   const encoder_settings& settings, std::string& error) {
    std::unique_ptr<audio_encoder> encoder(new audio_encoder(file, format));
    return encoder->set_up(settings, error) ? std::move(encoder) : nullptr;
}

audio_encoder::~audio_encoder() {
    swr_free(&resampler_);
    if (pending_) av_audio_fifo_free(pending_);
}

bool audio_encoder::set_up(const encoder_settings& settings, std::string& error) {
    codec_ = file_.encoder(AVMEDIA_TYPE_AUDIO, settings.codec, error);
    if (!codec_) return false;
    // Plain PCM keeps the depth that comes.
    if (settings.codec.empty() && codec_->id == AV_CODEC_ID_PCM_S16LE)
        codec_ = avcodec_find_encoder(pcm_codec(format_.bits));
    context_ = codec_ ? avcodec_alloc_context3(codec_) : nullptr;
    if (!context_ || !packet_ || !frame_) {
        error = error_text(AVERROR(ENOMEM));
        return false;
    }
    context_->sample_fmt = best_format(*codec_, format_.bits);
    context_->sample_rate = best_rate(*codec_, format_.rate);
    context_->time_base = {1, context_->sample_rate};
    if (format_.bits == 32) context_->bits_per_raw_sample = 24;
    av_channel_layout_default(&context_->ch_layout, format_.channels);
    context_->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
    if (!stream_encoder::open(settings, error)) return false;

    const int status =
        swr_alloc_set_opts2(&resampler_, &context_->ch_layout, context_->sample_fmt, context_->sample_rate,
                            &context_->ch_layout, sample_format(format_.bits), format_.rate, 0, nullptr);
    if (status >= 0 && swr_init(resampler_) >= 0)
        pending_ = av_audio_fifo_alloc(context_->sample_fmt, format_.channels, block_of_any_size);
    if (!pending_) error = "its samples cannot be converted";
    return pending_ != nullptr;
}

// Converts frames (null: what the converter holds back) behind what is pending.
bool audio_encoder::convert(const uint8_t* data, int frames, std::string& error) {
    const int room = swr_get_out_samples(resampler_, frames);
    uint8_t** planes = nullptr;
    int status = room < 1 ? room
                          : av_samples_alloc_array_and_samples(&planes, nullptr, format_.channels, room,
                                                               context_->sample_fmt, 0);
    if (room > 0 && status >= 0) {
        status = swr_convert(resampler_, planes, room, data ? &data : nullptr, frames);
        if (status > 0) status = av_audio_fifo_write(pending_, reinterpret_cast<void**>(planes), status);
    }
    if (planes) av_freep(static_cast<void*>(&planes[0]));
    av_freep(static_cast<void*>(&planes));
    if (status < 0) error = error_text(status);
    return status >= 0;
}

// Encodes the pending frames in blocks of the encoder's size; the last one may be shorter.
bool audio_encoder::encode_blocks(bool all, std::string& error) {
    const int block = context_->frame_size > 0 ? context_->frame_size : block_of_any_size;
    for (int ready; (ready = av_audio_fifo_size(pending_)) >= block || (all && ready > 0);) {
        av_frame_unref(frame_);
        frame_->nb_samples = std::min(ready, block);
        frame_->format = context_->sample_fmt;
        frame_->sample_rate = context_->sample_rate;
        int status = av_channel_layout_copy(&frame_->ch_layout, &context_->ch_layout);
        if (status >= 0) status = av_frame_get_buffer(frame_, 0);
        if (status >= 0)
            status = av_audio_fifo_read(pending_, reinterpret_cast<void**>(frame_->data), frame_->nb_samples);
        if (status < 0) {
            error = error_text(status);
            return false;
        }
        frame_->pts = encoded_;
        encoded_ += frame_->nb_samples;
        if (!encode(frame_, error)) return false;
    }
    return true;
}

bool audio_encoder::write(const void* data, uint32_t bytes, int64_t pts, std::string& error) {
    const auto* samples = static_cast<const uint8_t*>(data);
    const int frames = static_cast<int>(bytes) / format_.frame_bytes();
    const int64_t given = av_rescale(pts, format_.rate, 1000000);
    if (taken_ < 0) {
        taken_ = given;
        encoded_ = av_rescale(pts, context_->sample_rate, 1000000);
    }
    const int64_t hole = (given - taken_) * 1000 / format_.rate;  // milliseconds
    if (hole >= shortest_hole_ms && hole <= longest_hole_ms) {
        const auto missing = static_cast<size_t>(given - taken_);
        const std::vector<uint8_t> silence(missing * static_cast<size_t>(format_.frame_bytes()),
                                           format_.bits == 8 ? 0x80 : 0);
        if (!convert(silence.data(), static_cast<int>(missing), error)) return false;
        taken_ = given;
    }
    if (format_.bits == 32) {
        scaled_.resize(bytes);
        for (uint32_t i = 0; i + 4 <= bytes; i += 4) {
            int32_t value;
            std::memcpy(&value, samples + i, 4);
            value = std::clamp(value, -full_scale, full_scale - 1) * 256;
            std::memcpy(scaled_.data() + i, &value, 4);
        }
        samples = scaled_.data();
    }
    taken_ += frames;
    return convert(samples, frames, error) && encode_blocks(false, error);
}

bool audio_encoder::drain(std::string& error) {
    return convert(nullptr, 0, error) && encode_blocks(true, error) && encode(nullptr, error);
}

}  // namespace platform::mmf
