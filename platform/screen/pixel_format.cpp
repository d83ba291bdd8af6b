#include "screen/pixel_format.hpp"

#include <screen/screen.h>

#include <cstdint>
#include <iterator>

namespace platform::screen {
namespace {

struct format_row {
    int number;
    int plane_count;
    plane_shape planes[3];
};

constexpr format_row formats[] = {
    {SCREEN_FORMAT_RGB565, 1, {{2, 1, 1}}},
    {SCREEN_FORMAT_RGBA8888, 1, {{4, 1, 1}}},
    {SCREEN_FORMAT_RGBX8888, 1, {{4, 1, 1}}},
    {SCREEN_FORMAT_YVU9, 3, {{1, 1, 1}, {1, 4, 4}, {1, 4, 4}}},
    {SCREEN_FORMAT_YUV420, 3, {{1, 1, 1}, {1, 2, 2}, {1, 2, 2}}},
    {SCREEN_FORMAT_NV12, 2, {{1, 1, 1}, {2, 2, 2}}},
    {SCREEN_FORMAT_YV12, 3, {{1, 1, 1}, {1, 2, 2}, {1, 2, 2}}},
    {SCREEN_FORMAT_UYVY, 1, {{4, 2, 1}}},
    {SCREEN_FORMAT_YUY2, 1, {{4, 2, 1}}},
    {SCREEN_FORMAT_YVYU, 1, {{4, 2, 1}}},
    {SCREEN_FORMAT_V422, 1, {{4, 2, 1}}},
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
    layout = {format, width, height, row->plane_count, {}, 0};
    for (int i = 0; i < layout.plane_count; ++i) {
        plane& p = layout.planes[i];
        p = {row->planes[i], layout.size, 0};
        p.stride = i == 0 ? round_up(static_cast<int>(p.row_bytes(width)), row_alignment)
                          : layout.stride() * p.shape.unit / p.shape.column_step;
        const uint64_t size = layout.size + uint64_t{static_cast<unsigned>(p.stride)} * p.rows(height);
        if (size > largest_frame) return false;
        layout.size = static_cast<std::size_t>(size);
    }
    return true;
}

std::span<const int> displayable_formats() {
    return shown;
}

}  // namespace platform::screen
