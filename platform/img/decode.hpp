// File bytes to a decoded picture, and the picture to the caller's rows.
#pragma once

#include "img/file_data.hpp"

extern "C" {
#include <libavutil/frame.h>
}

namespace platform::img {

struct frame_deleter {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using frame = std::unique_ptr<AVFrame, frame_deleter>;

// How the decoder's rows become upright ones, as EXIF numbers it: 1 as they are, 2 to 4 mirrored or upside down,
// 5 to 8 with rows and columns exchanged.
int orientation_of(const AVFrame& picture);
inline bool exchanges_axes(int orientation) {
    return orientation >= 5;
}

int decode(const file_data& file, frame& picture);  // IMG_ERR_*

// Scales the picture to the size in `target` and writes it there upright. IMG_ERR_*.
int deliver(const AVFrame& picture, const img_t& target);

}  // namespace platform::img
