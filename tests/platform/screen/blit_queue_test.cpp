// What blits refuse, what their queue holds, and several threads.
#include <cstdlib>

#include "platform/screen/blit_fixture.hpp"
#include "support/import_hooks.hpp"

namespace {

TEST_F(Blit, AFrameIsBlittedToItselfAsItWas) {
    const Frame frame = make_random(SCREEN_FORMAT_RGBA8888, 32, 32);
    const std::vector<unsigned char> before = frame.bytes();
    blit_now(frame, frame, rects({0, 0, 30, 29}, {2, 3, 30, 29}));
    for (int y = 3; y < 32; ++y) {
        EXPECT_EQ(memcmp(frame.row(y) + 8, &before[size_t((y - 3) * frame.memory.stride)], 120), 0) << y;
    }
}

TEST_F(Blit, WhatIsNotGoodIsRefusedAndDoesNothing) {
    const Frame a = make_random(SCREEN_FORMAT_RGBA8888, 8, 8), b = make_random(SCREEN_FORMAT_NV12, 8, 8);
    const std::vector<unsigned char> before = a.bytes();
    const std::pair<int, int> bad_values[] = {
        {SCREEN_BLIT_SOURCE_WIDTH, 0},
        {SCREEN_BLIT_SOURCE_HEIGHT, -1},
        {SCREEN_BLIT_DESTINATION_WIDTH, 16385},
        {SCREEN_BLIT_DESTINATION_HEIGHT, INT32_MIN},
        {SCREEN_BLIT_SOURCE_X, 16385},
        {SCREEN_BLIT_DESTINATION_Y, -16385},
        {SCREEN_BLIT_GLOBAL_ALPHA, 256},
        {SCREEN_BLIT_GLOBAL_ALPHA, -1},
        {SCREEN_BLIT_TRANSPARENCY, 6},
        {SCREEN_BLIT_SCALE_QUALITY, 3},
        {13, 1},
        {-1, 1},
    };
    for (const auto& [name, value] : bad_values)
        EXPECT_EQ(error_of(blit(a, b, {name, value, 0})), EINVAL) << name;
    const int alpha[] = {SCREEN_BLIT_GLOBAL_ALPHA, 1, 0};
    const auto stray = reinterpret_cast<screen_buffer_t>(context);
    const int refused[] = {
        screen_fill(context, a.buffer, alpha),
        screen_fill(context, nullptr, nullptr),
        screen_blit(context, stray, a.buffer, nullptr),
        screen_blit(context, a.buffer, stray, nullptr),
        screen_blit(nullptr, a.buffer, a.buffer, nullptr),
        screen_flush_blits(nullptr, 0),
        screen_flush_blits(context, 2),
    };
    for (int result : refused) EXPECT_EQ(error_of(result), EINVAL);
    const std::pair<int, int> without_effect[] = {{SCREEN_BLIT_TRANSPARENCY, SCREEN_TRANSPARENCY_DISCARD},
                                                  {SCREEN_BLIT_DESTINATION_X, 8},
                                                  {SCREEN_BLIT_DESTINATION_Y, -8},
                                                  {SCREEN_BLIT_SOURCE_X, -8},
                                                  {SCREEN_BLIT_SOURCE_Y, 16384}};
    for (const auto& [name, value] : without_effect) blit_now(a, b, {name, value});
    EXPECT_EQ(a.bytes(), before);
}

TEST_F(Blit, TheQueueHoldsItsFramesAndEndsWithItsContext) {
    const Frame target = make(SCREEN_FORMAT_RGBA8888, 4, 4);
    Frame source = make_random(SCREEN_FORMAT_RGBA8888, 4, 4);
    const std::vector<unsigned char> expected = source.bytes();
    ASSERT_EQ(blit(target, source, {0}), 0);
    platform_screen_release_frame(&source.memory);
    ASSERT_EQ(screen_destroy_pixmap(source.pixmap), 0);
    frames.pop_back();
    EXPECT_EQ(live().frames, at_start.frames + 2);
    ASSERT_EQ(screen_flush_blits(context, 0), 0);
    EXPECT_EQ(live().frames, at_start.frames + 1);
    EXPECT_EQ(memcmp(target.row(3), &expected[size_t(3 * target.memory.stride)], 16), 0);
    const int white[] = {SCREEN_BLIT_COLOR, -1, SCREEN_BLIT_END};
    for (int i = 0; i < 63; ++i) ASSERT_EQ(screen_fill(context, target.buffer, white), 0);
    EXPECT_NE(target.row(0)[0], 255);
    ASSERT_EQ(screen_fill(context, target.buffer, white), 0);
    EXPECT_EQ(target.row(0)[0], 255);  // a full queue does not wait
    ASSERT_EQ(screen_fill(context, target.buffer, nullptr), 0);
    ASSERT_EQ(screen_destroy_context(context), 0);
    EXPECT_EQ(target.row(0)[0], 255);  // dropped
    EXPECT_EQ(live().pixmaps, at_start.pixmaps);
    platform_screen_release_frame(&frames[0].memory);
    frames.clear();
}

int until_failure;
void* failing_malloc(size_t size) {
    return --until_failure == 0 ? nullptr : malloc(size);
}

TEST_F(Blit, WhatCannotBeDoneForWantOfMemoryIsToldAndDropped) {
    const Frame target = make(SCREEN_FORMAT_RGBA8888, 8, 8),
                source = make_random(SCREEN_FORMAT_RGBA8888, 8, 8);
    const auto failing = kel_test::hook(failing_malloc, "malloc", "libpixman-1.so");
    ASSERT_TRUE(failing.bound());
    for (until_failure = 1;; ++until_failure) {
        const int n = until_failure;
        ASSERT_EQ(blit(target, source, {0}), 0);
        const int result = screen_flush_blits(context, 0);
        const bool reached = until_failure <= 0;
        until_failure = n;
        if (!reached) break;
        EXPECT_EQ(error_of(result), ENOMEM);
    }
    EXPECT_GT(until_failure, 1);
    EXPECT_EQ(memcmp(target.row(7), source.row(7), 32), 0);
    EXPECT_EQ(live().frames, at_start.frames + 2);
}

TEST_F(Blit, ThreadsBlitAndFlushOnOneContext) {
    const Frame source = make_random(SCREEN_FORMAT_RGBA8888, 64, 64);
    std::vector<Frame> targets;
    for (int i = 0; i < 4; ++i)
        targets.push_back(make(i % 2 ? SCREEN_FORMAT_RGBA8888 : SCREEN_FORMAT_NV12, 64, 64));
    kel_test::run_together(4, [&](int index) {
        for (int round = 0; round < 50; ++round) {
            ASSERT_EQ(blit(targets[size_t(index)], source, {0}), 0);
            ASSERT_EQ(screen_flush_blits(context, SCREEN_WAIT_IDLE), 0);
            if (index % 2 == 0) continue;
            ASSERT_EQ(memcmp(targets[size_t(index)].row(0), source.row(0), 256), 0);
        }
    });
}

}  // namespace
