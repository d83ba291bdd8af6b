#include "screen/yuv.hpp"

#include <algorithm>
#include <cstring>
#include <new>

extern "C" {
#include <libswscale/swscale.h>
}

namespace platform::screen {
namespace {

// The same bits on every machine.
constexpr int exact = SWS_ACCURATE_RND | SWS_BITEXACT | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP;

struct yuv_format {
    int number;
    AVPixelFormat pixel_format;
    bool v_first;  // the chroma planes stand in the other order
};

// V422 has no name in libswscale: its bytes are turned into UYVY and back on the way.
constexpr yuv_format yuv_formats[] = {
    {SCREEN_FORMAT_YVU9, AV_PIX_FMT_YUV410P, true},  {SCREEN_FORMAT_YUV420, AV_PIX_FMT_YUV420P, false},
    {SCREEN_FORMAT_NV12, AV_PIX_FMT_NV12, false},    {SCREEN_FORMAT_YV12, AV_PIX_FMT_YUV420P, true},
    {SCREEN_FORMAT_UYVY, AV_PIX_FMT_UYVY422, false}, {SCREEN_FORMAT_YUY2, AV_PIX_FMT_YUYV422, false},
    {SCREEN_FORMAT_YVYU, AV_PIX_FMT_YVYU422, false}, {SCREEN_FORMAT_V422, AV_PIX_FMT_UYVY422, false},
};

const yuv_format* find_yuv(int format) {
    for (const yuv_format& row : yuv_formats) {
        if (row.number == format) return &row;
    }
    return nullptr;
}

struct group {
    int width = 1, height = 1;  // pixels
};

group group_of(const frame_layout& layout) {
    group g;
    for (int i = 0; i < layout.plane_count; ++i) {
        g.width = std::max(g.width, layout.planes[i].shape.column_step);
        g.height = std::max(g.height, layout.planes[i].shape.row_step);
    }
    return g;
}

int round_down(int value, int multiple) {
    return value / multiple * multiple;
}

// V422 and UYVY turn into each other: the first and third byte of each group change places.
void swap_chroma(const frame_view& frame, const rectangle& area) {
    for (int y = area.y; y < area.y + area.height; ++y) {
        unsigned char* unit = frame.at(0, area.x, y);
        unsigned char* const end = unit + frame.layout.planes[0].row_bytes(area.width);
        for (; unit < end; unit += 4) std::swap(unit[0], unit[2]);
    }
}

}  // namespace

bool is_yuv(int format) {
    return find_yuv(format) != nullptr;
}

rectangle whole_groups(const frame_layout& layout, const rectangle& area) {
    const group g = group_of(layout);
    const auto edge = [](int value, int end, int step) {
        return value == end ? end : round_down(value, step);
    };
    const int left = round_down(area.x, g.width), top = round_down(area.y, g.height);
    return {left, top, edge(area.x + area.width, layout.width, g.width) - left,
            edge(area.y + area.height, layout.height, g.height) - top};
}

rectangle surrounding_groups(const frame_layout& layout, const rectangle& area) {
    const group g = group_of(layout);
    const int left = round_down(area.x, g.width), top = round_down(area.y, g.height);
    const int right = std::min(round_down(area.x + area.width + g.width - 1, g.width), layout.width);
    const int bottom = std::min(round_down(area.y + area.height + g.height - 1, g.height), layout.height);
    return {left, top, right - left, bottom - top};
}

void copy_area(const frame_view& source, const rectangle& from, const frame_view& destination,
               const rectangle& to) {
    for (int i = 0; i < source.layout.plane_count; ++i) {
        const plane& p = source.layout.planes[i];
        const unsigned char* in = source.at(i, from.x, from.y);
        unsigned char* out = destination.at(i, to.x, to.y);
        for (int row = p.rows(from.height); row > 0; --row) {
            memcpy(out, in, p.row_bytes(from.width));
            in += p.stride;
            out += destination.layout.planes[i].stride;
        }
    }
}

struct yuv_converter::picture {
    AVPixelFormat format;
    int width, height;
    uint8_t* planes[4];
    int strides[4];

