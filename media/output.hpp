// A media file being written through a graph: reader -> file sink, pulled by a thread of its own.
#pragma once

#include <kel.h>
#include <mm/mmf.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "handles.hpp"
#include "session.hpp"
#include "slice_queue.hpp"

namespace kel_tool {

struct picture_size {
    int width = 0, height = 0;
};

struct output_settings {
    std::string path;
    std::optional<kel_audio_format> audio;  // U8, S16LE or S24.8LE
    std::optional<picture_size> video;      // both even
    int frame_rate = 0;                     // a hint for the encoder; the pictures' own times count
    std::string audio_codec, video_codec, video_options;  // empty: the container's usual ones
    int quality = -1;                                     // 0 to 100; -1: the usual one
};

// Refuses an output that is an input or a folder, or that exists already unless it may be replaced.
void check_output_path(const std::string& path, const std::vector<std::string>& inputs, bool may_replace);

class media_output {
  public:
    media_output(const session& session, const output_settings& settings);  // throws failure
    ~media_output();  // what is not finished leaves no file behind
    media_output(const media_output&) = delete;
    media_output& operator=(const media_output&) = delete;

    // For one sending thread each; null for what is not written. Close them at the end of the stream.
    [[nodiscard]] slice_queue* audio() { return audio_ ? &*audio_ : nullptr; }
    [[nodiscard]] slice_queue* video() { return video_ ? &*video_ : nullptr; }

    // Waits for the end of the writing, up to so long; whether it has come.
    bool wait(int32_t timeout_ms);

    // Waits until the file is whole; throws failure when it cannot be written.
    void finish();

    // Ends the writing at once and leaves no file. The senders find their queues closed. Any thread.
    void abandon();

  private:
    void pump();
    void write();

    graph_handle graph_;
    kel_filter* sink_ = nullptr;  // the graph's
    std::optional<slice_queue> audio_, video_;
    std::string error_;  // the pump's; read when it has ended
    std::atomic<bool> failed_{false}, abandoned_{false};
    std::mutex mutex_;
    std::condition_variable ended_cond_;
    bool ended_ = false;  // guarded by mutex_
    std::thread pump_;
};

}  // namespace kel_tool
