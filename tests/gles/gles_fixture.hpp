// A context with GLES state, pools and buffers to make textures and surfaces of.
#pragma once

#include <gtest/gtest.h>
#include <kel.h>

#include "support/gles.hpp"

class Gles : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // An acquired buffer that its last release destroys, filled with a pattern.
    kel_buffer* make_buffer(int width, int height, int format = SCREEN_FORMAT_RGBA8888);
    kel_buffer_pool* make_window_pool(int width, int height, int count);

    kel_context* context = nullptr;
    EGLDisplay display = EGL_NO_DISPLAY;
    kel_buffer* target = nullptr;  // 16 x 8
};

inline kel_test::PixelRows rows_of(const kel_buffer* buffer) {
    const kel_video_format& format = buffer->pool->format.video;
    return {buffer->ptr, format.width, format.height, buffer->stride};
}
