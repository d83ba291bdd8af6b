// Every variant of the conversion against the formulas, over all colours and over frames of awkward shapes.
#include <gtest/gtest.h>
#include <kel.h>

#include <algorithm>
#include <random>
#include <vector>

#include "support/simd_variants.hpp"
#include "support/threads.hpp"
#include "video/nv12_kernels.hpp"

namespace {

struct yuv {
    int y, u, v;
};

// One pixel, term by term, with the range's upper limits.
yuv reference_pixel(const uint8_t* p) {
    const int b = p[0], g = p[1], r = p[2];
    return {std::min(235, (2104 * r + 4130 * g + 802 * b + 135168) >> 13),
            std::min(240, (-1214 * r - 2384 * g + 3598 * b + 1052672) >> 13),
            std::min(240, (3598 * r - 3013 * g - 585 * b + 1052672) >> 13)};
}

struct frame {
    kel_buffer_pool pool{};
    kel_buffer buffer{};
    std::vector<uint8_t> bytes;
    frame(int format, int width, int height, int stride, int rows, int offset, uint8_t fill)
        : bytes(static_cast<size_t>(stride * rows + offset + 64), fill) {
        pool.format.type = KEL_BUFFER_VIDEO;
        pool.format.video = {format, 0, width, height};
        buffer.pool = &pool;
        buffer.ptr = bytes.data() + offset;
        buffer.stride = stride;
        buffer.size = static_cast<uint32_t>(stride * rows);
    }
    uint8_t* row(int y) { return static_cast<uint8_t*>(buffer.ptr) + y * buffer.stride; }
};

void reference_frame(frame& src, frame& dst) {
    const kel_video_format& format = dst.pool.format.video;
    for (int y = 0; y + 1 < format.height; y += 2)
        for (int x = 0; x + 1 < format.width; x += 2) {
            int u = 0, v = 0;
            for (int i = 0; i < 4; ++i) {
                const int px = x + i % 2, py = y + i / 2;
                const yuv p = reference_pixel(src.row(py) + 4 * px);
                dst.row(py)[px] = static_cast<uint8_t>(p.y);
                u += p.u;
                v += p.v;
            }
            uint8_t* chroma = dst.row(format.height + y / 2) + x;
            chroma[0] = static_cast<uint8_t>(u >> 2);
            chroma[1] = static_cast<uint8_t>(v >> 2);
        }
}

TEST(Nv12, EveryVariantGivesTheFormulasForAllColours) {
    // One block row for each pair of green and red; the blues fill it, so that blocks mix neighbouring colours.
    std::vector<uint8_t> upper(4 * 256), lower(4 * 256), y0(256), y1(256), uv(256);
    for (auto* kernels : KEL_TEST_SIMD_VARIANTS(nv12_table))
        for (int colour = 0; colour < 65536; ++colour) {
            for (int blue = 0; blue < 256; ++blue) {
                const uint8_t pixel[4] = {static_cast<uint8_t>(blue), static_cast<uint8_t>(colour),
                                          static_cast<uint8_t>(colour >> 8), static_cast<uint8_t>(blue * 7)};
                std::copy_n(pixel, 4, &upper[static_cast<size_t>(4 * blue)]);
                std::copy_n(pixel, 4, &lower[static_cast<size_t>(4 * (255 - blue))]);
            }
            kernels->convert({upper.data(), lower.data(), y0.data(), y1.data(), uv.data(), 128, 0});
            for (size_t x = 0; x < 256; x += 2) {
                const yuv p[] = {reference_pixel(&upper[4 * x]), reference_pixel(&upper[4 * x + 4]),
                                 reference_pixel(&lower[4 * x]), reference_pixel(&lower[4 * x + 4])};
                const bool same = y0[x] == p[0].y && y0[x + 1] == p[1].y && y1[x] == p[2].y &&
                                  y1[x + 1] == p[3].y && uv[x] == (p[0].u + p[1].u + p[2].u + p[3].u) >> 2 &&
                                  uv[x + 1] == (p[0].v + p[1].v + p[2].v + p[3].v) >> 2;
                ASSERT_TRUE(same) << "green, red " << std::hex << colour << " at blue " << x;
            }
        }
}

TEST(Nv12, FramesOfAnyShapeAreConvertedAndNothingBesides) {
    std::mt19937 random(static_cast<unsigned>(kel_test::random_seed()));
    auto up_to = [&](unsigned most) { return static_cast<int>(random() % (most + 1)); };
    for (int round = 0; round < 300; ++round) {
        const int width = up_to(round % 10 ? 150 : 3), height = up_to(9);
        frame src(SCREEN_FORMAT_RGBA8888, width, height, 4 * width + 4 * up_to(5), height, up_to(63), 0);
        for (uint8_t& byte : src.bytes) byte = static_cast<uint8_t>(random());
        const int stride = width + up_to(70), offset = up_to(63);
        frame got(SCREEN_FORMAT_NV12, width, height, stride, height + height / 2 + 1, offset, 0xA5);
        frame wanted(SCREEN_FORMAT_NV12, width, height, stride, height + height / 2 + 1, offset, 0xA5);
        bgra8888_to_nv12(&src.buffer, &got.buffer);
        reference_frame(src, wanted);
        ASSERT_EQ(got.bytes, wanted.bytes) << width << " x " << height << ", stride " << stride;
    }
}

TEST(Nv12, VariantsAgreeOnRandomRows) {
    std::mt19937 random(static_cast<unsigned>(kel_test::random_seed()));
    for (size_t blocks = 0; blocks < 200; ++blocks) {
        std::vector<uint8_t> source(16 * blocks + 16);
        for (uint8_t& byte : source) byte = static_cast<uint8_t>(random());
        std::vector<std::vector<uint8_t>> results;
        for (auto* kernels : KEL_TEST_SIMD_VARIANTS(nv12_table)) {
            std::vector<uint8_t> out(6 * blocks + 4, 0x5A);
            const uint8_t* pixels = source.data() + blocks % 5;
            kernels->convert({pixels, pixels + 8 * blocks, out.data(), out.data() + 2 * blocks,
                              out.data() + 4 * blocks, blocks, 0});
            results.push_back(std::move(out));
        }
        for (const auto& result : results) ASSERT_EQ(result, results.front()) << blocks << " blocks";
    }
}

}  // namespace
