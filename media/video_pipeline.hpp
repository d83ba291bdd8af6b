// The pictures' way from the decoder to the output. Decoding and drawing have a thread each; without filters, text or
// another size there is nothing to draw, and the decoder's pictures go straight to the output.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "audio_track.hpp"
#include "overlay.hpp"
#include "pipeline.hpp"
#include "video_chain.hpp"

namespace kel_tool {

struct picture_work {
    std::vector<chosen_filter> filters;
    std::optional<overlay_options> text;
    picture_size size;  // of the output; the input's pictures are fitted into it

    // Whether a picture of the input's size has to be drawn anew.
    [[nodiscard]] bool draws(const kel_channel_format& input) const {
        return !filters.empty() || text || size.width != input.video.width ||
               size.height != input.video.height;
    }
};

class picture_road {
  public:
    picture_road(session& session, road& road, media_input& input, const picture_work& work,
                 const time_span& span);
    ~picture_road();

    [[nodiscard]] bool has_to_draw() const { return draws_; }

    void decode();  // until the end; to the drawing thread or the output. Throws failure.
    void draw();    // until the decoder has ended. Throws failure.
    void abort() { decoded_.abort(); }

  private:
    void fit(const kel_slice& decoded, const kel_slice& target, const kel_rect& place);
    void note_sent(const kel_slice& slice);

    session& session_;
    road& road_;
    media_input& input_;
    picture_work work_;
    time_span span_;
    bool draws_;
    int frame_rate_;
    slice_queue& output_;
    kel_rect place_;        // of the picture in the output
    slice_queue decoded_;   // between the two threads
    buffer_handle fitted_;  // what the chain reads
    pool_handle finished_;
};

}  // namespace kel_tool
