// Screen objects: frame memory for every format, what is refused and how, handles that ended.
#include <screen/frame_access.h>
#include <screen/screen.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <set>

#include "platform/screen_fixture.hpp"
#include "support/threads.hpp"

namespace {

TEST_F(Screen, FramesAreLaidOutByTheirFormat) {
    struct Row {
        int format, width, height, stride;
        size_t size;
    };
    const Row rows[] = {
        {SCREEN_FORMAT_RGB565, 33, 5, 128, 128 * 5},
        {SCREEN_FORMAT_RGBA8888, 640, 480, 2560, 2560 * 480},
        {SCREEN_FORMAT_RGBX8888, 17, 1, 128, 128},
        {SCREEN_FORMAT_YVU9, 65, 9, 128, 128 * 9 + 32 * 3 * 2},
        {SCREEN_FORMAT_YUV420, 64, 5, 64, 64 * 5 + 32 * 6},
        {SCREEN_FORMAT_NV12, 640, 480, 640, 460800},
        {SCREEN_FORMAT_NV12, 63, 3, 64, 64 * 3 + 64 * 2},
        {SCREEN_FORMAT_YV12, 1, 1, 64, 64 + 32 * 2},
        {SCREEN_FORMAT_UYVY, 33, 2, 128, 256},
        {SCREEN_FORMAT_YUY2, 32, 2, 64, 128},
        {SCREEN_FORMAT_YVYU, 1, 1, 64, 64},
        {SCREEN_FORMAT_V422, 31, 7, 64, 448},
    };
    std::set<long long> addresses;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.format);
        const screen_pixmap_t pixmap = make_pixmap(row.format, row.width, row.height);
        const screen_buffer_t buffer = buffer_of(pixmap);
        int stride, format, size[2], contiguous;
        void* pointer;
        long long physical, again;
        EXPECT_EQ(screen_get_buffer_property_iv(buffer, SCREEN_PROPERTY_STRIDE, &stride), 0);
        EXPECT_EQ(screen_get_buffer_property_iv(buffer, SCREEN_PROPERTY_FORMAT, &format), 0);
        EXPECT_EQ(screen_get_buffer_property_iv(buffer, SCREEN_PROPERTY_BUFFER_SIZE, size), 0);
        EXPECT_EQ(screen_get_buffer_property_iv(buffer, SCREEN_PROPERTY_PHYSICALLY_CONTIGUOUS, &contiguous),
                  0);
        EXPECT_EQ(screen_get_buffer_property_pv(buffer, SCREEN_PROPERTY_POINTER, &pointer), 0);
        EXPECT_EQ(screen_get_buffer_property_llv(buffer, SCREEN_PROPERTY_PHYSICAL_ADDRESS, &physical), 0);
        EXPECT_EQ(screen_get_buffer_property_llv(buffer, SCREEN_PROPERTY_PHYSICAL_ADDRESS, &again), 0);
        EXPECT_EQ(stride, row.stride);
        EXPECT_EQ(format, row.format);
        EXPECT_EQ(size[0], row.width);
        EXPECT_EQ(size[1], row.height);
        EXPECT_EQ(contiguous, 1);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(pointer) % 64, 0u);
        EXPECT_GT(physical, INT64_C(0xffffffff));
        EXPECT_EQ(physical, again);
        EXPECT_TRUE(addresses.insert(physical).second);
        platform_screen_frame frame;
        ASSERT_EQ(platform_screen_hold_pixmap(pixmap, &frame), 0);
        EXPECT_EQ(frame.size, row.size);
        EXPECT_EQ(frame.pointer, pointer);
        auto* bytes = static_cast<unsigned char*>(frame.pointer);
        EXPECT_TRUE(std::all_of(bytes, bytes + frame.size, [](int byte) { return byte == 0; }));
        memset(bytes, 0xab, frame.size);  // all of it is ours, or the address sanitizer says so
        platform_screen_release_frame(&frame);
        EXPECT_EQ(screen_destroy_pixmap(pixmap), 0);
    }
}

