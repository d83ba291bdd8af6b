// Pools in Screen's memory: what they hold, how they are made, and what is left when making them fails.
#include <gtest/gtest.h>
#include <kel.h>

#include <cinttypes>
#include <cstring>

#include "support/faults.hpp"

namespace {

using namespace kel_test;

using Messages = std::vector<LogMessage>;

constexpr kel_video_format rgba = {SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_NATIVE | SCREEN_USAGE_READ, 640, 480};

// A step of a creation: the call that fails, and what is said then. Level 3 goes on all the same.
struct Step {
    const char* function;
    const char* message;
    int level = 2;
};

const Step record_step = {"calloc", "kel: Unable to allocate memory for video buffer pool handle."};

const std::vector<Step> set_up_steps = {
    {"pthread_mutex_init", "kel: Unable to create buffer pool mutex.: Cannot allocate memory"},
    {"pthread_cond_init", "kel: Unable to create buffer pool condvar.: Cannot allocate memory"},
    {"calloc", "kel: Unable to allocate memory for buffer pool buffers."},
};

const std::vector<Step> buffer_steps = {
    {"screen_get_buffer_property_pv",
     "kel: init_video_buffer() screen_get_window_property_pv SCREEN_PROPERTY_POINTER: Cannot allocate "
     "memory"},
    {"screen_get_buffer_property_iv",
     "kel: init_video_buffer() screen_get_window_property_iv SCREEN_PROPERTY_STRIDE: Cannot allocate memory"},
    {"screen_get_buffer_property_llv",
     "kel: screen_get_window_property_llv SCREEN_PROPERTY_PHYSICAL_ADDRESS: Cannot allocate memory"},
    {"screen_get_buffer_property_iv",
     "kel: screen_get_window_property_iv SCREEN_PROPERTY_PHYSICALLY_CONTIGUOUS: Cannot allocate memory"},
};

const std::vector<Step> pixmap_steps = {
    {"screen_create_pixmap", "kel: screen_pixmap_create failed: Cannot allocate memory"},
    {"screen_set_pixmap_property_iv",
     "kel: screen_set_pixmap_property_iv(SCREEN_PROPERTY_USAGE) to 0000000A failed: Cannot allocate memory"},
    {"screen_set_pixmap_property_iv",
     "kel: screen_set_pixmap_property_iv(SCREEN_PROPERTY_FORMAT) failed: Cannot allocate memory"},
    {"screen_set_pixmap_property_iv",
     "kel: screen_set_pixmap_property_iv(SCREEN_PROPERTY_BUFFER_SIZE) failed: Cannot allocate memory."},
    {"screen_create_pixmap_buffer", "kel: screen_create_pixmap_buffer() failed: Cannot allocate memory."},
    {"screen_get_pixmap_property_pv",
     "kel: allocate_pixmap_buffers() screen_get_window_property_pv SCREEN_PROPERTY_RENDER_BUFFERS: Cannot "
     "allocate memory"},
};

#define WINDOW_PROPERTY "kel: screen_set_window_property_iv(SCREEN_PROPERTY_"
const std::vector<Step> window_steps = {
    {"screen_create_window_type", "kel: screen_create_window failed (err = -1, errno = 12)"},
    {"screen_set_window_property_iv", WINDOW_PROPERTY "ZORDER)  failed: Cannot allocate memory"},
    {"screen_set_window_property_iv", WINDOW_PROPERTY "SENSITIVITY) failed: Cannot allocate memory"},
    {"screen_set_window_property_iv", WINDOW_PROPERTY "TRANSPARENCY) failed: Cannot allocate memory"},
    {"screen_set_window_property_iv", WINDOW_PROPERTY "USAGE) to 0000000A failed: Cannot allocate memory"},
    {"screen_set_window_property_iv", WINDOW_PROPERTY "FORMAT) failed: Cannot allocate memory"},
    {"screen_set_window_property_iv", WINDOW_PROPERTY "BUFFER_SIZE) failed: Cannot allocate memory"},
    {"screen_set_window_property_iv", WINDOW_PROPERTY "SOURCE_SIZE) failed: Cannot allocate memory"},
    {"screen_set_window_property_iv", WINDOW_PROPERTY "SIZE): Cannot allocate memory", 3},
    {"screen_set_window_property_iv", WINDOW_PROPERTY "POSITION) (err = -1)", 3},
};

const std::vector<Step> window_buffer_steps = {
    {"calloc", "kel: allocate_window_buffers() unable to allocate temporary memory."},
    {"screen_create_window_buffers",
     "kel: allocate_window_buffers() unable to create window buffers: Cannot allocate memory"},
    {"screen_get_window_property_pv",
     "kel: allocate_window_buffers() screen_get_window_property_pv SCREEN_PROPERTY_RENDER_BUFFERS: Cannot "
     "allocate memory"},
};

std::vector<Step> join(std::initializer_list<std::vector<Step>> parts) {
    std::vector<Step> steps;
    for (const auto& part : parts) steps.insert(steps.end(), part.begin(), part.end());
    return steps;
}

class VideoPool : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_NE(context = kel_create_context(), nullptr); }
    void TearDown() override {
        screen_live_counts_t live;
        screen_get_live_counts(&live);
        EXPECT_EQ(live.windows + live.pixmaps + live.buffers, 0);
        kel_destroy_context(&context);
    }

    // Makes each step fail once. `create` returns whether it succeeded, and destroys what it made.
    static void sweep(const std::vector<Step>& steps, const std::function<bool()>& create) {
        const int tried = sweep_faults(screen_fault_points(), [&](const Fault* fault, LogCapture& log) {
            errno = 0;
            const bool created = create();
            Messages problems;
            for (const auto& message : log.messages()) {
                if (message.level < 5) problems.push_back(message);
            }
            if (!fault) {
                EXPECT_TRUE(created);
                EXPECT_EQ(problems, Messages{});
                return;
            }
            ASSERT_LE(fault->point, std::ssize(steps));
            const Step& step = steps[static_cast<std::size_t>(fault->point) - 1];
            EXPECT_EQ(fault->function, step.function);
            EXPECT_EQ(created, step.level == 3);
            EXPECT_EQ(problems, (Messages{{step.level, step.message}}));
            const bool sets_errno = !fault->function.starts_with("pthread_");
            EXPECT_EQ(errno, sets_errno ? ENOMEM : 0);  // the clean-up keeps the reason
        });
        EXPECT_EQ(tried, std::ssize(steps));
    }

    bool create_window_pool(const kel_video_format& format, int count) {
        kel_buffer_pool* pool = kel_create_window_buffer_pool(context, &format, SCREEN_CHILD_WINDOW, count);
        const bool created = pool != nullptr;
        kel_destroy_buffer_pool(&pool);
        return created;
    }

    bool create_pixmap_pool(const kel_video_format& format, int count) {
        kel_buffer_pool* pool = kel_create_pixmap_buffer_pool(context, &format, count);
        const bool created = pool != nullptr;
        kel_destroy_buffer_pool(&pool);
        return created;
    }

    void expect_frame(const kel_buffer_pool* pool, const kel_buffer& buffer, uint32_t size) {
        int stride = 0, contiguous = 0;
        long long address = 0;
        void* pointer = nullptr;
        EXPECT_EQ(buffer.pool, pool);
        EXPECT_EQ(screen_get_buffer_property_iv(buffer.screen_buffer, SCREEN_PROPERTY_STRIDE, &stride), 0);
        EXPECT_EQ(screen_get_buffer_property_pv(buffer.screen_buffer, SCREEN_PROPERTY_POINTER, &pointer), 0);
        EXPECT_EQ(
            screen_get_buffer_property_llv(buffer.screen_buffer, SCREEN_PROPERTY_PHYSICAL_ADDRESS, &address),
            0);
        EXPECT_EQ(screen_get_buffer_property_iv(buffer.screen_buffer, SCREEN_PROPERTY_PHYSICALLY_CONTIGUOUS,
                                                &contiguous),
                  0);
        EXPECT_EQ(buffer.stride, stride);
        EXPECT_EQ(buffer.ptr, pointer);
        EXPECT_EQ(buffer.paddr, static_cast<uint64_t>(address));
        EXPECT_EQ(buffer.flags, contiguous ? KEL_BUFFER_PHYS_CONTIGUOUS : 0u);
        EXPECT_EQ(buffer.size, size);
        EXPECT_EQ(buffer.refcount, 0);
        memset(buffer.ptr, 0xa5, buffer.size);  // all of it is ours
    }

    kel_context* context = nullptr;
};

