#include "screen/blitter.hpp"

#include <algorithm>
#include <cstring>

namespace platform::screen {
namespace {

// ceil(a / b) for b > 0.
constexpr int64_t divide_up(int64_t a, int64_t b) {
    return a >= 0 ? (a + b - 1) / b : -(-a / b);
}

struct interval {
    int begin, end;
    int length() const { return end - begin; }
};

// One axis of a blit before clipping: `to` pixels at to_start of a destination show `from` pixels at from_start.
struct extent {
    int to_start, to, from_start, from;
};

// The destination pixels, counted from to_start, that lie in their frame and whose centre lies in the source's:
// the centre of pixel i falls on from_start + (2 i + 1) × from / (2 to).
interval visible(const extent& e, int to_limit, int from_limit) {
    const auto first_at_or_after = [&](int64_t position) {
        return divide_up(2 * (position - e.from_start) * e.to - e.from, 2 * int64_t{e.from});
    };
    const int64_t begin = std::max<int64_t>({0, -e.to_start, first_at_or_after(0)});
    const int64_t end = std::min<int64_t>({e.to, to_limit - e.to_start, first_at_or_after(from_limit)});
    return {static_cast<int>(begin), static_cast<int>(std::max(begin, end))};
}

interval clip(int start, int length, int limit) {
    return {std::max(start, 0), std::min(start + length, limit)};
}

rectangle clip(const rectangle& area, const frame_layout& layout) {
    const interval x = clip(area.x, area.width, layout.width), y = clip(area.y, area.height, layout.height);
    return {x.begin, y.begin, x.length(), y.length()};
}

rgb_view rgb_of(const frame_view& frame) {
    return {frame.layout.format, frame.layout.width, frame.layout.height, frame.bytes, frame.layout.stride()};
}

bool replaces(const drawing_style& style) {
    return style.alpha == opaque && style.transparency != SCREEN_TRANSPARENCY_SOURCE_COLOR;
}

bool same_size(const rectangle& a, const rectangle& b) {
    return a.width == b.width && a.height == b.height;
}

bool starts_group(const frame_layout& layout, const rectangle& area) {
    const rectangle whole = whole_groups(layout, area);
    return whole.x == area.x && whole.y == area.y && same_size(whole, area);
}

}  // namespace

void blitter::run(const blit_operation& operation) {
    if (!operation.source) return fill(operation);
    if (operation.style.transparency == SCREEN_TRANSPARENCY_DISCARD) return;
    if (operation.source != operation.destination) return blit(operation, frame_view(*operation.source));
    const frame_memory copy(operation.source->layout());
    memcpy(copy.pointer(), operation.source->pointer(), copy.layout().size);
    blit(operation, frame_view(copy));
}

void blitter::fill(const blit_operation& operation) {
    const frame_view destination(*operation.destination);
    rectangle area = clip(operation.to, destination.layout);
    if (area.empty()) return;
    if (!is_yuv(destination.layout.format)) {
        screen::fill(rgb_of(destination).part(area), operation.style.color);
        return;
    }
    area = whole_groups(destination.layout, area);
    if (!area.empty()) destination_out_.fill(destination, area, operation.style.color);
}

void blitter::blit(const blit_operation& operation, const frame_view& source) {
    const frame_view destination(*operation.destination);
    const rectangle &to = operation.to, &from = operation.from;
    const interval x =
        visible({to.x, to.width, from.x, from.width}, destination.layout.width, source.layout.width);
    const interval y =
        visible({to.y, to.height, from.y, from.height}, destination.layout.height, source.layout.height);
    rectangle area = {to.x + x.begin, to.y + y.begin, x.length(), y.length()};
    if (area.empty()) return;
    const bool to_yuv = is_yuv(destination.layout.format);
    if (to_yuv) area = whole_groups(destination.layout, area);
    if (area.empty()) return;
    // YUV stays YUV where the source's pixels are whole groups too and only the size changes.
    if (to_yuv && is_yuv(source.layout.format) && replaces(operation.style)) {
        const bool scales = !same_size(to, from);
        const rectangle seen =
            scales ? from
                   : rectangle{from.x + area.x - to.x, from.y + area.y - to.y, area.width, area.height};
        const bool inside = seen.x >= 0 && seen.y >= 0 && seen.x + seen.width <= source.layout.width &&
                            seen.y + seen.height <= source.layout.height;
        if (inside && starts_group(source.layout, seen) && (!scales || same_size(area, to))) {
            if (!scales && source.layout.format == destination.layout.format) {
                copy_area(source, seen, destination, area);
            } else {
                direct_.scale(source, seen, destination, area, operation.style.smooth);
            }
            return;
        }
    }
    draw(destination, area, source, operation);
}

// By way of RGB.
void blitter::draw(const frame_view& destination, const rectangle& area, const frame_view& source,
                   const blit_operation& operation) {
    const rectangle &to = operation.to, &from = operation.from;
    rectangle seen = clip(from, source.layout);
    rgb_view pixels = rgb_of(source);
    if (is_yuv(source.layout.format)) {
        const rectangle around = surrounding_groups(source.layout, seen);
        pixels = source_pixels_.pixels(SCREEN_FORMAT_RGBX8888, around.width, around.height);
        source_in_.to_rgb(source, around, pixels);
        pixels = pixels.part({seen.x - around.x, seen.y - around.y, seen.width, seen.height});
    } else {
        pixels = pixels.part(seen);
    }
    const axis x = {area.x - to.x, from.width, to.width, from.x - seen.x};
    const axis y = {area.y - to.y, from.height, to.height, from.y - seen.y};
    if (!is_yuv(destination.layout.format)) {
        composer_.draw(rgb_of(destination).part(area), pixels, x, y, operation.style);
        return;
    }
    const rgb_view canvas = destination_pixels_.pixels(SCREEN_FORMAT_RGBX8888, area.width, area.height);
    destination_in_.to_rgb(destination, area, canvas);
    composer_.draw(canvas, pixels, x, y, operation.style);
    destination_out_.from_rgb(canvas, destination, area);
}

}  // namespace platform::screen
