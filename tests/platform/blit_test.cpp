// Blits and fills beside a plain reference: every mode, scaling, clipping; YUV.
#include <algorithm>
#include <cmath>

#include "platform/blit_fixture.hpp"

namespace {

struct Rect {
    int x, y, width, height;
};

// Straight colour with channels from 0 to 255.
struct Pixel {
    double blue, green, red, alpha;
    double operator[](int i) const { return i == 0 ? blue : i == 1 ? green : i == 2 ? red : alpha; }
};

Pixel pixel(const Frame& frame, int x, int y) {
    if (frame.format() == SCREEN_FORMAT_RGB565) {
        uint16_t value;
        memcpy(&value, frame.row(y) + x * 2, 2);
        const auto wide = [](int v, int bits) { return double(v << (8 - bits) | v >> (2 * bits - 8)); };
        return {wide(value & 31, 5), wide(value >> 5 & 63, 6), wide(value >> 11, 5), 255};
    }
    const unsigned char* p = frame.row(y) + x * 4;
    return {double(p[0]), double(p[1]), double(p[2]),
            frame.format() == SCREEN_FORMAT_RGBA8888 ? p[3] : 255.0};
}

// One blit as the interface words it, pixel by pixel in floating point.
struct Reference {
    const Frame& source;
    Rect from, to;
    int alpha, transparency;
    bool smooth;
    Pixel key;

