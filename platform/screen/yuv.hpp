// YUV frames to and from RGB, and among each other, by libswscale.
#pragma once

#include "screen/pixel_view.hpp"

struct SwsContext;

namespace platform::screen {

bool is_yuv(int format);

// The area's edges moved up and left to whole groups of pixels that share colour, or to the end of the frame.
rectangle whole_groups(const frame_layout& layout, const rectangle& area);

// The smallest such area around it.
rectangle surrounding_groups(const frame_layout& layout, const rectangle& area);

// One area to another of the same format and size.
void copy_area(const frame_view& source, const rectangle& from, const frame_view& destination,
               const rectangle& to);

// One reusable libswscale context: made anew only when sizes or formats change. Areas are whole groups.
class yuv_converter {
  public:
    yuv_converter() = default;
    ~yuv_converter();
    yuv_converter(const yuv_converter&) = delete;
    yuv_converter& operator=(const yuv_converter&) = delete;

    // Of equal sizes; the RGB pixels have four bytes and, as a destination, are scratch memory.
    void to_rgb(const frame_view& source, const rectangle& from, const rgb_view& destination);
    void from_rgb(const rgb_view& source, const frame_view& destination, const rectangle& to);

    void scale(const frame_view& source, const rectangle& from, const frame_view& destination,
               const rectangle& to, bool smooth);
    void fill(const frame_view& destination, const rectangle& area, uint32_t color);  // 0xAARRGGBB

  private:
    struct picture;
    picture readable(const frame_view& source, const rectangle& from);
    void convert(const picture& source, const picture& destination, bool smooth);
    void convert_into(const picture& source, const frame_view& destination, const rectangle& to, bool smooth);

    SwsContext* context_ = nullptr;
    scratch_memory source_bytes_, destination_bytes_, tile_bytes_;
};

}  // namespace platform::screen
