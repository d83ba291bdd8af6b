// What the tests of the blitter share: frames with their memory, and blits that are done at once.
#pragma once

#include <algorithm>
#include <random>
#include <vector>

#include "platform/screen/screen_fixture.hpp"
#include "support/threads.hpp"

struct Rect {
    int x, y, width, height;
};

// The part of a blit's list that says from where to where.
inline std::vector<int> rects(const Rect& from, const Rect& to) {
    return {SCREEN_BLIT_SOURCE_X,          from.x,     SCREEN_BLIT_SOURCE_Y,           from.y,
            SCREEN_BLIT_SOURCE_WIDTH,      from.width, SCREEN_BLIT_SOURCE_HEIGHT,      from.height,
            SCREEN_BLIT_DESTINATION_X,     to.x,       SCREEN_BLIT_DESTINATION_Y,      to.y,
            SCREEN_BLIT_DESTINATION_WIDTH, to.width,   SCREEN_BLIT_DESTINATION_HEIGHT, to.height};
}

// A pixmap with its memory.
struct Frame {
    screen_pixmap_t pixmap;
    screen_buffer_t buffer;
    platform_screen_frame memory;
    int format() const { return memory.format; }
    bool has_alpha() const { return format() == SCREEN_FORMAT_RGBA8888; }
    unsigned char* row(int y) const {
        return static_cast<unsigned char*>(memory.pointer) + y * memory.stride;
    }
    std::vector<unsigned char> bytes() const { return {row(0), row(0) + memory.size}; }
};

class Blit : public Screen {
  protected:
    Frame make(int format, int width, int height) {
        Frame frame{make_pixmap(format, width, height), nullptr, {}};
        frame.buffer = buffer_of(frame.pixmap);
        EXPECT_EQ(platform_screen_hold_pixmap(frame.pixmap, &frame.memory), 0);
        frames.push_back(frame);
        return frame;
    }
    Frame make_random(int format, int width, int height) {
        const Frame frame = make(format, width, height);
        std::generate_n(frame.row(0), frame.memory.size,
                        [&] { return static_cast<unsigned char>(random()); });
        return frame;
    }
    void end_frames() {
        for (Frame& frame : frames) {
            platform_screen_release_frame(&frame.memory);
            EXPECT_EQ(screen_destroy_pixmap(frame.pixmap), 0);
        }
        frames.clear();
    }
    void TearDown() override {
        end_frames();
        Screen::TearDown();
    }
    int blit(const Frame& to, const Frame& from, const std::vector<int>& attributes) {
        return screen_blit(context, to.buffer, from.buffer, attributes.data());
    }
    void blit_now(const Frame& to, const Frame& from, std::vector<int> attributes = {}) {
        attributes.push_back(SCREEN_BLIT_END);
        EXPECT_EQ(blit(to, from, attributes), 0);
        EXPECT_EQ(screen_flush_blits(context, SCREEN_WAIT_IDLE), 0);
    }
    void fill_now(const Frame& to, uint32_t color, const Rect& area) {
        std::vector<int> list = rects(area, area);
        list.erase(list.begin(), list.begin() + 8);  // no source
        list.insert(list.end(), {SCREEN_BLIT_COLOR, static_cast<int>(color), SCREEN_BLIT_END});
        EXPECT_EQ(screen_fill(context, to.buffer, list.data()), 0);
        EXPECT_EQ(screen_flush_blits(context, SCREEN_WAIT_IDLE), 0);
    }
    int between(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); }
    std::mt19937 random{static_cast<std::mt19937::result_type>(kel_test::random_seed())};
    std::vector<Frame> frames;
};
