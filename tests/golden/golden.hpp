// Pictures that tests render, held against small PNG files beside the tests. With KEL_GOLDEN_UPDATE=1 in the
// environment (the target `golden_update` sets it) the files are written anew instead: look at them
// afterwards.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace golden {

// Rows without gaps; 4 bytes a pixel: blue, green, red, alpha (not premultiplied).
struct Picture {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> bgra;
};

// A copy of width x height pixels whose rows are `stride` bytes apart.
Picture copy(const void* pixels, int width, int height, std::ptrdiff_t stride);

// Both throw std::runtime_error with the file's name.
Picture read_png(const std::string& path);
void write_png(const std::string& path, const Picture& picture);

// Counts the pixels that differ and names the first. With a tolerance, each channel's share of what is seen (channel times alpha) and
// alpha itself may differ by that much.
testing::AssertionResult same(const Picture& actual, const Picture& expected, int tolerance = 0);

// The same with tests/golden/NAME.png; a picture that differs is written to NAME.png in the working folder.
testing::AssertionResult matches(const std::string& name, const Picture& picture, int tolerance = 0);

}  // namespace golden
