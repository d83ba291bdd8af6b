// What the threads of one run share: when to stop, how far they are, and what the road did.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "input.hpp"
#include "output.hpp"

namespace kel_tool {

// Counters of the road, each written by one thread and read when that has ended.
struct road_stats {
    struct pool {
        int32_t buffers = 0, peak = 0;
        int64_t waits = 0;
        void note(kel_buffer_pool& used);
    };
    struct queue {
        uint32_t peak = 0, limit = 0;
        void note(const slice_queue& used);
    };
    pool mixed, decoded_pictures, finished_pictures;
    queue sound, to_drawing, to_encoder;
    int64_t audio_bytes = 0, blit_bytes = 0,
            video_bytes = 0;                      // copied by the reader, by blits, by the reader
    int64_t worst_drift = 0, dropped_frames = 0;  // microseconds; frames of the inputs
};

// A buffer of a pool, waited for until the road stops: then null.
kel_buffer* acquire(kel_buffer_pool* pool, road_stats::pool& stats, const std::atomic<bool>& stop);

class road {
  public:
    road(media_output& output, bool accept_damage) : output_(output), accept_damage_(accept_damage) {}

    // Runs a part of the road in a thread; what it throws ends the road without a file.
    std::thread start(std::function<void()> work);

    // Whether to end: after a failure, or properly because the user wishes so.
    [[nodiscard]] const std::atomic<bool>& stop() const { return stop_; }
    void end_early() { stop_ = true; }

    // To be called where an input's stream ended; throws failure when the file is damaged and that matters.
    void check(media_input& input);

    // Looks at the heap while the road works; once it is warm the heap should not grow any more.
    static constexpr int64_t warm_after = 200;  // pictures or blocks
    void note_heap();
    [[nodiscard]] int64_t heap_growth() const { return heap_now_ - heap_when_warm_; }  // bytes
    [[nodiscard]] bool was_warm() const { return heap_when_warm_ > 0; }

    // Throws what the first failing thread threw.
    void rethrow();

    media_output& output() { return output_; }
    std::atomic<int64_t> audio_pts{0}, video_pts{0};  // microseconds of the output
    std::atomic<int64_t> pictures{0}, blocks{0};
    road_stats stats;

  private:
    media_output& output_;
    bool accept_damage_;
    std::atomic<bool> stop_{false};
    std::mutex mutex_;  // guards first_failure_
    std::exception_ptr first_failure_;
    int64_t heap_when_warm_ = 0, heap_now_ = 0;  // bytes; 0: not yet warm
};

}  // namespace kel_tool
