// Where the pixels of a frame lie, for every pixel format number.
#pragma once

#include <cstddef>
#include <span>

namespace platform::screen {

inline constexpr int row_alignment = 64;         // bytes; also the alignment of a frame's first row
inline constexpr int largest_dimension = 16384;  // pixels
inline constexpr std::size_t largest_frame = std::size_t{256} << 20;  // bytes

// A plane holds one unit for each group of column_step × row_step pixels.
struct plane_shape {
    int unit;  // bytes
    int column_step, row_step;
};

struct plane {
    plane_shape shape;
    std::size_t offset;  // bytes from the start of the frame
    int stride;          // bytes from one row to the next
    std::size_t row_bytes(int width) const {
        const int units = (width + shape.column_step - 1) / shape.column_step;
        return static_cast<std::size_t>(units) * static_cast<std::size_t>(shape.unit);
    }
    int rows(int height) const { return (height + shape.row_step - 1) / shape.row_step; }
};

// Planes stand in memory order: for planar formats luma first.
struct frame_layout {
    int format;
    int width, height;  // pixels
    int plane_count;
    plane planes[3];
    std::size_t size;  // bytes, all planes
    int stride() const { return planes[0].stride; }
};

bool is_known_format(int format);

// False when the format is unknown or the size is not positive or too large.
bool lay_out_frame(int format, int width, int height, frame_layout& layout);

// The formats that a display of the stand-in can show.
std::span<const int> displayable_formats();

}  // namespace platform::screen
