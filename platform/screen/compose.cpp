#include "screen/compose.hpp"

#include <pixman.h>

#include <memory>
#include <new>

namespace platform::screen {
namespace {

struct image_deleter {
    void operator()(pixman_image_t* image) const { pixman_image_unref(image); }
};
using image = std::unique_ptr<pixman_image_t, image_deleter>;

image checked(pixman_image_t* created) {
    if (!created) throw std::bad_alloc();
    return image(created);
}

pixman_format_code_t pixman_format(int format) {
    switch (format) {
        case SCREEN_FORMAT_RGB565:
            return PIXMAN_r5g6b5;
        case SCREEN_FORMAT_RGBA8888:
            return PIXMAN_a8r8g8b8;
        default:
            return PIXMAN_x8r8g8b8;
    }
}

image image_of(const rgb_view& view) {
    return checked(pixman_image_create_bits_no_clear(pixman_format(view.format), view.width, view.height,
                                                     view.row(0), view.stride));
}

image solid_alpha(int alpha) {
    const pixman_color_t color = {0, 0, 0, static_cast<uint16_t>(alpha * 257)};
    return checked(pixman_image_create_solid_fill(&color));
}

pixman_fixed_t ratio(const axis& a) {
    const auto numerator = static_cast<int64_t>(a.source_length) * pixman_fixed_1;
    return static_cast<pixman_fixed_t>((2 * numerator + a.destination_length) / (2 * a.destination_length));
}

void set_sampling(pixman_image_t* source, const axis& x, const axis& y, bool smooth) {
    pixman_image_set_repeat(source, PIXMAN_REPEAT_PAD);
    pixman_transform_t transform = {{{ratio(x), 0, pixman_int_to_fixed(x.start)},
                                     {0, ratio(y), pixman_int_to_fixed(y.start)},
                                     {0, 0, pixman_fixed_1}}};
    pixman_image_set_transform(source, &transform);
    pixman_image_set_filter(source, smooth ? PIXMAN_FILTER_BILINEAR : PIXMAN_FILTER_NEAREST, nullptr, 0);
}

constexpr uint32_t multiply(uint32_t value, uint32_t alpha) {  // value × alpha / 255, rounded
    const uint32_t product = value * alpha + 128;
    return (product + (product >> 8)) >> 8;
}

uint32_t premultiplied(uint32_t pixel) {
    const uint32_t alpha = pixel >> 24;
    return alpha << 24 | multiply(pixel >> 16 & 0xff, alpha) << 16 | multiply(pixel >> 8 & 0xff, alpha) << 8 |
           multiply(pixel & 0xff, alpha);
}

constexpr uint32_t opaque_alpha = 0xff000000;

template <typename Change>
void change_pixels(const rgb_view& view, Change change) {
    for (int y = 0; y < view.height; ++y) {
        uint32_t* row = view.row(y);
        for (int x = 0; x < view.width; ++x) row[x] = change(row[x]);
    }
}

// Straight pixels to premultiplied ones, with transparent black for what the style leaves out.
void prepare(const rgb_view& view, const drawing_style& style) {
    const uint32_t left_out = style.color | opaque_alpha;
    switch (style.transparency) {
        case SCREEN_TRANSPARENCY_TEST:
            return change_pixels(view, [](uint32_t p) { return p >> 24 ? p | opaque_alpha : 0; });
        case SCREEN_TRANSPARENCY_SOURCE_COLOR:
            return change_pixels(view, [left_out](uint32_t p) {
                return (p | opaque_alpha) != left_out ? p | opaque_alpha : 0;
            });
        default:
            return change_pixels(view, premultiplied);
    }
}

// A premultiplied pixel over a straight one, straight again. The result's alpha × 255 is source × 255 + rest.
uint32_t over(uint32_t source, uint32_t destination) {
    const uint32_t source_alpha = source >> 24;
    const uint32_t rest = (destination >> 24) * (255 - source_alpha);
    const uint32_t alpha = source_alpha * 255 + rest;
    uint32_t result = (alpha + 127) / 255 << 24;
    for (int shift = 0; shift < 24; shift += 8) {
        const uint32_t sum = (source >> shift & 0xff) * 255 * 255 + (destination >> shift & 0xff) * rest;
        const uint32_t channel = (sum + alpha / 2) / alpha;
        result |= (channel < 255 ? channel : 255) << shift;
    }
    return result;
}

void blend(const rgb_view& destination, const rgb_view& layer) {
    for (int y = 0; y < destination.height; ++y) {
        uint32_t* below = destination.row(y);
        const uint32_t* above = layer.row(y);
        for (int x = 0; x < destination.width; ++x) {
            if (above[x] >> 24 == 0) continue;
            below[x] = above[x] >> 24 == opaque ? above[x] : over(above[x], below[x]);
        }
    }
}

bool is_opaque(const rgb_view& view) {
    uint32_t all = opaque_alpha;
    for (int y = 0; y < view.height && all == opaque_alpha; ++y) {
        const uint32_t* row = view.row(y);
        for (int x = 0; x < view.width; ++x) all &= row[x];
    }
    return all == opaque_alpha;
}

// Whether the style's drawing depends on the pixels of the source.
bool leaves_out(const rgb_view& source, const drawing_style& style) {
    switch (style.transparency) {
        case SCREEN_TRANSPARENCY_SOURCE_COLOR:
            return true;
        case SCREEN_TRANSPARENCY_TEST:
        case SCREEN_TRANSPARENCY_SOURCE_OVER:
            return source.has_alpha();
        default:
            return false;
    }
}

}  // namespace

void composer::draw(const rgb_view& destination, const rgb_view& source, const axis& x, const axis& y,
                    const drawing_style& style) {
    const bool selective = leaves_out(source, style);
    rgb_view from = source;
    if (selective) {
        from = prepared_.pixels(SCREEN_FORMAT_RGBA8888, source.width, source.height);
        pixman_image_composite32(PIXMAN_OP_SRC, image_of(source).get(), nullptr, image_of(from).get(), 0, 0,
                                 0, 0, 0, 0, source.width, source.height);
        prepare(from, style);
    } else if (style.alpha != opaque && from.has_alpha()) {
        from.format = SCREEN_FORMAT_RGBX8888;  // its alpha counts as opaque
    }
    const image sampled = image_of(from);
    const bool scales = x.source_length != x.destination_length || y.source_length != y.destination_length;
    int source_x = x.offset + x.start, source_y = y.offset + y.start;
    pixman_image_set_repeat(sampled.get(), PIXMAN_REPEAT_PAD);
    if (scales) {
        set_sampling(sampled.get(), x, y, style.smooth);
        source_x = x.offset;
        source_y = y.offset;
    }
    const image mask = style.alpha != opaque ? solid_alpha(style.alpha) : nullptr;
    const bool blends = selective || mask;
    // Over opaque pixels, straight alpha and pixman's premultiplied one are the same.
    const bool by_layer = blends && destination.has_alpha() && !is_opaque(destination);
    const rgb_view target =
        by_layer ? layer_.pixels(SCREEN_FORMAT_RGBA8888, destination.width, destination.height) : destination;
    pixman_image_composite32(blends && !by_layer ? PIXMAN_OP_OVER : PIXMAN_OP_SRC, sampled.get(), mask.get(),
                             image_of(target).get(), source_x, source_y, 0, 0, 0, 0, target.width,
                             target.height);
    if (by_layer) blend(destination, target);
}

void fill(const rgb_view& destination, uint32_t color) {
    uint32_t filler = color;
    if (destination.format == SCREEN_FORMAT_RGB565) {
        filler = (color >> 8 & 0xf800) | (color >> 5 & 0x07e0) | (color >> 3 & 0x001f);
    }
    pixman_fill(destination.row(0), destination.stride / 4, destination.bytes_per_pixel() * 8, 0, 0,
                destination.width, destination.height, filler);
}

}  // namespace platform::screen
