// One input's audio on its way into a mixer: filtered, and kept at its time.
#pragma once

#include <kel.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "audio_filters.hpp"
#include "input.hpp"

namespace kel_tool {

// The part of the input's time that is played, in microseconds.
struct time_span {
    int64_t from = 0;
    int64_t to = INT64_MAX;
};

class audio_track {
  public:
    // The span's beginning lies `delay` microseconds after the mix begins.
    audio_track(media_input& input, kel_audio_mixer* mixer, const std::vector<filter_spec>& filters,
                const time_span& span, int64_t delay);
    ~audio_track() { kel_release_audio_mixer_track(track_); }
    audio_track(const audio_track&) = delete;
    audio_track& operator=(const audio_track&) = delete;

    // Gives the mixer what it wants for its buffer; false when the input has ended. Throws failure.
    bool feed();

    [[nodiscard]] int32_t room() const { return kel_get_audio_mixer_track_num_samples_left(track_); }
    void fill_with_silence() { kel_feed_audio_mixer_track_silence(track_, room()); }

    [[nodiscard]] media_input& input() { return input_; }
    [[nodiscard]] int64_t dropped() const { return dropped_; }          // input frames left out against drift
    [[nodiscard]] int64_t worst_drift() const { return worst_drift_; }  // microseconds

  private:
    bool read();
    void narrow();
    void keep_time();
    void cut_end();

    media_input& input_;
    time_span span_;
    int64_t delay_;
    kel_audio_format format_;  // the input's
    int32_t mixer_rate_;
    kel_audio_mixer_track* track_;
    audio_filters filters_;
    bool needs_narrow_;
    converter_handle narrow_;
    pool_handle narrow_pool_;  // of one buffer
    buffer_handle narrow_buffer_;
    kel_slice slice_ = {};  // the input's until it is read on
    int32_t start_ = 0;     // frames of it that were taken
    int64_t silence_ = 0;   // frames due before it, at the mixer's rate
    bool started_ = false;
    int64_t dropped_ = 0, worst_drift_ = 0;
};

}  // namespace kel_tool
