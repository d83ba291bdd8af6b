#include "screen/pixel_format.hpp"

#include <screen/screen.h>

#include <cstdint>
#include <iterator>

namespace platform::screen {
namespace {

struct format_row {
    int number;
    int bytes;          // per pixel in the first plane
    int width_step;     // pixels that share one unit of the first plane: widths are rounded up to it
    int chroma_planes;  // after the first; one plane holds both components interleaved
    int subsampling;    // of those planes, in both directions
};

constexpr format_row formats[] = {
    {SCREEN_FORMAT_RGB565, 2, 1, 0, 1},   {SCREEN_FORMAT_RGBA8888, 4, 1, 0, 1},
    {SCREEN_FORMAT_RGBX8888, 4, 1, 0, 1}, {SCREEN_FORMAT_YVU9, 1, 1, 2, 4},
    {SCREEN_FORMAT_YUV420, 1, 1, 2, 2},   {SCREEN_FORMAT_NV12, 1, 1, 1, 2},
    {SCREEN_FORMAT_YV12, 1, 1, 2, 2},     {SCREEN_FORMAT_UYVY, 2, 2, 0, 1},
    {SCREEN_FORMAT_YUY2, 2, 2, 0, 1},     {SCREEN_FORMAT_YVYU, 2, 2, 0, 1},
    {SCREEN_FORMAT_V422, 2, 2, 0, 1},
};

constexpr int shown[] = {
    SCREEN_FORMAT_RGB565, SCREEN_FORMAT_RGBA8888, SCREEN_FORMAT_RGBX8888,
    SCREEN_FORMAT_YUV420, SCREEN_FORMAT_NV12,     SCREEN_FORMAT_YV12,
    SCREEN_FORMAT_UYVY,   SCREEN_FORMAT_YUY2,     SCREEN_FORMAT_YVYU,
};

const format_row* find_format(int number) {
    for (const format_row& row : formats) {
        if (row.number == number) return &row;
    }
    return nullptr;
}

constexpr int round_up(int value, int multiple) {
    return (value + multiple - 1) / multiple * multiple;
}

}  // namespace

bool is_known_format(int format) {
    return find_format(format) != nullptr;
}

bool lay_out_frame(int format, int width, int height, frame_layout& layout) {
    const format_row* row = find_format(format);
    if (!row || width < 1 || height < 1 || width > largest_dimension || height > largest_dimension)
        return false;
    layout = {format, width, height, 1 + row->chroma_planes, {}, 0};
    const int stride = round_up(round_up(width, row->width_step) * row->bytes, row_alignment);
    for (int i = 0; i < layout.plane_count; ++i) {
        // A plane with both components has pairs at half the rate, so its rows are as long as the luma rows.
        const int divisor = i == 0 || row->chroma_planes == 1 ? 1 : row->subsampling;
        const int rows = i == 0 ? height : round_up(height, row->subsampling) / row->subsampling;
        layout.planes[i] = {layout.size, stride / divisor, rows};
        layout.size += static_cast<std::size_t>(stride / divisor) * static_cast<std::size_t>(rows);
        if (layout.size > INT32_MAX) return false;
    }
    return true;
}

std::span<const int> displayable_formats() {
    return shown;
}

}  // namespace platform::screen
