#include "screen/yuv.hpp"

#include <algorithm>
#include <cstring>
#include <new>

#include "exact_scaling.hpp"

namespace platform::screen {
namespace {

// Where a group of two pixels has its bytes.
struct packed_order {
    int y0, u, y1, v;
};

struct yuv_format {
    int number;
    AVPixelFormat pixel_format;  // packed formats pass through planes here
    bool v_first;                // the chroma planes stand in the other order
    packed_order order;          // of packed formats
};

constexpr packed_order planar = {0, 0, 0, 0};

constexpr yuv_format yuv_formats[] = {
    {SCREEN_FORMAT_YVU9, AV_PIX_FMT_YUV410P, true, planar},
    {SCREEN_FORMAT_YUV420, AV_PIX_FMT_YUV420P, false, planar},
    {SCREEN_FORMAT_NV12, AV_PIX_FMT_NV12, false, planar},
    {SCREEN_FORMAT_YV12, AV_PIX_FMT_YUV420P, true, planar},
    {SCREEN_FORMAT_UYVY, AV_PIX_FMT_YUV422P, false, {1, 0, 3, 2}},
    {SCREEN_FORMAT_YUY2, AV_PIX_FMT_YUV422P, false, {0, 1, 2, 3}},
    {SCREEN_FORMAT_YVYU, AV_PIX_FMT_YUV422P, false, {0, 3, 2, 1}},
    {SCREEN_FORMAT_V422, AV_PIX_FMT_YUV422P, false, {1, 2, 3, 0}},
};

const yuv_format* find_yuv(int format) {
    for (const yuv_format& row : yuv_formats) {
        if (row.number == format) return &row;
    }
    return nullptr;
}

bool is_packed(const frame_view& frame) {
    return find_yuv(frame.layout.format)->pixel_format == AV_PIX_FMT_YUV422P;
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
    // Of a frame that has planes.
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
    // Planes for the pixels of a packed frame.
    picture(scratch_memory& memory, int its_width, int its_height)
        : format(AV_PIX_FMT_YUV422P), width(its_width), height(its_height), planes{}, strides{} {
        const int stride = (width + row_alignment - 1) / row_alignment * row_alignment;
        uint8_t* bytes =
            memory.bytes(2 * static_cast<std::size_t>(stride) * static_cast<std::size_t>(height));
        const std::ptrdiff_t plane_size = static_cast<std::ptrdiff_t>(stride) * height;
        planes[0] = bytes;
        planes[1] = bytes + plane_size;
        planes[2] = bytes + plane_size + plane_size / 2;
        strides[0] = stride;
        strides[1] = strides[2] = stride / 2;
    }
    // `exchange(group, y0, y1, u, v)` for each group of two pixels of the packed area and its samples here.
    template <typename Exchange>
    void each_group(const frame_view& frame, const rectangle& area, Exchange exchange) const {
        for (int row = 0; row < height; ++row) {
            uint8_t* group = frame.at(0, area.x, area.y + row);
            uint8_t *y = planes[0] + static_cast<std::ptrdiff_t>(row) * strides[0],
                    *u = planes[1] + static_cast<std::ptrdiff_t>(row) * strides[1],
                    *v = planes[2] + static_cast<std::ptrdiff_t>(row) * strides[2];
            for (int x = 0; x < width; x += 2, group += 4, y += 2) exchange(group, y[0], y[1], *u++, *v++);
        }
    }
};

yuv_converter::~yuv_converter() {
    sws_freeContext(context_);
}

void yuv_converter::convert(const picture& source, const picture& destination, bool smooth) {
    context_ = sws_getCachedContext(context_, source.width, source.height, source.format, destination.width,
                                    destination.height, destination.format,
                                    (smooth ? SWS_BICUBIC : SWS_POINT) | exact_scaling, no_short_cuts(),
                                    nullptr, nullptr);
    if (!context_) throw std::bad_alloc();
    sws_scale(context_, source.planes, source.strides, 0, source.height, destination.planes,
              destination.strides);
}

// The area as libswscale shall read it.
yuv_converter::picture yuv_converter::readable(const frame_view& source, const rectangle& from) {
    if (!is_packed(source)) return {source, from};
    const picture result(source_bytes_, from.width, from.height);
    const packed_order order = find_yuv(source.layout.format)->order;
    result.each_group(source, from,
                      [order](const uint8_t* group, uint8_t& y0, uint8_t& y1, uint8_t& u, uint8_t& v) {
                          y0 = group[order.y0];
                          y1 = group[order.y1];
                          u = group[order.u];
                          v = group[order.v];
                      });
    return result;
}

// By way of scratch memory, since libswscale may write beyond the end of a row, and rounds packed formats
// differently from processor to processor.
void yuv_converter::convert_into(const picture& source, const frame_view& destination, const rectangle& to,
                                 bool smooth) {
    if (is_packed(destination)) {
        const picture result(destination_bytes_, to.width, to.height);
        convert(source, result, smooth);
        const packed_order order = find_yuv(destination.layout.format)->order;
        const auto pack = [order](uint8_t* group, uint8_t y0, uint8_t y1, uint8_t u, uint8_t v) {
            group[order.y0] = y0;
            group[order.y1] = y1;
            group[order.u] = u;
            group[order.v] = v;
        };
        result.each_group(destination, to, pack);
        return;
    }
    frame_layout layout;
    lay_out_frame(destination.layout.format, to.width, to.height, layout);
    const frame_view result(layout, destination_bytes_.bytes(layout.size));
    convert(source, {result, result.area()}, smooth);
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
    frame_layout layout;
    lay_out_frame(destination.layout.format, side, side, layout);
    const frame_view yuv(layout, tile_bytes_.bytes(layout.size));
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
