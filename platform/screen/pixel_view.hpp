// Views of pixels for the blitter's steps, and the memory it works in.
#pragma once

#include <screen/screen.h>

#include <cstdint>
#include <vector>

#include "screen/frame_memory.hpp"

namespace platform::screen {

struct rectangle {
    int x, y, width, height;  // pixels
    bool empty() const { return width <= 0 || height <= 0; }
};

// A whole frame.
struct frame_view {
    frame_layout layout;
    unsigned char* bytes;

    explicit frame_view(const frame_memory& frame) : layout(frame.layout()), bytes(frame.pointer()) {}
    frame_view(const frame_layout& its_layout, unsigned char* its_bytes)
        : layout(its_layout), bytes(its_bytes) {}
    // The unit of the pixel in a plane; the pixel begins a group.
    unsigned char* at(int plane_index, int x, int y) const {
        const plane& p = layout.planes[plane_index];
        return bytes + p.offset + static_cast<std::ptrdiff_t>(y / p.shape.row_step) * p.stride +
               x / p.shape.column_step * p.shape.unit;
    }
    rectangle area() const { return {0, 0, layout.width, layout.height}; }
};

// Rows of RGB pixels: a rectangle of a frame or of scratch memory.
struct rgb_view {
    int format;  // SCREEN_FORMAT_RGBA8888, RGBX8888 or RGB565
    int width, height;
    unsigned char* bytes;
    int stride;  // bytes

    bool has_alpha() const { return format == SCREEN_FORMAT_RGBA8888; }
    int bytes_per_pixel() const { return format == SCREEN_FORMAT_RGB565 ? 2 : 4; }
    uint32_t* row(int y) const {
        return reinterpret_cast<uint32_t*>(bytes + static_cast<std::ptrdiff_t>(y) * stride);
    }
    rgb_view part(const rectangle& area) const {
        unsigned char* first =
            bytes + static_cast<std::ptrdiff_t>(area.y) * stride + area.x * bytes_per_pixel();
        return {format, area.width, area.height, first, stride};
    }
};

// Memory that grows to what is asked for and stays for the next time. Its contents are unspecified.
class scratch_memory {
  public:
    unsigned char* bytes(std::size_t size) {
        const std::size_t needed = size + row_alignment + padding;
        if (bytes_.size() < needed) bytes_.resize(needed);
        const auto address = reinterpret_cast<uintptr_t>(bytes_.data());
        return bytes_.data() + (row_alignment - address % row_alignment) % row_alignment;
    }
    rgb_view pixels(int format, int width, int height) {  // four bytes each
        const int stride = (width * 4 + row_alignment - 1) / row_alignment * row_alignment;
        return {format, width, height,
                bytes(static_cast<std::size_t>(stride) * static_cast<std::size_t>(height)), stride};
    }

  private:
    static constexpr std::size_t padding = 64;  // general libraries' vector code may touch that much behind
    std::vector<unsigned char> bytes_;
};

}  // namespace platform::screen