TEST_F(VideoPool, EachBufferOfAPixmapPoolHasItsOwnPixmap) {
    const struct {
        kel_video_format format;
        uint32_t size;
    } rows[] = {{rgba, 640 * 4 * 480},
                {{SCREEN_FORMAT_NV12, 0, 640, 480}, 460800},
                {{SCREEN_FORMAT_NV12, 0, 63, 3}, 64 * 3 * 3 / 2},
                {{SCREEN_FORMAT_RGB565, 0, 33, 5}, 128 * 5},
                {{SCREEN_FORMAT_YUV420, 0, 64, 2}, 64 * 2}};  // only NV12 is given its chroma
    for (const auto& row : rows) {
        kel_buffer_pool* pool = kel_create_pixmap_buffer_pool(context, &row.format, 3);
        ASSERT_NE(pool, nullptr);
        screen_live_counts_t live;
        screen_get_live_counts(&live);
        EXPECT_EQ(live.pixmaps, 3);
        EXPECT_EQ(pool->context, context);
        EXPECT_EQ(pool->flags, 0u);
        EXPECT_EQ(pool->window, nullptr);
        EXPECT_EQ(pool->format.type, 1u);
        EXPECT_EQ(memcmp(&pool->format.video, &row.format, sizeof row.format), 0);
        for (int i = 0; i < 3; ++i) {
            int size[2];
            EXPECT_EQ(
                screen_get_pixmap_property_iv(pool->buffers[i].pixmap, SCREEN_PROPERTY_BUFFER_SIZE, size), 0);
            EXPECT_EQ(size[0], row.format.width);
            EXPECT_EQ(size[1], row.format.height);
            expect_frame(pool, pool->buffers[i], row.size);
        }
        kel_destroy_buffer_pool(&pool);
        EXPECT_EQ(pool, nullptr);
    }
}

