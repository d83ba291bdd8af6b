// What the tests of Screen share: a context per test, frames, and the count of what is left.
#pragma once

#include <screen/frame_access.h>
#include <screen/screen.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

inline screen_live_counts_t live() {
    screen_live_counts_t counts;
    screen_get_live_counts(&counts);
    return counts;
}

inline bool operator==(const screen_live_counts_t& a, const screen_live_counts_t& b) {
    return memcmp(&a, &b, sizeof a) == 0;
}

// The errno value that a refusal left; 0 for a success.
inline int error_of(int result) {
    return result == 0 ? 0 : errno;
}

class Screen : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(screen_create_context(&context, SCREEN_APPLICATION_CONTEXT), 0); }
    void TearDown() override {
        screen_destroy_context(context);
        EXPECT_TRUE(live() == at_start);
    }
    screen_pixmap_t make_pixmap(int format, int width, int height) {
        screen_pixmap_t pixmap;
        const int size[] = {width, height};
        EXPECT_EQ(screen_create_pixmap(&pixmap, context), 0);
        EXPECT_EQ(screen_set_pixmap_property_iv(pixmap, SCREEN_PROPERTY_FORMAT, &format), 0);
        EXPECT_EQ(screen_set_pixmap_property_iv(pixmap, SCREEN_PROPERTY_BUFFER_SIZE, size), 0);
        EXPECT_EQ(screen_create_pixmap_buffer(pixmap), 0);
        return pixmap;
    }
    screen_buffer_t buffer_of(screen_pixmap_t pixmap) {
        void* buffer = nullptr;
        EXPECT_EQ(screen_get_pixmap_property_pv(pixmap, SCREEN_PROPERTY_RENDER_BUFFERS, &buffer), 0);
        return static_cast<screen_buffer_t>(buffer);
    }
    screen_window_t make_window(int width, int height, int buffers) {
        screen_window_t window;
        const int size[] = {width, height};
        EXPECT_EQ(screen_create_window_type(&window, context, SCREEN_CHILD_WINDOW), 0);
        EXPECT_EQ(screen_set_window_property_iv(window, SCREEN_PROPERTY_BUFFER_SIZE, size), 0);
        EXPECT_EQ(screen_create_window_buffers(window, buffers), 0);
        return window;
    }
    const screen_live_counts_t at_start = live();
    screen_context_t context = nullptr;
};
