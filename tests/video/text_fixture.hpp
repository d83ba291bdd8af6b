// A context with text state, frames, and the library's calls on them.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "support/faults.hpp"
#include "support/threads.hpp"
#include "video/plain_text.hpp"

using kel_test::LogCapture;
using kel_test::Outcome;
using kel_test::PlainText;
using kel_test::Scene;

inline constexpr int32_t width = 300;
inline constexpr int32_t height = 120;
inline constexpr kel_point whole = {width, height};

// A frame for one thread, and the library's calls on it.
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

inline std::vector<std::string> errors(const LogCapture& log) {
    std::vector<std::string> texts;
    for (const auto& message : log.messages(2)) texts.push_back(message.text);
    return texts;
}