TEST_F(VideoPool, TheBuffersOfAWindowPoolAreItsWindows) {
    const int capture = SCREEN_USAGE_CAPTURE | SCREEN_USAGE_NATIVE;
    const struct {
        kel_video_format format;
        int buffer_width;
    } rows[] = {{{SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_NATIVE, 1000, 30}, 1000},
                {{SCREEN_FORMAT_RGBA8888, capture, 1000, 30}, 1024},
                {{SCREEN_FORMAT_NV12, capture, 1024, 30}, 1024}};
    for (const auto& [format, buffer_width] : rows) {
        kel_buffer_pool* pool = kel_create_window_buffer_pool(context, &format, SCREEN_CHILD_WINDOW, 3);
        ASSERT_NE(pool, nullptr);
        EXPECT_EQ(pool->flags, KEL_POOL_WINDOW);
        const struct {
            int property, values[2];
        } properties[] = {
            {SCREEN_PROPERTY_ZORDER, {-10000}},
            {SCREEN_PROPERTY_SENSITIVITY, {2}},
            {SCREEN_PROPERTY_TRANSPARENCY, {4}},
            {SCREEN_PROPERTY_USAGE, {format.usage}},
            {SCREEN_PROPERTY_FORMAT, {format.format}},
            {SCREEN_PROPERTY_BUFFER_SIZE, {buffer_width, 30}},
            {SCREEN_PROPERTY_SOURCE_SIZE, {format.width, 30}},
            {SCREEN_PROPERTY_SIZE, {format.width, 30}},
            {SCREEN_PROPERTY_POSITION, {0, 0}},
            {SCREEN_PROPERTY_RENDER_BUFFER_COUNT, {3}},
        };
        for (const auto& row : properties) {
            int values[2] = {0, 0};
            EXPECT_EQ(screen_get_window_property_iv(pool->window, row.property, values), 0);
            EXPECT_EQ(values[0], row.values[0]) << row.property;
            EXPECT_EQ(values[1], row.values[1]) << row.property;
        }
        void* rendered[3];
        EXPECT_EQ(screen_get_window_property_pv(pool->window, SCREEN_PROPERTY_RENDER_BUFFERS, rendered), 0);
        for (int i = 0; i < 3; ++i) {
            const kel_buffer& buffer = pool->buffers[i];
            const auto rows_size = static_cast<uint32_t>(buffer.stride) * 30;
            expect_frame(pool, buffer, format.format == SCREEN_FORMAT_NV12 ? rows_size * 3 / 2 : rows_size);
            EXPECT_EQ(buffer.screen_buffer, rendered[i]);
            EXPECT_EQ(buffer.pixmap, nullptr);
        }
        kel_destroy_buffer_pool(&pool);
    }
}