TEST_F(Screen, PropertiesAreCheckedAndKept) {
    struct Row {
        int property, count, good[2], bad[2], error;
    };
    const Row shared[] = {
        {SCREEN_PROPERTY_FORMAT, 1, {SCREEN_FORMAT_NV12}, {7}, ENOTSUP},
        {SCREEN_PROPERTY_FORMAT, 1, {SCREEN_FORMAT_V422}, {18}, ENOTSUP},
        {SCREEN_PROPERTY_USAGE, 1, {0x10E}, {-1}, EINVAL},
        {SCREEN_PROPERTY_BUFFER_SIZE, 2, {-1, 0}, {16385, 1}, EINVAL},
        {SCREEN_PROPERTY_BUFFER_SIZE, 2, {1, 16384}, {1, 16385}, EINVAL},
        {SCREEN_PROPERTY_BUFFER_SIZE, 2, {7, 9}, {INT_MAX, INT_MIN}, EINVAL},
    };
    const Row of_windows[] = {
        {SCREEN_PROPERTY_SIZE, 2, {6, 0}, {6, -1}, EINVAL},
        {SCREEN_PROPERTY_SENSITIVITY, 1, {SCREEN_SENSITIVITY_NEVER}, {3}, EINVAL},
        {SCREEN_PROPERTY_TRANSPARENCY, 1, {SCREEN_TRANSPARENCY_NONE}, {6}, EINVAL},
    };
    const screen_pixmap_t pixmap = make_pixmap(SCREEN_FORMAT_RGBA8888, 4, 4);
    const screen_window_t window = make_window(4, 4, 1);
    const auto check = [&](const Row& row, auto set, auto get, auto object) {
        SCOPED_TRACE(row.property);
        int read[2] = {0, 0};
        EXPECT_EQ(set(object, row.property, row.good), 0);
        EXPECT_EQ(error_of(set(object, row.property, row.bad)), row.error);
        EXPECT_EQ(get(object, row.property, read), 0);
        EXPECT_TRUE(std::equal(read, read + row.count, row.good));
    };
    for (const Row& row : shared) {  // as long as there are buffers of that shape, it stays
        EXPECT_EQ(error_of(screen_set_pixmap_property_iv(pixmap, row.property, row.good)), EBUSY);
        EXPECT_EQ(error_of(screen_set_window_property_iv(window, row.property, row.good)), EBUSY);
    }
    EXPECT_EQ(screen_destroy_pixmap_buffer(pixmap), 0);
    EXPECT_EQ(screen_destroy_window_buffers(window), 0);
    for (const Row& row : shared) {
        check(row, screen_set_pixmap_property_iv, screen_get_pixmap_property_iv, pixmap);
        check(row, screen_set_window_property_iv, screen_get_window_property_iv, window);
    }
    for (const Row& row : of_windows) {
        check(row, screen_set_window_property_iv, screen_get_window_property_iv, window);
        EXPECT_EQ(error_of(screen_set_pixmap_property_iv(pixmap, row.property, row.good)), EINVAL);
    }
    const int zorder = -10000;
    int read = 0;
    EXPECT_EQ(screen_set_window_property_iv(window, SCREEN_PROPERTY_ZORDER, &zorder), 0);
    EXPECT_EQ(screen_get_window_property_iv(window, SCREEN_PROPERTY_ZORDER, &read), 0);
    EXPECT_EQ(read, zorder);
}

TEST_F(Screen, WindowsTurnTheirBuffersRound) {
    const screen_window_t window = make_window(100, 3, 3);
    std::array<void*, 3> first, second;
    int count = 0;
    platform_screen_frame frame;
    void* pointer;
    EXPECT_EQ(screen_get_window_property_iv(window, SCREEN_PROPERTY_RENDER_BUFFER_COUNT, &count), 0);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(screen_get_window_property_pv(window, SCREEN_PROPERTY_RENDER_BUFFERS, first.data()), 0);
    EXPECT_EQ(platform_screen_advance_window(window), 0);
    EXPECT_EQ(screen_get_window_property_pv(window, SCREEN_PROPERTY_RENDER_BUFFERS, second.data()), 0);
    EXPECT_EQ(second, (std::array<void*, 3>{first[1], first[2], first[0]}));
    ASSERT_EQ(platform_screen_hold_window(window, &frame), 0);
    const auto buffer = static_cast<screen_buffer_t>(first[1]);
    EXPECT_EQ(screen_get_buffer_property_pv(buffer, SCREEN_PROPERTY_POINTER, &pointer), 0);
    EXPECT_EQ(frame.pointer, pointer);
    EXPECT_EQ(screen_destroy_window(window), 0);
    EXPECT_EQ(live().buffers, at_start.buffers);
    EXPECT_EQ(live().frames, at_start.frames + 1);
    memset(frame.pointer, 1, frame.size);  // held beyond the window
    platform_screen_release_frame(&frame);
    platform_screen_release_frame(&frame);
    EXPECT_EQ(live().frames, at_start.frames);
}

