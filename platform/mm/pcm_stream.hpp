// Decoded audio as interleaved PCM of one format, in blocks of any size.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "mm/stream_decoder.hpp"

struct SwrContext;

namespace platform::mmf {

struct pcm_format {
    int rate;  // frames per second
    int channels;
    int bits;  // 8 unsigned, 16 signed, 32: signed 24-bit full scale in 32 bits
    int frame_bytes() const { return channels * bits / 8; }
};

class pcm_stream {
  public:
    // Converts to `bits` and at most `most_channels` channels; rate as in the file. Null when that cannot be done.
    static std::unique_ptr<pcm_stream> open(std::unique_ptr<stream_decoder> decoder, int bits,
                                            int most_channels, std::string& error);
    ~pcm_stream();
    pcm_stream(const pcm_stream&) = delete;
    pcm_stream& operator=(const pcm_stream&) = delete;

    const pcm_format& format() const { return format_; }
    const stream_decoder& decoder() const { return *decoder_; }

    // Writes up to `frames` frames and sets the pts (microseconds) of the first. 0 at the end.
    int read(void* out, int frames, int64_t& pts);
    bool seek(int64_t position);

  private:
    pcm_stream(std::unique_ptr<stream_decoder> decoder, pcm_format format);
    bool convert_frame();
    void append(const uint8_t* samples, int frames);
    int ready() const;

    std::unique_ptr<stream_decoder> decoder_;
    pcm_format format_;
    SwrContext* resampler_ = nullptr;
    // The frame format that the converter is set up for.
    int source_format_ = -1, source_rate_ = 0, source_channels_ = 0;
    std::vector<uint8_t> pending_;  // converted and not yet read
    size_t taken_ = 0;              // bytes of it that were read
    int64_t base_pts_ = 0;          // of the first frame since the last time that nothing was pending
    int64_t frames_since_base_ = 0;
    bool ended_ = false;
};

}  // namespace platform::mmf
