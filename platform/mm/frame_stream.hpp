// Decoded video as NV12 pictures of one even size, upright.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "mm/stream_decoder.hpp"

struct SwsContext;

namespace platform::mmf {

class picture_stream {
  public:
    static std::unique_ptr<picture_stream> open(std::unique_ptr<stream_decoder> decoder, std::string& error);
    ~picture_stream();
    picture_stream(const picture_stream&) = delete;
    picture_stream& operator=(const picture_stream&) = delete;

    int width() const { return width_; }    // pixels, even
    int height() const { return height_; }  // pixels, even
    const stream_decoder& decoder() const { return *decoder_; }

    // Writes the next picture, `stride` bytes between rows, the chroma right after height() rows. False at the end.
    bool read(void* out, int stride, int64_t& pts);
    bool seek(int64_t position) { return decoder_->seek(position); }

  private:
    explicit picture_stream(std::unique_ptr<stream_decoder> decoder);
    bool convert_frame(uint8_t* out, int stride);

    std::unique_ptr<stream_decoder> decoder_;
    int rotation_;  // degrees clockwise
    int width_ = 0, height_ = 0;
    SwsContext* scaler_ = nullptr;
    std::vector<uint8_t> lying_;  // a picture before it is turned
};

}  // namespace platform::mmf
