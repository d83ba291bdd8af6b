// Blits and fills as pictures.
#include <gtest/gtest.h>
#include <kel.h>

#include <cstring>

#include "golden/golden.hpp"

namespace {

class BlitPictures : public ::testing::Test {
  protected:
    static constexpr int width = 256, height = 128;
    static constexpr int smooth = SCREEN_QUALITY_NORMAL, nearest = SCREEN_QUALITY_FASTEST;
    void SetUp() override {
        context = kel_create_context();
        canvas = make(SCREEN_FORMAT_RGBA8888, width, height);
        fill(0xff202830u, {0, 0, width, height});
        for (int x = 0; x < width; x += 16) fill(0xff303c48u, {x, 0, 8, height});
        ring = make(SCREEN_FORMAT_RGBA8888, 24, 24);
        draw_ring();
    }
    void TearDown() override {
        for (kel_buffer* buffer : buffers) kel_release_buffer(buffer);
        kel_destroy_context(&context);
    }
    kel_slice make(int format, int w, int h) {
        const kel_video_format video = {format, SCREEN_USAGE_READ | SCREEN_USAGE_WRITE, w, h};
        buffers.push_back(kel_create_pixmap_buffer(context, &video));
        return kel_slice_for_buffer(buffers.back());
    }
    // A disc that fades from red to yellow, transparent outside and in the middle, with soft edges.
    void draw_ring() {
        for (int y = 0; y < 24; ++y) {
            auto* row = static_cast<uint8_t*>(ring.buffer->ptr) + y * ring.buffer->stride;
            for (int x = 0; x < 24; ++x) {
                const int distance = (2 * x - 23) * (2 * x - 23) + (2 * y - 23) * (2 * y - 23);  // up to 1058
                const int edge = distance > 440 ? (560 - distance) * 255 / 120 : (distance - 60) * 255 / 60;
                const uint8_t alpha = static_cast<uint8_t>(edge < 0 ? 0 : edge > 255 ? 255 : edge);
                const uint8_t pixel[] = {20, static_cast<uint8_t>(y * 10), 230, alpha};
                memcpy(row + x * 4, pixel, 4);
            }
        }
    }
    void fill(unsigned colour, kel_rect rect) { EXPECT_EQ(kel_fill_video(&canvas, colour, &rect), 0); }
    void blit(const kel_slice& src, kel_rect to, int transparency = SCREEN_TRANSPARENCY_SOURCE_OVER,
              int quality = smooth, int alpha = 255) {
        EXPECT_EQ(kel_blit_video(&src, &canvas, nullptr, &to, alpha, quality, transparency), 0);
    }
    testing::AssertionResult matches(const char* name) {
        EXPECT_EQ(screen_flush_blits(context->screen_context, SCREEN_WAIT_IDLE), 0);
        return golden::matches(name, golden::copy(canvas.buffer->ptr, width, height, canvas.buffer->stride));
    }
    kel_context* context = nullptr;
    kel_slice canvas{}, ring{};
    std::vector<kel_buffer*> buffers;
};

TEST_F(BlitPictures, FillsAndEdges) {
    fill(0xffc04040u, {20, 20, 40, 24});
    fill(0x80ffffffu, {40, 32, 40, 24});  // replaces, alpha included
    fill(0xff40c040u, {-10, -10, 20, 20});
    fill(0xff4040c0u, {width - 9, height - 7, 50, 50});
    for (int i = 0; i < 5; ++i) {
        blit(ring, {-12 + i * 66, -12, 24, 24});
        blit(ring, {-20 + i * 66, height - 20, 40, 40});
    }
    blit(ring, {-30, 40, 60, 60});
    blit(ring, {width - 30, 40, 60, 60}, SCREEN_TRANSPARENCY_SOURCE_OVER, nearest);
    EXPECT_TRUE(matches("blit_fills_edges"));
}

TEST_F(BlitPictures, ScalingAndTransparency) {
    const struct {
        int transparency, alpha;
    } rows[] = {{SCREEN_TRANSPARENCY_NONE, 255},        {SCREEN_TRANSPARENCY_NONE, 100},
                {SCREEN_TRANSPARENCY_TEST, 255},        {SCREEN_TRANSPARENCY_SOURCE_OVER, 255},
                {SCREEN_TRANSPARENCY_SOURCE_OVER, 100}, {SCREEN_TRANSPARENCY_DISCARD, 255}};
    int x = 4;
    for (const auto& row : rows) {
        blit(ring, {x, 2, 24, 24}, row.transparency, smooth, row.alpha);
        blit(ring, {x, 28, 38, 34}, row.transparency, smooth, row.alpha);
        blit(ring, {x, 64, 38, 34}, row.transparency, nearest, row.alpha);
        blit(ring, {x, 102, 17, 23}, row.transparency, smooth, row.alpha);
        blit(ring, {x + 20, 102, 11, 11}, row.transparency, nearest, row.alpha);
        x += 42;
    }
    EXPECT_TRUE(matches("blit_scaling_transparency"));
}

TEST_F(BlitPictures, ByWayOfOtherFormats) {
    const int formats[] = {SCREEN_FORMAT_RGBX8888, SCREEN_FORMAT_RGB565, SCREEN_FORMAT_NV12,
                           SCREEN_FORMAT_YV12,     SCREEN_FORMAT_YVU9,   SCREEN_FORMAT_UYVY,
                           SCREEN_FORMAT_YUY2,     SCREEN_FORMAT_V422};
    const kel_slice base = canvas;
    for (int i = 0; i < 8; ++i) {
        const kel_slice other = make(formats[i], 61, 60);
        canvas = other;
        fill(0xff305080u, {0, 0, 61, 60});
        fill(0xff60a030u, {31, 30, 30, 30});
        blit(ring, {4, 6, 24, 24});
        blit(ring, {20, 20, 37, 35});
        canvas = base;
        blit(other, {i % 4 * 64 + 1, i / 4 * 64 + 2, 61, 60}, SCREEN_TRANSPARENCY_SOURCE);
    }
    EXPECT_TRUE(matches("blit_formats"));
}

TEST_F(BlitPictures, YuvScaledToYuvAndToRgb) {
    const kel_slice base = canvas;
    const kel_slice source = make(SCREEN_FORMAT_NV12, 64, 48);
    canvas = source;
    fill(0xff305080u, {0, 0, 64, 48});
    fill(0xffe0e0e0u, {32, 0, 32, 24});
    blit(ring, {8, 4, 40, 40});
    const int formats[] = {SCREEN_FORMAT_NV12, SCREEN_FORMAT_YUV420, SCREEN_FORMAT_YUY2, SCREEN_FORMAT_YVU9};
    for (int i = 0; i < 4; ++i) {
        const kel_slice other = make(formats[i], 30 + 12 * i, 40);
        canvas = other;
        blit(source, {0, 0, 30 + 12 * i, 40}, SCREEN_TRANSPARENCY_SOURCE, i % 2 ? nearest : smooth);
        canvas = base;
        blit(other, {2 + i * 62, 2, 58, 60}, SCREEN_TRANSPARENCY_SOURCE);
    }
    canvas = base;
    blit(source, {2, 66, 100, 60}, SCREEN_TRANSPARENCY_SOURCE);
    blit(source, {110, 66, 100, 60}, SCREEN_TRANSPARENCY_SOURCE, nearest, 128);
    EXPECT_TRUE(matches("blit_yuv"));
}

}  // namespace
