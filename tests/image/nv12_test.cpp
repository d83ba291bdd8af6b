// Every variant of the conversion against the formulas, over all colours and over frames of awkward shapes.
#include <gtest/gtest.h>
#include <kel.h>

#include <algorithm>
#include <random>
#include <vector>

#include "image/nv12_kernels.hpp"
#include "support/simd_variants.hpp"
#include "support/threads.hpp"

namespace {

using Bytes = std::vector<uint8_t>;

// Two rows of 2 x 2 blocks, term by term, with the range's upper limits.
void plain_rows(const uint8_t* upper, const uint8_t* lower, uint8_t* y0, uint8_t* y1, uint8_t* uv,
                size_t blocks) {
    for (size_t block = 0; block < blocks; ++block) {
        int u = 0, v = 0;
        for (size_t i = 0; i < 4; ++i) {
            const size_t x = 2 * block + i % 2;
            const uint8_t* p = (i < 2 ? upper : lower) + 4 * x;
            const int b = p[0], g = p[1], r = p[2];
            (i < 2 ? y0 : y1)[x] =
                static_cast<uint8_t>(std::min(235, (2104 * r + 4130 * g + 802 * b + 135168) >> 13));
            u += std::min(240, (-1214 * r - 2384 * g + 3598 * b + 1052672) >> 13);
            v += std::min(240, (3598 * r - 3013 * g - 585 * b + 1052672) >> 13);
        }
        uv[2 * block] = static_cast<uint8_t>(u >> 2);
        uv[2 * block + 1] = static_cast<uint8_t>(v >> 2);
    }
}

// One row pair by every variant; both results lie in one block of bytes, with one more behind each row.
void expect_plain_rows(const uint8_t* upper, const uint8_t* lower, size_t blocks) {
    const size_t row = 2 * blocks + 1;
    Bytes wanted(3 * row, 0x5A);
    plain_rows(upper, lower, &wanted[0], &wanted[row], &wanted[2 * row], blocks);
    for (auto* kernels : KEL_TEST_SIMD_VARIANTS(nv12_table)) {
        Bytes got(3 * row, 0x5A);
        kernels->convert({upper, lower, &got[0], &got[row], &got[2 * row], blocks, 0});
        ASSERT_EQ(got, wanted);
    }
}

TEST(Nv12, EveryVariantGivesTheFormulasForAllColours) {
    // One block row for each pair of green and red; the blues fill it, so that blocks mix neighbouring colours.
    Bytes upper(4 * 256), lower(4 * 256);
    for (int colour = 0; colour < 65536 && !HasFatalFailure(); ++colour) {
        for (int blue = 0; blue < 256; ++blue) {
            const uint8_t pixel[4] = {static_cast<uint8_t>(blue), static_cast<uint8_t>(colour),
                                      static_cast<uint8_t>(colour >> 8), static_cast<uint8_t>(blue * 7)};
            std::copy_n(pixel, 4, &upper[static_cast<size_t>(4 * blue)]);
            std::copy_n(pixel, 4, &lower[static_cast<size_t>(4 * (255 - blue))]);
        }
        expect_plain_rows(upper.data(), lower.data(), 128);
    }
}

struct Frame {
    kel_buffer_pool pool{};
    kel_buffer buffer{};
    Bytes bytes;
    Frame(int format, int width, int height, int stride, int rows, int offset)
        : bytes(static_cast<size_t>(stride * rows + offset + 64), 0xA5) {
        pool.format.type = KEL_BUFFER_VIDEO;
        pool.format.video = {format, 0, width, height};
        buffer.pool = &pool;
        buffer.ptr = bytes.data() + offset;
        buffer.stride = stride;
        buffer.size = static_cast<uint32_t>(stride * rows);
    }
    uint8_t* row(int y) { return static_cast<uint8_t*>(buffer.ptr) + y * buffer.stride; }
};

TEST(Nv12, FramesAndRowsOfAnyShapeAreConvertedAndNothingBesides) {
    std::mt19937 random(static_cast<unsigned>(kel_test::random_seed()));
    auto up_to = [&](unsigned most) { return static_cast<int>(random() % (most + 1)); };
    for (int round = 0; round < 300 && !HasFatalFailure(); ++round) {
        const int width = up_to(round % 10 ? 150 : 3), height = up_to(9);
        Frame src(SCREEN_FORMAT_RGBA8888, width, height, 4 * width + 4 * up_to(5), height, up_to(63));
        std::generate(src.bytes.begin(), src.bytes.end(), [&] { return static_cast<uint8_t>(random()); });
        const int stride = width + up_to(70), offset = up_to(63);
        Frame got(SCREEN_FORMAT_NV12, width, height, stride, height + height / 2 + 1, offset);
        Frame wanted(SCREEN_FORMAT_NV12, width, height, stride, height + height / 2 + 1, offset);
        const auto blocks = static_cast<size_t>(width / 2);
        for (int y = 0; y + 1 < height; y += 2) {
            plain_rows(src.row(y), src.row(y + 1), wanted.row(y), wanted.row(y + 1),
                       wanted.row(height + y / 2), blocks);
            expect_plain_rows(src.row(y), src.row(y + 1), blocks);
        }
        bgra8888_to_nv12(&src.buffer, &got.buffer);
        ASSERT_EQ(got.bytes, wanted.bytes) << width << " x " << height << ", stride " << stride;
    }
}

}  // namespace