TEST_F(VideoPool, EachStepOfAPixmapPoolCanFail) {
    const auto one = join({pixmap_steps, buffer_steps});
    sweep(join({{record_step}, set_up_steps, one, one, one}), [&] { return create_pixmap_pool(rgba, 3); });
}

TEST_F(VideoPool, EachStepOfAWindowPoolCanFail) {
    sweep(join({window_steps, {record_step}, set_up_steps, window_buffer_steps, buffer_steps, buffer_steps}),
          [&] { return create_window_pool(rgba, 2); });
}

TEST_F(VideoPool, EachStepOfAPixmapBufferCanFail) {
    const Step handle = {
        "calloc", "kel: kel_create_pixmap_buffer() Unable to allocate memory for video buffer handle."};
    sweep(join({{handle}, set_up_steps, pixmap_steps, buffer_steps}), [&] {
        kel_buffer* buffer = kel_create_pixmap_buffer(context, &rgba);
        kel_release_buffer(buffer);
        return buffer != nullptr;
    });
}

TEST_F(VideoPool, APixmapBufferTakesItsPoolWithIt) {
    LogCapture log;
    kel_buffer* buffer = kel_create_pixmap_buffer(context, &rgba);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->refcount, 1);
    EXPECT_EQ(buffer->pool->flags, KEL_POOL_MARKED_FOR_DESTRUCTION);
    char surface[100], end[80];
    snprintf(surface, sizeof surface,
             "kel: init_video_buffer() Created surface is 2560 x 480, 1228800 bytes big @ %" PRIxPTR ".",
             reinterpret_cast<uintptr_t>(buffer->ptr));
    snprintf(end, sizeof end, "kel: Automatically destroying buffer pool at %08" PRIxPTR,
             reinterpret_cast<uintptr_t>(buffer->pool));
    EXPECT_EQ(kel_ref_buffer(buffer), 0);
    EXPECT_EQ(kel_release_buffer(buffer), 0);
    EXPECT_EQ(buffer->refcount, 1);
    EXPECT_EQ(kel_release_buffer(buffer), 0);
    EXPECT_EQ(log.messages(),
              (Messages{{6, "kel: allocate_video_buffers() of 1 buffers of 640 x 480 pixels each"},
                        {6, surface},
                        {6, end}}));
}

