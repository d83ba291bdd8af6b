// One stream of a media file, demultiplexed and decoded on its own: each channel of a file source reads the file for
// itself, so channels may be pulled from different threads and in any order without one waiting for the other.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

struct AVFormatContext;
struct AVCodecContext;
struct AVFrame;
struct AVPacket;
struct AVStream;

namespace platform::mmf {

// What FFmpeg calls an error, in words.
std::string error_text(int error);

class stream_decoder {
  public:
    enum class kind { audio, video };
    enum class result { frame, end };

    // Opens the file and its best stream of the kind, to be decoded by that many threads (0: one per processor). Null when it has none that can be decoded; `error` says why when
    // the file itself cannot be read.
    static std::unique_ptr<stream_decoder> open(const std::string& path, kind wanted, int threads,
                                                std::string& error);
    ~stream_decoder();
    stream_decoder(const stream_decoder&) = delete;
    stream_decoder& operator=(const stream_decoder&) = delete;

    // The next decoded frame; it belongs to the decoder and is valid until the next call. Damaged parts are left out.
    result next();
    const AVFrame& frame() const { return *frame_; }
    int64_t pts() const { return pts_; }  // microseconds from the file's start

    // Continues with the first frame that reaches beyond a position in microseconds. False when it cannot.
    bool seek(int64_t position);

    const AVCodecContext& codec() const { return *codec_; }
    const AVStream& stream() const { return *stream_; }
    int64_t duration() const;   // microseconds; 0 when unknown
    double frame_rate() const;  // 0 when unknown
    int rotation() const;       // degrees clockwise to show the picture upright: 0, 90, 180, 270

    // What was left out so far, in words; empty: nothing.
    const std::string& damage() const { return damage_; }
    void leave_out(const std::string& why);  // one part more

  private:
    stream_decoder();
    bool receive();
    bool send_next_packet();
    void set_pts();

    AVFormatContext* format_ = nullptr;
    AVCodecContext* codec_ = nullptr;
    AVStream* stream_ = nullptr;
    AVPacket* packet_ = nullptr;
    AVFrame* frame_ = nullptr;
    int64_t pts_ = 0;
    int64_t next_pts_ = 0;     // of a frame that carries none
    int64_t skip_until_ = -1;  // frames that end before are left out after a seek
    int damaged_parts_ = 0;
    bool draining_ = false;
    std::string damage_;
};

}  // namespace platform::mmf