TEST_F(Screen, DisplaysTellTheirFormats) {
    const screen_window_t window = make_window(1, 1, 1);
    void* display = nullptr;
    int count = 0, formats[19], size[2];
    ASSERT_EQ(screen_get_window_property_pv(window, SCREEN_PROPERTY_DISPLAY, &display), 0);
    const auto handle = static_cast<screen_display_t>(display);
    ASSERT_EQ(screen_get_display_property_iv(handle, SCREEN_PROPERTY_FORMAT_COUNT, &count), 0);
    ASSERT_LE(count, 19);
    EXPECT_EQ(screen_get_display_property_iv(handle, SCREEN_PROPERTY_FORMATS, formats), 0);
    for (int format : {6, 8, 9, 12, 14, 16})
        EXPECT_NE(std::find(formats, formats + count, format), formats + count);
    EXPECT_EQ(screen_get_display_property_iv(handle, SCREEN_PROPERTY_SIZE, size), 0);
    EXPECT_GT(size[0] * size[1], 0);
    EXPECT_EQ(error_of(screen_get_display_property_iv(handle, SCREEN_PROPERTY_FORMAT, &count)), EINVAL);
}

// Every call, with handles that never were, that are of another kind, and that have ended.
TEST_F(Screen, HandlesThatAreNotGoodAreRefused) {
    screen_context_t ended_context;
    ASSERT_EQ(screen_create_context(&ended_context, SCREEN_APPLICATION_CONTEXT), 0);
    ASSERT_EQ(screen_destroy_context(ended_context), 0);
    const screen_window_t ended_window = make_window(8, 8, 2);
    void *buffers[2], *display;
    ASSERT_EQ(screen_get_window_property_pv(ended_window, SCREEN_PROPERTY_RENDER_BUFFERS, buffers), 0);
    ASSERT_EQ(screen_get_window_property_pv(ended_window, SCREEN_PROPERTY_DISPLAY, &display), 0);
    ASSERT_EQ(screen_destroy_window(ended_window), 0);
    const screen_pixmap_t ended_pixmap = make_pixmap(SCREEN_FORMAT_RGB565, 8, 8);
    ASSERT_EQ(screen_destroy_pixmap(ended_pixmap), 0);
    int local = 0;
    for (void* bad :
         {static_cast<void*>(nullptr), static_cast<void*>(&local), static_cast<void*>(ended_context),
          static_cast<void*>(ended_window), static_cast<void*>(ended_pixmap), buffers[0], buffers[1]}) {
        const auto c = static_cast<screen_context_t>(bad);
        const auto w = static_cast<screen_window_t>(bad);
        const auto p = static_cast<screen_pixmap_t>(bad);
        const auto b = static_cast<screen_buffer_t>(bad);
        const auto d = static_cast<screen_display_t>(bad);
        screen_window_t window;
        screen_pixmap_t pixmap;
        int values[2] = {1, 1};
        void* pointers[2];
        long long wide;
        platform_screen_frame frame;
        const int errors[] = {
            error_of(screen_destroy_context(c)),
            error_of(screen_create_window_type(&window, c, 0)),
            error_of(screen_create_pixmap(&pixmap, c)),
            error_of(screen_destroy_window(w)),
            error_of(screen_set_window_property_iv(w, SCREEN_PROPERTY_ZORDER, values)),
            error_of(screen_get_window_property_iv(w, SCREEN_PROPERTY_ZORDER, values)),
            error_of(screen_get_window_property_pv(w, SCREEN_PROPERTY_RENDER_BUFFERS, pointers)),
            error_of(screen_create_window_buffers(w, 1)),
            error_of(screen_destroy_window_buffers(w)),
            error_of(screen_destroy_pixmap(p)),
            error_of(screen_set_pixmap_property_iv(p, SCREEN_PROPERTY_USAGE, values)),
            error_of(screen_get_pixmap_property_iv(p, SCREEN_PROPERTY_USAGE, values)),
            error_of(screen_get_pixmap_property_pv(p, SCREEN_PROPERTY_RENDER_BUFFERS, pointers)),
            error_of(screen_create_pixmap_buffer(p)),
            error_of(screen_destroy_pixmap_buffer(p)),
            error_of(screen_get_buffer_property_iv(b, SCREEN_PROPERTY_STRIDE, values)),
            error_of(screen_get_buffer_property_pv(b, SCREEN_PROPERTY_POINTER, pointers)),
            error_of(screen_get_buffer_property_llv(b, SCREEN_PROPERTY_PHYSICAL_ADDRESS, &wide)),
            error_of(screen_get_display_property_iv(d, SCREEN_PROPERTY_SIZE, values)),
            error_of(platform_screen_hold_pixmap(p, &frame)),
            error_of(platform_screen_hold_window(w, &frame)),
            error_of(platform_screen_hold_buffer(b, &frame)),
            error_of(platform_screen_advance_window(w)),
        };
        for (size_t i = 0; i < std::size(errors); ++i)
            EXPECT_EQ(errors[i], EINVAL) << "call " << i << ' ' << bad;
    }
    EXPECT_EQ(screen_destroy_context(context), 0);
    int size[2];
    const auto ended_display = static_cast<screen_display_t>(display);
    EXPECT_EQ(error_of(screen_get_display_property_iv(ended_display, SCREEN_PROPERTY_SIZE, size)), EINVAL);
}