TEST_F(VideoPool, AWindowPoolSaysWhatItDoes) {
    LogCapture log;
    const kel_video_format format = {SCREEN_FORMAT_NV12, 0, 64, 4};
    kel_buffer_pool* pool = kel_create_window_buffer_pool(context, &format, SCREEN_CHILD_WINDOW, 1);
    ASSERT_NE(pool, nullptr);
    char window[80], surface[100];
    snprintf(window, sizeof window, "kel: allocate_window_buffers() 0x%08" PRIxPTR ", 1.",
             reinterpret_cast<uintptr_t>(pool->window));
    snprintf(surface, sizeof surface,
             "kel: init_video_buffer() Created surface is 64 x 4, 256 bytes big @ %" PRIxPTR ".",
             reinterpret_cast<uintptr_t>(pool->buffers[0].ptr));
    EXPECT_EQ(log.messages(),
              (Messages{{7, "kel: format 0x0000000c"},
                        {6, "kel: allocate_video_buffers() of 1 buffers of 64 x 4 pixels each"},
                        {6, window},
                        {6, surface}}));
    kel_destroy_buffer_pool(&pool);
}

TEST_F(VideoPool, RefusesWhatCannotBeAFrame) {
    const struct {
        int32_t width, height, count;
    } rows[] = {{640, 480, 0}, {640, 480, -1}, {0, 480, 1}, {640, 0, 1}, {-640, 480, 1}, {640, -480, 1}};
    for (const auto& row : rows) {
        LogCapture log;
        const kel_video_format format = {SCREEN_FORMAT_RGBA8888, 0, row.width, row.height};
        EXPECT_FALSE(create_pixmap_pool(format, row.count));
        EXPECT_FALSE(create_window_pool(format, row.count));
        EXPECT_EQ(log.messages(2), Messages(2, {2, "kel: allocate_video_buffers() invalid parameters."}));
    }
    LogCapture log;  // no connection: Screen says so
    EXPECT_EQ(kel_create_pixmap_buffer_pool(nullptr, &rgba, 1), nullptr);
    EXPECT_EQ(kel_create_window_buffer_pool(nullptr, &rgba, SCREEN_CHILD_WINDOW, 1), nullptr);
    EXPECT_EQ(log.messages(2), (Messages{{2, "kel: screen_pixmap_create failed: Invalid argument"},
                                         {2, "kel: screen_create_window failed (err = -1, errno = 22)"}}));
}

// What a compositor may answer without an error, and no buffer can be made of.
int no_buffer(screen_pixmap_t, int, void** values) {
    *values = nullptr;
    return 0;
}
int no_pointer(screen_buffer_t, int, void** values) {
    *values = nullptr;
    return 0;
}
int no_address(screen_buffer_t, int, long long* values) {
    *values = 0;
    return 0;
}
int huge_stride(screen_buffer_t, int, int* values) {
    *values = INT32_MAX;
    return 0;
}
int no_stride(screen_buffer_t, int, int* values) {
    *values = 0;
    return 0;
}

TEST_F(VideoPool, RefusesAnswersThatAreOfNoUse) {
    const struct {
        const char* function;
        void* answer;
        const char* message;
    } rows[] = {
        {"screen_get_pixmap_property_pv", reinterpret_cast<void*>(no_buffer),
         "kel: init_video_buffer() buffer was NULL"},
        {"screen_get_buffer_property_pv", reinterpret_cast<void*>(no_pointer),
         "kel: init_video_buffer() invalid pointer returned from Screen."},
        {"screen_get_buffer_property_llv", reinterpret_cast<void*>(no_address),
         "kel: buffer physical address not available from composition manager"},
        {"screen_get_buffer_property_iv", reinterpret_cast<void*>(huge_stride),
         "kel: allocate_video_buffers() invalid parameters."},
        {"screen_get_buffer_property_iv", reinterpret_cast<void*>(no_stride),
         "kel: allocate_video_buffers() invalid parameters."},
    };
    for (const auto& row : rows) {
        LogCapture log;
        const ImportHook answered(row.function, row.answer);
        EXPECT_FALSE(create_pixmap_pool(rgba, 2));
        EXPECT_EQ(log.messages(2), (Messages{{2, row.message}}));
    }
}

}  // namespace
