// Blits and fills beside a plain reference: every mode, scaling, clipping; YUV.
#include <algorithm>
#include <array>
#include <cmath>

#include "platform/screen/blit_fixture.hpp"

namespace {

// Straight colour with channels from 0 to 255: blue, green, red, alpha.
using Pixel = std::array<double, 4>;

Pixel pixel(const Frame& frame, int x, int y) {
    if (frame.format() == SCREEN_FORMAT_RGB565) {
        uint16_t value;
        memcpy(&value, frame.row(y) + x * 2, 2);
        const auto wide = [](int v, int bits) { return double(v << (8 - bits) | v >> (2 * bits - 8)); };
        return {wide(value & 31, 5), wide(value >> 5 & 63, 6), wide(value >> 11, 5), 255};
    }
    const unsigned char* p = frame.row(y) + x * 4;
    return {double(p[0]), double(p[1]), double(p[2]), frame.has_alpha() ? p[3] : 255.0};
}

// One blit as the interface words it, pixel by pixel in floating point.
struct Reference {
    const Frame& source;
    Rect from, to;
    int alpha, transparency;
    bool smooth;
    Pixel key;

    bool replaces() const {
        if (alpha != 255 || transparency == SCREEN_TRANSPARENCY_SOURCE_COLOR) return false;
        return !source.has_alpha() || transparency == SCREEN_TRANSPARENCY_SOURCE ||
               transparency == SCREEN_TRANSPARENCY_NONE;
    }
    // A source pixel with premultiplied colour, its alpha what the mode makes of it.
    Pixel sample(int x, int y) const {
        x = std::clamp(x, std::max(from.x, 0), std::min(from.x + from.width, source.memory.width) - 1);
        y = std::clamp(y, std::max(from.y, 0), std::min(from.y + from.height, source.memory.height) - 1);
        Pixel p = pixel(source, x, y);
        double weight = 1;
        if (transparency == SCREEN_TRANSPARENCY_TEST) weight = p[3] > 0;
        if (transparency == SCREEN_TRANSPARENCY_SOURCE_COLOR) weight = !std::equal(&p[0], &p[3], &key[0]);
        if (transparency == SCREEN_TRANSPARENCY_SOURCE_OVER) weight = p[3] / 255;
        if (!replaces() || !source.has_alpha()) p[3] = 255;
        for (double& channel : p) channel *= weight;
        return p;
    }
    // At source position (u, v), in pixels from the frame's corner.
    Pixel at(double u, double v) const {
        if (!smooth) return sample(int(std::floor(u)), int(std::floor(v)));
        const double left = std::floor(u - .5), top = std::floor(v - .5);
        Pixel sum = {};
        for (int i = 0; i < 4; ++i) {
            const double wx = i & 1 ? u - .5 - left : left + 1.5 - u;
            const double wy = i & 2 ? v - .5 - top : top + 1.5 - v;
            const Pixel p = sample(int(left) + (i & 1), int(top) + (i >> 1));
            for (size_t c = 0; c < 4; ++c) sum[c] += wx * wy * p[c];
        }
        return sum;
    }
    // The largest difference of a channel as seen (colour × alpha) between `got` and what is expected where the
    // destination's pixel was `before`; the destination may lack alpha. Replaced colours are copied as they are.
    double difference(const Pixel& got, const Pixel& before, double u, double v, bool has_alpha) const {
        const Pixel s = at(u, v);
        const double weight = alpha / 255.0, rest = replaces() ? 0 : 1 - s[3] / 255 * weight;
        double worst = has_alpha ? std::fabs(s[3] * weight + before[3] * rest - got[3]) : 0;
        for (size_t c = 0; c < 3; ++c) {
            const double expected = s[c] * weight + before[c] * before[3] / 255 * rest;
            worst = std::max(worst, std::fabs(expected - got[c] * (replaces() ? 255 : got[3]) / 255));
        }
        return worst;
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
        const Frame before = make(target.format(), target.memory.width, target.memory.height);
        memcpy(before.row(0), target.row(0), target.memory.size);
        std::vector<int> list = rects(from, to);
        list.insert(list.end(), {SCREEN_BLIT_GLOBAL_ALPHA, alpha, SCREEN_BLIT_TRANSPARENCY, mode,
                                 SCREEN_BLIT_SCALE_QUALITY, quality, SCREEN_BLIT_COLOR, 0x77102030});
        blit_now(target, source, list);
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
                    ASSERT_EQ(memcmp(target.row(y) + x * size, before.row(y) + x * size, size_t(size)), 0)
                        << "round " << round << " wrote (" << x << ", " << y << ") outside";
                    continue;
                }
                double best = 1000;  // the position is rounded to 1/65536 per step
                for (int i = 0; i < 4; ++i) {
                    const double e = i & 1 ? .002 : -.002, f = i & 2 ? .002 : -.002;
                    best = std::min(best, reference.difference(pixel(target, x, y), pixel(before, x, y),
                                                               u + e, v + f, target.has_alpha()));
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
        fill_now(frame, row.color, row.area);
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
    for (const auto& [format, second, last] : {std::tuple{SCREEN_FORMAT_YUV420, 90, 240},
                                               {SCREEN_FORMAT_YV12, 240, 90},
                                               {SCREEN_FORMAT_YVU9, 240, 90},
                                               {SCREEN_FORMAT_NV12, 90, 240}}) {
        const Frame frame = make(format, 64, 16);
        fill_now(frame, 0xff0000, {0, 0, 64, 16});
        EXPECT_NEAR(frame.row(16)[0], second, 1) << format;
        EXPECT_NEAR(frame.row(0)[frame.memory.size - 1], last, 1) << format;
    }
}

TEST_F(Blit, FormatsOfTheSameSamplesTurnIntoEachOtherExactly) {
    const std::vector<int> rounds[] = {
        {SCREEN_FORMAT_NV12, SCREEN_FORMAT_YV12, SCREEN_FORMAT_YUV420, SCREEN_FORMAT_NV12},
        {SCREEN_FORMAT_UYVY, SCREEN_FORMAT_V422, SCREEN_FORMAT_YUY2, SCREEN_FORMAT_YVYU, SCREEN_FORMAT_UYVY}};
    for (const std::vector<int>& formats : rounds) {
        const Frame first = make_random(formats[0], 64, 8);
        for (int format : formats) {
            const Frame next = make(format, 64, 8);
            blit_now(next, frames[frames.size() - 2]);
        }
        EXPECT_EQ(frames.back().bytes(), first.bytes()) << formats[0];
    }
}

}  // namespace
