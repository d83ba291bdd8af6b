// A media file opened for reading through a graph: file source -> writer.
#pragma once

#include <kel.h>
#include <mm/mmf.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "handles.hpp"
#include "session.hpp"

namespace kel_tool {

// What is asked of an input; streams that are not wanted are not decoded.
struct media_wishes {
    bool audio = true;
    bool video = true;
    int audio_bits = 32;    // 8, 16, or 32 for S24.8LE
    int video_buffers = 8;  // pictures that may be out at a time
};

// Audio and video may be read in two threads, one each; everything else belongs to one thread.
class media_input {
  public:
    // Throws failure when the file cannot be read or has nothing that is wanted.
    media_input(const session& session, const std::string& path, const media_wishes& wishes = {});
    ~media_input();
    media_input(const media_input&) = delete;
    media_input& operator=(const media_input&) = delete;

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] int64_t duration() const;                 // microseconds; 0: the file does not say
    [[nodiscard]] const kel_channel_format* audio() const;  // null without audio
    [[nodiscard]] const kel_channel_format* video() const;  // null without video; NV12
    [[nodiscard]] const std::string& left_out() const { return left_out_; }  // streams that cannot be decoded

    // Goes to a time in microseconds: the next slices are those that reach into it. Before anything reads.
    void seek(int64_t pts);

    // The next slice, which the input keeps until the next call (take a reference to hold it longer); false at the end.
    bool read_audio(kel_slice& slice);
    bool read_video(kel_slice& slice);

    // What was found damaged since the last call, in words, or empty. A stream is judged when it ends, the file's length
    // when all have. Any thread.
    std::string damage();

  private:
    bool read(kel_channel* channel, kel_slice& slice);
    kel_channel* connect(kel_channel* output, kel_channel* input);
    std::string last_event();

    std::string path_, left_out_;
    graph_handle graph_;
    kel_filter* source_ = nullptr;  // the graph's
    kel_channel* audio_ = nullptr;  // the writer's
    kel_channel* video_ = nullptr;
    std::atomic<int64_t> audio_end_{0}, video_end_{0};  // microseconds, of what was read
    std::atomic<int> open_streams_{0};
};

}  // namespace kel_tool
