// A media file being written. It has its name only once it is whole: until then it lies beside it as "NAME.part".
#pragma once

#include <memory>
#include <string>

struct AVCodec;
struct AVDictionary;
struct AVFormatContext;
struct AVPacket;
struct AVStream;

namespace platform::mmf {

class output_file {
  public:
    // The container follows from the name: .wav, .flac, .mp4, .mkv, .y4m, or a number pattern such as "%04d.png".
    static std::unique_ptr<output_file> create(const std::string& path, std::string& error);
    ~output_file();  // removes what was not finished
    output_file(const output_file&) = delete;
    output_file& operator=(const output_file&) = delete;

    // The encoder of that name, or the container's usual one for the media type (AVMediaType).
    const AVCodec* encoder(int media_type, const std::string& name, std::string& error) const;
    bool wants_global_headers() const;
    AVStream* add_stream();

    bool start(std::string& error);  // after all streams were added and set up
    bool write(AVPacket* packet, std::string& error);
    bool finish(std::string& error);  // what was written is on the disk under the file's name

  private:
    output_file() = default;
    bool is_sequence() const;

    std::string path_, part_path_;
    AVFormatContext* format_ = nullptr;
    bool opened_ = false, started_ = false, finished_ = false;
};

}  // namespace platform::mmf
