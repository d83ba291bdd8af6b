// The sound's way: tracks into the mixer, mixed blocks into the output.
#pragma once

#include <memory>
#include <vector>

#include "audio_track.hpp"
#include "pipeline.hpp"

namespace kel_tool {

struct audio_input {
    media_input* input;
    std::vector<filter_spec> filters;
    int64_t delay = 0;  // microseconds of the output before it begins
};

class audio_road {
  public:
    // Mixes into the format; inputs without audio are not for here. Throws failure.
    audio_road(const session& session, road& road, const std::vector<audio_input>& inputs,
               const kel_audio_format& format, float gain, const time_span& span);

    // Mixes until all inputs have ended or the road stops, and closes the output's audio. Throws failure.
    void run();

  private:
    bool all_full() const;
    void send_mixed();
    void send(kel_slice& slice);
    void send_rest();

    road& road_;
    kel_audio_format format_;
    pool_handle pool_;
    mixer_handle mixer_;
    std::vector<std::unique_ptr<audio_track>> tracks_;  // those that have not ended
};

}  // namespace kel_tool
