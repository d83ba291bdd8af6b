// Screen objects: frame memory for every format, what is refused and how, handles that ended.
#include <algorithm>
#include <array>
#include <climits>
#include <set>

#include "platform/screen/screen_fixture.hpp"
#include "support/threads.hpp"

namespace {

TEST_F(Screen, FramesAreLaidOutByTheirFormat) {
    const struct {
        int format, width, height, stride;
        size_t size;
    } rows[] = {
        {SCREEN_FORMAT_RGB565, 33, 5, 128, 128 * 5},
        {SCREEN_FORMAT_RGBA8888, 640, 480, 2560, 2560 * 480},
        {SCREEN_FORMAT_RGBX8888, 17, 1, 128, 128},
        {SCREEN_FORMAT_YVU9, 65, 9, 128, 128 * 9 + 32 * 3 * 2},
        {SCREEN_FORMAT_YUV420, 64, 5, 64, 64 * 5 + 32 * 6},
        {SCREEN_FORMAT_NV12, 63, 3, 64, 64 * 3 + 64 * 2},
        {SCREEN_FORMAT_YV12, 1, 1, 64, 64 + 32 * 2},
        {SCREEN_FORMAT_UYVY, 33, 2, 128, 256},
        {SCREEN_FORMAT_YUY2, 32, 2, 64, 128},
        {SCREEN_FORMAT_YVYU, 1, 1, 64, 64},
        {SCREEN_FORMAT_V422, 31, 7, 64, 448},
    };
    std::set<long long> addresses;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.format);
        const screen_pixmap_t pixmap = make_pixmap(row.format, row.width, row.height);
        const screen_buffer_t buffer = buffer_of(pixmap);
        const std::pair<int, std::vector<int>> properties[] = {
            {SCREEN_PROPERTY_STRIDE, {row.stride, 0}},
            {SCREEN_PROPERTY_FORMAT, {row.format, 0}},
            {SCREEN_PROPERTY_BUFFER_SIZE, {row.width, row.height}},
            {SCREEN_PROPERTY_PHYSICALLY_CONTIGUOUS, {1, 0}}};
        for (const auto& [property, expected] : properties) {
            std::vector<int> values(2);
            EXPECT_EQ(screen_get_buffer_property_iv(buffer, property, values.data()), 0);
            EXPECT_EQ(values, expected) << property;
        }
        void* pointer;
        long long physical, again;
        EXPECT_EQ(screen_get_buffer_property_pv(buffer, SCREEN_PROPERTY_POINTER, &pointer), 0);
        EXPECT_EQ(screen_get_buffer_property_llv(buffer, SCREEN_PROPERTY_PHYSICAL_ADDRESS, &physical), 0);
        EXPECT_EQ(screen_get_buffer_property_llv(buffer, SCREEN_PROPERTY_PHYSICAL_ADDRESS, &again), 0);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(pointer) % 64, 0u);
        EXPECT_TRUE(physical == again && physical > 0xffffffff && addresses.insert(physical).second);
        platform_screen_frame frame;
        ASSERT_EQ(platform_screen_hold_pixmap(pixmap, &frame), 0);
        EXPECT_EQ(frame.size, row.size);
        EXPECT_EQ(frame.pointer, pointer);
        const auto* bytes = static_cast<unsigned char*>(frame.pointer);
        EXPECT_EQ(std::count(bytes, bytes + frame.size, 0), static_cast<std::ptrdiff_t>(frame.size));
        memset(frame.pointer, 0xab, frame.size);  // all of it is ours, or the address sanitizer says so
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
        {SCREEN_PROPERTY_ZORDER, 1, {-10000}, {0}, 0},
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
        if (row.error) {
            EXPECT_EQ(error_of(set(object, row.property, row.bad)), row.error);
        }
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
    const std::vector<void*> all_bad = {nullptr,      &local,     ended_context, ended_window,
                                        ended_pixmap, buffers[0], buffers[1]};
    for (void* bad : all_bad) {
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
    const auto its_display = static_cast<screen_display_t>(display);
    int count = 0, formats[19];
    ASSERT_EQ(screen_get_display_property_iv(its_display, SCREEN_PROPERTY_FORMAT_COUNT, &count), 0);
    ASSERT_LE(count, 19);
    EXPECT_EQ(screen_get_display_property_iv(its_display, SCREEN_PROPERTY_FORMATS, formats), 0);
    for (int format : {6, 8, 9, 12, 14, 16}) EXPECT_EQ(std::count(formats, formats + count, format), 1);
    EXPECT_EQ(error_of(screen_get_display_property_iv(its_display, SCREEN_PROPERTY_FORMAT, &count)), EINVAL);
    EXPECT_EQ(screen_destroy_context(context), 0);  // and its display with it
    EXPECT_EQ(error_of(screen_get_display_property_iv(its_display, SCREEN_PROPERTY_FORMAT_COUNT, &count)),
              EINVAL);
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
    const auto render_buffers = SCREEN_PROPERTY_RENDER_BUFFERS;
    const std::pair<int, int> rows[] = {
        {error_of(screen_create_context(nullptr, 0)), EINVAL},
        {error_of(screen_create_context(&other, 77)), EINVAL},
        {error_of(screen_create_window_type(nullptr, context, 0)), EINVAL},
        {error_of(screen_create_window_type(&window, context, 3)), EINVAL},
        {error_of(screen_create_window_type(&window, context, -1)), EINVAL},
        {error_of(screen_create_pixmap(nullptr, context)), EINVAL},
        {error_of(screen_create_pixmap_buffer(pixmap)), EBUSY},
        {error_of(screen_create_pixmap_buffer(bare_pixmap)), EINVAL},  // it has no size yet
        {error_of(screen_destroy_pixmap_buffer(bare_pixmap)), ENOENT},
        {error_of(screen_get_pixmap_property_pv(bare_pixmap, render_buffers, &pointer)), ENOENT},
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
    };
    for (const auto& row : rows) EXPECT_EQ(row.first, row.second) << "row " << &row - rows;
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
