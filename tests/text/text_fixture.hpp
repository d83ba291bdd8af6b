// A context with text state, and frames with the library's calls on them.
#pragma once

#include <gtest/gtest.h>
#include <kel.h>

#include <cstring>
#include <optional>
#include <ostream>

#include "golden/golden.hpp"
#include "text/test_fonts.hpp"

inline constexpr int32_t width = 320;
inline constexpr int32_t height = 160;
inline constexpr kel_point whole = {width, height};

// One text call. `clip` is the slice's width and height; with a box size, the text goes into a box at `at`.
struct Scene {
    const char* text;
    kel_text_style style;
    kel_point at = {0, 0};
    kel_point clip = whole;
    bool boxed = false;
    kel_point box_size = {0, 0};
};

// What a text call gives besides pixels.
struct Outcome {
    int glyphs = 0;
    kel_rect drawn = {-1, -1, -1, -1};  // when the call left it alone
    bool operator==(const Outcome& other) const {
        return glyphs == other.glyphs && memcmp(&drawn, &other.drawn, sizeof drawn) == 0;
    }
};

inline void PrintTo(const Outcome& outcome, std::ostream* out) {
    const kel_rect& r = outcome.drawn;
    *out << outcome.glyphs << " glyphs in (" << r.x << ", " << r.y << ") " << r.width << " x " << r.height;
}

// A frame for one thread.
class Frame {
  public:
    explicit Frame(kel_context* context) {
        const kel_video_format format = {SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_WRITE, width, height};
        slice = kel_slice_for_buffer(kel_create_pixmap_buffer(context, &format));
        clear();
    }
    ~Frame() { kel_release_buffer(slice.buffer); }
    void clear() { memset(slice.buffer->ptr, 0x5A, slice.buffer->size); }
    golden::Picture picture() const {
        return golden::copy(slice.buffer->ptr, width, height, slice.buffer->stride);
    }
    Outcome draw(const Scene& scene) {
        Outcome outcome;
        slice.spec.video.width = scene.clip.x;
        slice.spec.video.height = scene.clip.y;
        const kel_rect box = {scene.at.x, scene.at.y, scene.box_size.x, scene.box_size.y};
        outcome.glyphs = scene.boxed
                             ? kel_text_draw_in_bb(&slice, scene.text, &box, &scene.style, &outcome.drawn)
                             : kel_text_draw(&slice, scene.text, &scene.at, &scene.style, &outcome.drawn);
        return outcome;
    }
    kel_slice slice;
};

class Text : public ::testing::Test {
  protected:
    void SetUp() override {
        context = kel_create_context();
        ASSERT_EQ(kel_text_init(context), 0);
        frame.emplace(context);
    }
    void TearDown() override {
        frame.reset();
        kel_destroy_context(&context);
    }
    kel_context* context = nullptr;
    std::optional<Frame> frame;
};