TEST_F(Screen, ArgumentsThatAreNotGoodAreRefused) {
    const screen_pixmap_t pixmap = make_pixmap(SCREEN_FORMAT_RGB565, 8, 8);
    const screen_buffer_t buffer = buffer_of(pixmap);
    screen_pixmap_t bare_pixmap;
    screen_window_t window;
    screen_context_t other;
    int value = 0;
    void* pointer;
    long long wide;
    ASSERT_EQ(screen_create_pixmap(&bare_pixmap, context), 0);
    ASSERT_EQ(screen_create_window_type(&window, context, SCREEN_EMBEDDED_WINDOW), 0);
    const int too_large[] = {16384, 16384};
    ASSERT_EQ(screen_set_window_property_iv(window, SCREEN_PROPERTY_BUFFER_SIZE, too_large), 0);
    const struct {
        int result, expected;
    } rows[] = {
        {error_of(screen_create_context(nullptr, 0)), EINVAL},
        {error_of(screen_create_context(&other, 77)), EINVAL},
        {error_of(screen_create_window_type(nullptr, context, 0)), EINVAL},
        {error_of(screen_create_window_type(&window, context, 3)), EINVAL},
        {error_of(screen_create_window_type(&window, context, -1)), EINVAL},
        {error_of(screen_create_pixmap(nullptr, context)), EINVAL},
        {error_of(screen_create_pixmap_buffer(pixmap)), EBUSY},
        {error_of(screen_create_pixmap_buffer(bare_pixmap)), EINVAL},  // it has no size yet
        {error_of(screen_destroy_pixmap_buffer(bare_pixmap)), ENOENT},
        {error_of(screen_get_pixmap_property_pv(bare_pixmap, SCREEN_PROPERTY_RENDER_BUFFERS, &pointer)),
         ENOENT},
        {error_of(screen_create_window_buffers(window, 0)), EINVAL},
        {error_of(screen_create_window_buffers(window, 1)), EINVAL},  // 1 GiB
        {error_of(screen_destroy_window_buffers(window)), ENOENT},
        {error_of(platform_screen_advance_window(window)), ENOENT},
        {error_of(screen_get_window_property_iv(window, 9999, &value)), EINVAL},
        {error_of(screen_set_window_property_iv(window, SCREEN_PROPERTY_ZORDER, nullptr)), EINVAL},
        {error_of(screen_get_window_property_pv(window, SCREEN_PROPERTY_POINTER, &pointer)), EINVAL},
        {error_of(screen_set_pixmap_property_iv(pixmap, 9999, &value)), EINVAL},
        {error_of(screen_get_pixmap_property_pv(pixmap, SCREEN_PROPERTY_POINTER, &pointer)), EINVAL},
        {error_of(screen_get_buffer_property_iv(buffer, SCREEN_PROPERTY_POINTER, &value)), EINVAL},
        {error_of(screen_get_buffer_property_pv(buffer, SCREEN_PROPERTY_STRIDE, &pointer)), EINVAL},
        {error_of(screen_get_buffer_property_llv(buffer, SCREEN_PROPERTY_STRIDE, &wide)), EINVAL},
        {error_of(screen_get_buffer_property_llv(buffer, SCREEN_PROPERTY_PHYSICAL_ADDRESS, nullptr)), EINVAL},
    };
    for (size_t i = 0; i < std::size(rows); ++i) EXPECT_EQ(rows[i].result, rows[i].expected) << "row " << i;
}

TEST_F(Screen, ThreadsMakeAndEndObjectsOfOneContext) {
    const screen_window_t shared = make_window(16, 16, 3);
    kel_test::run_together(4, [&](int index) {
        for (int round = 0; round < 200; ++round) {
            const screen_pixmap_t pixmap = make_pixmap(SCREEN_FORMAT_NV12, 16 + index, 16);
            platform_screen_frame frame, window_frame;
            ASSERT_EQ(platform_screen_hold_buffer(buffer_of(pixmap), &frame), 0);
            ASSERT_EQ(platform_screen_advance_window(shared), 0);
            ASSERT_EQ(platform_screen_hold_window(shared, &window_frame), 0);
            ASSERT_EQ(screen_destroy_pixmap(pixmap), 0);
            memset(frame.pointer, index, frame.size);
            platform_screen_release_frame(&frame);
            platform_screen_release_frame(&window_frame);
        }
    });
}

}  // namespace
