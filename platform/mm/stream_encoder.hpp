// One stream of an output file and its encoder.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "mm/output_file.hpp"
#include "mm/pcm_stream.hpp"

struct AVAudioFifo;
struct AVBufferPool;
struct AVCodecContext;
struct AVFrame;
struct SwrContext;
struct SwsContext;

namespace platform::mmf {

struct encoder_settings {
    std::string codec;    // an encoder's name; empty: the container's usual one
    std::string options;  // of the encoder, "name=value:name=value"
    int quality;          // 0 to 100, video
    int threads;          // 0: as many as there are processors
};

class stream_encoder {
  public:
    virtual ~stream_encoder();
    stream_encoder(const stream_encoder&) = delete;
    stream_encoder& operator=(const stream_encoder&) = delete;

    // Takes one buffer that plays from `pts` (microseconds) on. False with the reason when it cannot be written.
    virtual bool write(const void* data, uint32_t bytes, int64_t pts, std::string& error) = 0;
    // Writes what the encoder still holds.
    virtual bool drain(std::string& error) = 0;

  protected:
    explicit stream_encoder(output_file& file);
    bool open(const encoder_settings& settings, std::string& error);
    bool encode(const AVFrame* frame, std::string& error);  // null ends the stream

    output_file& file_;
    const AVCodec* codec_ = nullptr;
    AVCodecContext* context_ = nullptr;
    AVStream* stream_ = nullptr;
    AVPacket* packet_;
    AVFrame* frame_;
};

// PCM of 8, 16 or 32 bits (of these, 24 carry the value) in the encoder's own format and block size.
class audio_encoder : public stream_encoder {
  public:
    static std::unique_ptr<audio_encoder> open(output_file& file, const pcm_format& format,
                                               const encoder_settings& settings, std::string& error);
    ~audio_encoder() override;
    bool write(const void* data, uint32_t bytes, int64_t pts, std::string& error) override;
    bool drain(std::string& error) override;

  private:
    audio_encoder(output_file& file, const pcm_format& format) : stream_encoder(file), format_(format) {}
    bool set_up(const encoder_settings& settings, std::string& error);
    bool convert(const uint8_t* data, int frames, std::string& error);
    bool encode_blocks(bool all, std::string& error);

    pcm_format format_;
    SwrContext* resampler_ = nullptr;
    AVAudioFifo* pending_ = nullptr;
    std::vector<uint8_t> scaled_;  // 32-bit values moved to full scale
    int64_t taken_ = -1;           // frames up to the end of what was written, at the input's rate; -1: none
    int64_t encoded_ = 0;          // the same at the encoder's rate, of what was encoded
};

// NV12 pictures; an odd last column or row is left out.
class video_encoder : public stream_encoder {
  public:
    static std::unique_ptr<video_encoder> open(output_file& file, int width, int height, int frame_rate,
                                               const encoder_settings& settings, std::string& error);
    ~video_encoder() override;
    bool write(const void* data, uint32_t bytes, int64_t pts, std::string& error) override;
    bool drain(std::string& error) override { return encode(nullptr, error); }

  private:
    explicit video_encoder(output_file& file) : stream_encoder(file) {}
    bool get_picture();

    int rows_ = 0;  // of luma in a picture that comes
    SwsContext* scaler_ = nullptr;
    AVBufferPool* pictures_ = nullptr;
    int64_t last_ = INT64_MIN;  // time of the last picture, in the encoder's units
};

}  // namespace platform::mmf