    explicit picture(const rgb_view& view)
        : format(view.has_alpha() ? AV_PIX_FMT_BGRA : AV_PIX_FMT_BGR0),
          width(view.width),
          height(view.height),
          planes{view.bytes},
          strides{view.stride} {}
    picture(const frame_view& frame, const rectangle& area)
        : format(find_yuv(frame.layout.format)->pixel_format),
          width(area.width),
          height(area.height),
          planes{},
          strides{} {
        const bool v_first = find_yuv(frame.layout.format)->v_first;
        for (int i = 0; i < frame.layout.plane_count; ++i) {
            const int place = v_first && i > 0 ? 3 - i : i;
            planes[place] = frame.at(i, area.x, area.y);
            strides[place] = frame.layout.planes[i].stride;
        }
    }
};

yuv_converter::~yuv_converter() {
    sws_freeContext(context_);
}

void yuv_converter::convert(const picture& source, const picture& destination, bool smooth) {
    context_ = sws_getCachedContext(context_, source.width, source.height, source.format, destination.width,
                                    destination.height, destination.format,
                                    (smooth ? SWS_BILINEAR : SWS_POINT) | exact, nullptr, nullptr, nullptr);
    if (!context_) throw std::bad_alloc();
    sws_scale(context_, source.planes, source.strides, 0, source.height, destination.planes,
              destination.strides);
}

// The area as libswscale can read it.
yuv_converter::picture yuv_converter::readable(const frame_view& source, const rectangle& from) {
    if (source.layout.format != SCREEN_FORMAT_V422) return {source, from};
    frame_view copy = working_frame(source_bytes_, SCREEN_FORMAT_V422, from.width, from.height);
    copy_area(source, from, copy, copy.area());
    swap_chroma(copy, copy.area());
    return {copy, copy.area()};
}

frame_view yuv_converter::working_frame(scratch_memory& memory, int format, int width, int height) {
    frame_layout layout;
    lay_out_frame(format, width, height, layout);
    return {layout, memory.bytes(layout.size)};
}

// By way of scratch memory, since libswscale may write beyond the end of a row.
void yuv_converter::convert_into(const picture& source, const frame_view& destination, const rectangle& to,
                                 bool smooth) {
    const frame_view result =
        working_frame(destination_bytes_, destination.layout.format, to.width, to.height);
    convert(source, {result, result.area()}, smooth);
    if (result.layout.format == SCREEN_FORMAT_V422) swap_chroma(result, result.area());
    copy_area(result, result.area(), destination, to);
}

void yuv_converter::to_rgb(const frame_view& source, const rectangle& from, const rgb_view& destination) {
    convert(readable(source, from), picture(destination), true);
}

void yuv_converter::from_rgb(const rgb_view& source, const frame_view& destination, const rectangle& to) {
    convert_into(picture(source), destination, to, true);
}

void yuv_converter::scale(const frame_view& source, const rectangle& from, const frame_view& destination,
                          const rectangle& to, bool smooth) {
    convert_into(readable(source, from), destination, to, smooth);
}

void yuv_converter::fill(const frame_view& destination, const rectangle& area, uint32_t color) {
    constexpr int side = 16;
    const rgb_view tile = {SCREEN_FORMAT_RGBX8888, side, side, source_bytes_.bytes(side * side * 4),
                           side * 4};
    std::fill_n(tile.row(0), side * side, color);
    const frame_view yuv = working_frame(tile_bytes_, destination.layout.format, side, side);
    convert_into(picture(tile), yuv, yuv.area(), true);
    for (int i = 0; i < destination.layout.plane_count; ++i) {
        const plane& p = destination.layout.planes[i];
        const unsigned char* unit = yuv.at(i, 0, 0);
        unsigned char* row = destination.at(i, area.x, area.y);
        for (int y = p.rows(area.height); y > 0; --y, row += p.stride) {
            for (std::size_t x = 0; x < p.row_bytes(area.width);
                 x += static_cast<std::size_t>(p.shape.unit)) {
                memcpy(row + x, unit, static_cast<std::size_t>(p.shape.unit));
            }
        }
    }
}

}  // namespace platform::screen