    // A source pixel with premultiplied colour, its alpha what the mode makes of it.
    Pixel sample(int x, int y) const {
        x = std::clamp(x, std::max(from.x, 0), std::min(from.x + from.width, source.memory.width) - 1);
        y = std::clamp(y, std::max(from.y, 0), std::min(from.y + from.height, source.memory.height) - 1);
        Pixel p = pixel(source, x, y);
        const bool is_key = p.blue == key.blue && p.green == key.green && p.red == key.red;
        double weight = 1;
        if (transparency == SCREEN_TRANSPARENCY_TEST) weight = p.alpha > 0;
        if (transparency == SCREEN_TRANSPARENCY_SOURCE_COLOR) weight = !is_key;
        if (transparency == SCREEN_TRANSPARENCY_SOURCE_OVER) weight = p.alpha / 255;
        if (!replaces() || !source_alpha()) p.alpha = 255;
        return {p.blue * weight, p.green * weight, p.red * weight, p.alpha * weight};
    }
    bool source_alpha() const { return source.format() == SCREEN_FORMAT_RGBA8888; }
    bool replaces() const {
        if (alpha != 255 || transparency == SCREEN_TRANSPARENCY_SOURCE_COLOR) return false;
        return !source_alpha() || transparency == SCREEN_TRANSPARENCY_SOURCE ||
               transparency == SCREEN_TRANSPARENCY_NONE;
    }
    // At source position (u, v), in pixels from the frame's corner.
    Pixel at(double u, double v) const {
        if (!smooth) return sample(int(std::floor(u)), int(std::floor(v)));
        const double left = std::floor(u - .5), top = std::floor(v - .5);
        double sum[4] = {};
        for (int i = 0; i < 4; ++i) {
            const double wx = i & 1 ? u - .5 - left : left + 1.5 - u,
                         wy = i & 2 ? v - .5 - top : top + 1.5 - v;
            const Pixel p = sample(int(left) + (i & 1), int(top) + (i >> 1));
            for (int c = 0; c < 4; ++c) sum[c] += wx * wy * p[c];
        }
        return {sum[0], sum[1], sum[2], sum[3]};
    }
    // The largest difference of a channel as seen (colour × alpha) between `got` and what is expected at (x, y) of
    // the destination, whose pixel was `before`; the destination may lack alpha.
    double difference(const Pixel& got, const Pixel& before, double u, double v, bool has_alpha) const {
        const Pixel s = at(u, v);
        const double weight = alpha / 255.0, rest = replaces() ? 0 : 1 - s.alpha / 255 * weight;
        double worst = 0;
        const double expected_alpha = s.alpha * weight + before.alpha * rest;
        const double got_alpha = has_alpha ? got.alpha : 255;
        for (int c = 0; c < 3; ++c) {
            if (replaces()) {  // colours are copied as they are
                worst = std::max(worst, std::fabs(s[c] - got[c]));
            } else {
                const double expected = s[c] * weight + before[c] * before.alpha / 255 * rest;
                worst = std::max(worst, std::fabs(expected - got[c] * got_alpha / 255));
            }
        }
        return has_alpha ? std::max(worst, std::fabs(expected_alpha - got_alpha)) : worst;
    }
};

TEST_F(Blit, AnyRectanglesAndModesGiveTheReferencesPixels) {
    const int formats[] = {SCREEN_FORMAT_RGBA8888, SCREEN_FORMAT_RGBX8888, SCREEN_FORMAT_RGB565};
    const int rounds = kel_test::stress_rounds(1500);
    for (int round = 0; round < rounds; ++round) {
        const Frame source = make_random(formats[round % 3], between(1, 40), between(1, 40));
        const Frame target = make_random(formats[round / 3 % 3], between(1, 40), between(1, 40));
        const bool scales = round % 4 != 0;
        Rect from{between(-9, 30), between(-9, 30), between(1, 50), between(1, 50)}, to = from;
        to.x = between(-9, 30);
        to.y = between(-9, 30);
        if (scales) to = {to.x, to.y, between(1, 50), between(1, 50)};
        const int alpha = round % 5 == 0 ? between(0, 255) : 255, mode = between(0, 4),
                  quality = between(0, 1);
        for (int y = 0; y < source.memory.height; ++y) {  // keys and extreme alphas shall occur
            for (int x = 0; x < source.memory.width; ++x) {
                const uint32_t choices[] = {0xff102030, 0x00ffffff, 0x00000000};
                if (source.format() != SCREEN_FORMAT_RGB565 && between(0, 3) == 0) {
                    memcpy(source.row(y) + x * 4, &choices[between(0, 2)], 4);
                }
            }
        }
        if (round % 2 && target.format() == SCREEN_FORMAT_RGBA8888) {  // nothing shows through
            for (size_t i = 3; i < target.memory.size; i += 4) target.row(0)[i] = 255;
        }
        const Reference reference{
            source, from, to, alpha, mode, quality == SCREEN_QUALITY_NORMAL && scales, {0x30, 0x20, 0x10, 0}};
        const std::vector<unsigned char> before = target.bytes();
        const auto old_pixel = [&](int x, int y) {
            Frame old = target;
            old.memory.pointer = const_cast<unsigned char*>(before.data());
            return pixel(old, x, y);
        };
        blit_now(target, source,
                 {SCREEN_BLIT_SOURCE_X,
                  from.x,
                  SCREEN_BLIT_SOURCE_Y,
                  from.y,
                  SCREEN_BLIT_SOURCE_WIDTH,
                  from.width,
                  SCREEN_BLIT_SOURCE_HEIGHT,
                  from.height,
                  SCREEN_BLIT_DESTINATION_X,
                  to.x,
                  SCREEN_BLIT_DESTINATION_Y,
                  to.y,
                  SCREEN_BLIT_DESTINATION_WIDTH,
                  to.width,
                  SCREEN_BLIT_DESTINATION_HEIGHT,
                  to.height,
                  SCREEN_BLIT_GLOBAL_ALPHA,
                  alpha,
                  SCREEN_BLIT_TRANSPARENCY,
                  mode,
                  SCREEN_BLIT_SCALE_QUALITY,
                  quality,
                  SCREEN_BLIT_COLOR,
                  0x77102030});
        // Weights of 7 bits when smooth; what a format of 5 or 6 bits cannot hold; roundings of blends.
        const bool narrow = target.format() == SCREEN_FORMAT_RGB565;
        const double allowed = (reference.smooth ? 5 : 0) + (narrow ? 8 : 0) + (reference.replaces() ? 0 : 2);
        const int size = narrow ? 2 : 4;
        for (int y = 0; y < target.memory.height; ++y) {
            for (int x = 0; x < target.memory.stride / size; ++x) {
                const double u = from.x + (x - to.x + .5) * from.width / to.width;
                const double v = from.y + (y - to.y + .5) * from.height / to.height;
                const bool drawn = x < target.memory.width && x >= to.x && x < to.x + to.width && y >= to.y &&
                                   y < to.y + to.height && u >= 0 && v >= 0 && u < source.memory.width &&
                                   v < source.memory.height;
                if (!drawn) {
                    ASSERT_EQ(memcmp(target.row(y) + x * size,
                                     &before[size_t(y * target.memory.stride + x * size)], size_t(size)),
                              0)
                        << "round " << round << " wrote (" << x << ", " << y << ") outside";
                    continue;
                }
                double best = 1000;  // the position is rounded to 1/65536 per step
                for (double e : {-.002, .002}) {
                    for (double f : {-.002, .002}) {
                        best = std::min(
                            best, reference.difference(pixel(target, x, y), old_pixel(x, y), u + e, v + f,
                                                       target.format() == SCREEN_FORMAT_RGBA8888));
                    }
                }
                ASSERT_LE(best, allowed)
                    << "round " << round << " at (" << x << ", " << y << "), mode " << mode << ", alpha "
                    << alpha << ", formats " << source.format() << " to " << target.format();
            }
        }
        end_frames();
    }
}

TEST_F(Blit, WholeBuffersAreCopiedBitForBitWhenNothingIsSaid) {
    for (int format : {6, 8, 10, 11, 12, 13, 14, 15, 16, 17}) {
        SCOPED_TRACE(format);
        const Frame source = make_random(format, 63, 31), target = make(format, 63, 31);
        ASSERT_EQ(screen_blit(context, target.buffer, source.buffer, nullptr), 0);
        EXPECT_NE(target.bytes(), source.bytes());  // not before the flush
        ASSERT_EQ(screen_flush_blits(context, 0), 0);
        const Frame clear = make(format, 63, 31);
        blit_now(clear, target);
        EXPECT_EQ(clear.bytes(), target.bytes());
        if (format == 6 || format == 8) {
            for (int y = 0; y < 31; ++y)
                EXPECT_EQ(memcmp(target.row(y), source.row(y), 63u * (format == 6 ? 2 : 4)), 0);
        }
    }
}

TEST_F(Blit, FillsReachExactlyTheirRectangle) {
    struct Row {
        int format;
        uint32_t color;
        Rect area, touched;
        std::vector<int> unit;  // bytes of the first plane
    };
    const Row rows[] = {
        {SCREEN_FORMAT_RGBA8888, 0x40302010, {3, 2, 5, 4}, {3, 2, 5, 4}, {0x10, 0x20, 0x30, 0x40}},
        {SCREEN_FORMAT_RGB565, 0xffff80ff, {-4, -4, 6, 6}, {0, 0, 2, 2}, {0x1f, 0xfc}},
        {SCREEN_FORMAT_RGBX8888, 0x01020304, {20, 10, 99, 99}, {20, 10, 13, 7}, {4, 3, 2, 1}},
        {SCREEN_FORMAT_NV12, 0xffffffff, {3, 3, 6, 6}, {2, 2, 6, 6}, {235}},
        {SCREEN_FORMAT_YV12, 0xff000000, {0, 0, 40, 40}, {0, 0, 33, 17}, {16}},
        {SCREEN_FORMAT_YVU9, 0xff0000ff, {9, 9, 7, 7}, {8, 8, 8, 8}, {41}},
        {SCREEN_FORMAT_UYVY, 0xffff0000, {5, 5, 3, 1}, {4, 5, 4, 1}, {90, 81, 240, 81}},
        {SCREEN_FORMAT_YUY2, 0xff00ff00, {32, 16, 9, 9}, {32, 16, 1, 1}, {145, 54, 145, 34}},
        {SCREEN_FORMAT_YVYU, 0xff00ff00, {1, 0, 1, 1}, {0, 0, 2, 1}, {145, 34, 145, 54}},
        {SCREEN_FORMAT_V422, 0xff0000ff, {0, 0, 2, 1}, {0, 0, 2, 1}, {110, 41, 240, 41}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.format);
        const Frame frame = make_random(row.format, 33, 17);
        const std::vector<unsigned char> before = frame.bytes();
        const int list[] = {SCREEN_BLIT_DESTINATION_X,
                            row.area.x,
                            SCREEN_BLIT_DESTINATION_Y,
                            row.area.y,
                            SCREEN_BLIT_DESTINATION_WIDTH,
                            row.area.width,
                            SCREEN_BLIT_DESTINATION_HEIGHT,
                            row.area.height,
                            SCREEN_BLIT_COLOR,
                            static_cast<int>(row.color),
                            SCREEN_BLIT_END};
        ASSERT_EQ(screen_fill(context, frame.buffer, list), 0);
        ASSERT_EQ(screen_flush_blits(context, SCREEN_WAIT_IDLE), 0);
        const bool packed = row.unit.size() == 4 && row.format > 9;
        const int step = packed ? 2 : 1, bytes = static_cast<int>(row.unit.size());
        for (int y = 0; y < 17; ++y) {
            for (int x = 0; x < 33; x += step) {
                const bool inside = x >= row.touched.x && x < row.touched.x + row.touched.width &&
                                    y >= row.touched.y && y < row.touched.y + row.touched.height;
                for (int i = 0; i < bytes; ++i) {
                    const int offset = x / step * bytes + i, got = frame.row(y)[offset];
                    const int expected =
                        inside ? row.unit[size_t(i)] : before[size_t(y * frame.memory.stride + offset)];
                    ASSERT_NEAR(got, expected, inside && row.format > 9 ? 1 : 0) << x << ' ' << y << ' ' << i;
                }
            }
        }
    }
}

TEST_F(Blit, ChromaPlanesStandInTheirOrder) {
    const int red[] = {SCREEN_BLIT_COLOR, 0xff0000, SCREEN_BLIT_END};
    for (const auto& [format, second, last] : {std::tuple{SCREEN_FORMAT_YUV420, 90, 240},
                                               {SCREEN_FORMAT_YV12, 240, 90},
                                               {SCREEN_FORMAT_YVU9, 240, 90},
                                               {SCREEN_FORMAT_NV12, 90, 240}}) {
        const Frame frame = make(format, 64, 16);
        ASSERT_EQ(screen_fill(context, frame.buffer, red), 0);
        ASSERT_EQ(screen_flush_blits(context, 0), 0);
        EXPECT_NEAR(frame.row(16)[0], second, 1) << format;
        EXPECT_NEAR(frame.row(0)[frame.memory.size - 1], last, 1) << format;
    }
}

TEST_F(Blit, YuvKeepsThePicture) {
    const int yuv[] = {SCREEN_FORMAT_YVU9, SCREEN_FORMAT_YUV420, SCREEN_FORMAT_NV12, SCREEN_FORMAT_YV12,
                       SCREEN_FORMAT_UYVY, SCREEN_FORMAT_YUY2,   SCREEN_FORMAT_YVYU, SCREEN_FORMAT_V422};
    const Frame picture = make(SCREEN_FORMAT_RGBX8888, 96, 64);
    for (int y = 0; y < 64; ++y) {
        for (int x = 0; x < 96; ++x) {
            const unsigned char smooth[] = {static_cast<unsigned char>(40 + x),
                                            static_cast<unsigned char>(200 - 2 * y),
                                            static_cast<unsigned char>(100 + y - x / 2), 0};
            memcpy(picture.row(y) + x * 4, smooth, 4);
        }
    }
    const auto worst = [](const Frame& a, const Frame& b) {
        double difference = 0;
        for (int y = 0; y < a.memory.height; ++y) {
            for (int x = 0; x < a.memory.width; ++x) {
                for (int c = 0; c < 3; ++c) {
                    difference = std::max(difference, std::fabs(pixel(a, x, y)[c] - pixel(b, x, y)[c]));
                }
            }
        }
        return difference;
    };
    for (int format : yuv) {
        SCOPED_TRACE(format);
        const Frame there = make(format, 96, 64), back = make(SCREEN_FORMAT_RGBA8888, 96, 64);
        blit_now(there, picture);
        blit_now(back, there);
        EXPECT_LE(worst(picture, back), format == SCREEN_FORMAT_YVU9 ? 12 : 6);
        EXPECT_EQ(back.row(0)[3], 255);
        for (int other : yuv) {  // and on to every other format, at half the size and up again
            const Frame small = make(other, 48, 32), large = make(SCREEN_FORMAT_RGBX8888, 96, 64);
            blit_now(small, there);
            blit_now(large, small);
            EXPECT_LE(worst(picture, large), 16) << "by way of " << other;
        }
        // A blend in the middle of it: half white.
        const Frame white = make(SCREEN_FORMAT_RGBX8888, 8, 8),
                    blended = make(SCREEN_FORMAT_RGBX8888, 96, 64);
        memset(white.row(0), 255, white.memory.size);
        blit_now(there, white,
                 {SCREEN_BLIT_GLOBAL_ALPHA, 128, SCREEN_BLIT_DESTINATION_X, 16, SCREEN_BLIT_DESTINATION_Y, 16,
                  SCREEN_BLIT_DESTINATION_WIDTH, 32, SCREEN_BLIT_DESTINATION_HEIGHT, 32});
        blit_now(blended, there);
        for (int c = 0; c < 3; ++c) {
            EXPECT_NEAR(pixel(blended, 30, 30)[c], (pixel(picture, 30, 30)[c] + 255) / 2, 6);
            EXPECT_NEAR(pixel(blended, 80, 10)[c], pixel(picture, 80, 10)[c], 8);
        }
        end_frames_after(picture);
    }
}

TEST_F(Blit, FormatsOfTheSameSamplesTurnIntoEachOtherExactly) {
    const std::vector<int> rounds[] = {
        {SCREEN_FORMAT_NV12, SCREEN_FORMAT_YV12, SCREEN_FORMAT_YUV420, SCREEN_FORMAT_NV12},
        {SCREEN_FORMAT_UYVY, SCREEN_FORMAT_V422, SCREEN_FORMAT_YUY2, SCREEN_FORMAT_YVYU, SCREEN_FORMAT_UYVY}};
    for (const std::vector<int>& formats : rounds) {
        const Frame first = make(formats[0], 33, 9);
        blit_now(first, make_random(formats[0], 33, 9));
        Frame last = first;
        for (size_t i = 1; i < formats.size(); ++i) {
            const Frame next = make(formats[i], 33, 9);
            blit_now(next, last);
            last = next;
        }
        for (int y = 0; y < 9; ++y)
            EXPECT_EQ(memcmp(first.row(y), last.row(y), 33), 0) << formats[0] << ' ' << y;
    }
}

}  // namespace
