// The loops that write pixels.
#include "text/text_paint.hpp"

#include <algorithm>
#include <cstring>

#include "text/bitmap_runs.hpp"

namespace kel {
namespace {

constexpr int32_t bytes_per_pixel = 4;

// Pixels are written whole: blue is the lowest byte.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);

using bytes16 = uint8_t __attribute__((vector_size(16)));
using halves8 = uint16_t __attribute__((vector_size(16)));
using words4 = uint32_t __attribute__((vector_size(16)));

// x / 255 for products of two bytes, without a division.
template <typename Half>
Half divided_by_255(Half x) {
    return (x + 1 + (x >> 8)) >> 8;
}

void put_pixel(uint8_t* pixel, const ink& color, uint8_t value) {
    const uint32_t alpha = divided_by_255<uint32_t>(uint32_t{value} * color.alpha);
    const uint32_t bits = alpha << 24 | color.rgb;
    memcpy(pixel, &bits, sizeof bits);
}

void put_pixels(uint8_t* pixel, const ink& color, const uint8_t (&values)[coverage_piece::length]) {
    uint32_t packed;
    memcpy(&packed, values, sizeof packed);
    // One value in each word, in two steps that are one instruction each; the products stay in the lower halves.
    const auto bytes = reinterpret_cast<bytes16>(words4{packed});
    const auto halves = reinterpret_cast<halves8>(
        __builtin_shufflevector(bytes, bytes16{}, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23));
    const auto words = __builtin_shufflevector(halves, halves8{}, 0, 8, 1, 9, 2, 10, 3, 11);
    const halves8 alpha = divided_by_255<halves8>(words * color.alpha);
    const words4 bits = reinterpret_cast<words4>(alpha) << 24 | color.rgb;
    memcpy(pixel, &bits, sizeof bits);
}

void put_clipped(const canvas& to, const ink& color, int64_t x, int64_t y, const uint8_t* values,
                 uint32_t length) {
    if (y < 0 || y >= to.height) return;
    const int64_t first = std::max<int64_t>(x, 0);
    const int64_t end = std::min<int64_t>(x + length, to.width);
    uint8_t* row = to.pixels + y * to.stride;
    for (int64_t at = first; at < end; ++at) put_pixel(row + at * bytes_per_pixel, color, values[at - x]);
}

}  // namespace

canvas canvas_of(const kel_slice& slice) {
    const kel_buffer& buffer = *slice.buffer;
    if (buffer.stride <= 0) return {};  // no frame
    const int64_t rows = buffer.size / static_cast<uint32_t>(buffer.stride);
    return {static_cast<uint8_t*>(buffer.ptr), buffer.stride,
            std::min(slice.spec.video.width, buffer.stride / bytes_per_pixel),
            static_cast<int32_t>(std::min<int64_t>(slice.spec.video.height, rows))};
}

void paint_bitmap(const canvas& to, const ink& color, int64_t x, int64_t y, const FT_Bitmap& bitmap) {
    for_each_run(bitmap, [&](uint32_t row, uint32_t column, const uint8_t* values, uint32_t length) {
        put_clipped(to, color, x + column, y + row, values, length);
    });
}

void paint_coverage(const canvas& to, const ink& color, int64_t x, int64_t y,
                    const glyph_coverage& coverage) {
    if (x < 0 || y < 0 || x + coverage.width > to.width || y + coverage.rows > to.height) {
        for (const coverage_piece& piece : coverage.pieces()) {
            put_clipped(to, color, x + piece.column, y + piece.row, piece.values, coverage_piece::length);
        }
        for (const coverage_pixel& pixel : coverage.pixels()) {
            put_clipped(to, color, x + pixel.column, y + pixel.row, &pixel.value, 1);
        }
        return;
    }
    const ink own = color;  // known not to change while pixels are written
    const int64_t stride = to.stride;
    uint8_t* corner = to.pixels + y * to.stride + x * bytes_per_pixel;
    const auto address = [&](const auto& part) {
        return corner + part.row * stride + part.column * bytes_per_pixel;
    };
    for (const coverage_piece& piece : coverage.pieces()) put_pixels(address(piece), own, piece.values);
    for (const coverage_pixel& pixel : coverage.pixels()) put_pixel(address(pixel), own, pixel.value);
}

}  // namespace kel
