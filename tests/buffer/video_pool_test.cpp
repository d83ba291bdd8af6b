// Pools in Screen's memory: what they hold, how they are made, and what is left when making them fails.
#include <gtest/gtest.h>
#include <kel.h>

#include <cinttypes>
#include <cstdarg>
#include <cstring>

#include "support/faults.hpp"

namespace {

using namespace kel_test;

using Messages = std::vector<LogMessage>;

constexpr kel_video_format rgba = {SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_NATIVE | SCREEN_USAGE_READ, 640, 480};

// A step of a creation: the call that fails, and what is said then (%s: the reason). After level 3 it goes on.
struct Step {
    const char* function;
    const char* message;
    int level = 2;
};
using Steps = std::vector<Step>;

const Steps record_step = {{"calloc", "kel: Unable to allocate memory for video buffer pool handle."}};
const Steps single_record_step = {
    {"calloc", "kel: kel_create_pixmap_buffer() Unable to allocate memory for video buffer handle."}};
const Steps set_up_steps = {
    {"pthread_mutex_init", "kel: Unable to create buffer pool mutex.: %s"},
    {"pthread_cond_init", "kel: Unable to create buffer pool condvar.: %s"},
    {"calloc", "kel: Unable to allocate memory for buffer pool buffers."},
};
const Steps buffer_steps = {
    {"screen_get_buffer_property_pv",
     "kel: init_video_buffer() screen_get_window_property_pv SCREEN_PROPERTY_POINTER: %s"},
    {"screen_get_buffer_property_iv",
     "kel: init_video_buffer() screen_get_window_property_iv SCREEN_PROPERTY_STRIDE: %s"},
    {"screen_get_buffer_property_llv",
     "kel: screen_get_window_property_llv SCREEN_PROPERTY_PHYSICAL_ADDRESS: %s"},
    {"screen_get_buffer_property_iv",
     "kel: screen_get_window_property_iv SCREEN_PROPERTY_PHYSICALLY_CONTIGUOUS: %s"},
};
#define PIXMAP_PROPERTY "screen_set_pixmap_property_iv", "kel: screen_set_pixmap_property_iv(SCREEN_PROPERTY_"
const Steps pixmap_steps = {
    {"screen_create_pixmap", "kel: screen_pixmap_create failed: %s"},
    {PIXMAP_PROPERTY "USAGE) to 0000000A failed: %s"},
    {PIXMAP_PROPERTY "FORMAT) failed: %s"},
    {PIXMAP_PROPERTY "BUFFER_SIZE) failed: %s."},
    {"screen_create_pixmap_buffer", "kel: screen_create_pixmap_buffer() failed: %s."},
    {"screen_get_pixmap_property_pv",
     "kel: allocate_pixmap_buffers() screen_get_window_property_pv SCREEN_PROPERTY_RENDER_BUFFERS: %s"},
};
#define WINDOW_PROPERTY "screen_set_window_property_iv", "kel: screen_set_window_property_iv(SCREEN_PROPERTY_"
const Steps window_steps = {
    {"screen_create_window_type", "kel: screen_create_window failed (err = -1, errno = 12)"},
    {WINDOW_PROPERTY "ZORDER)  failed: %s"},
    {WINDOW_PROPERTY "SENSITIVITY) failed: %s"},
    {WINDOW_PROPERTY "TRANSPARENCY) failed: %s"},
    {WINDOW_PROPERTY "USAGE) to 0000000A failed: %s"},
    {WINDOW_PROPERTY "FORMAT) failed: %s"},
    {WINDOW_PROPERTY "BUFFER_SIZE) failed: %s"},
    {WINDOW_PROPERTY "SOURCE_SIZE) failed: %s"},
    {WINDOW_PROPERTY "SIZE): %s", 3},
    {WINDOW_PROPERTY "POSITION) (err = -1)", 3},
};
const Steps window_buffer_steps = {
    {"calloc", "kel: allocate_window_buffers() unable to allocate temporary memory."},
    {"screen_create_window_buffers", "kel: allocate_window_buffers() unable to create window buffers: %s"},
    {"screen_get_window_property_pv",
     "kel: allocate_window_buffers() screen_get_window_property_pv SCREEN_PROPERTY_RENDER_BUFFERS: %s"},
};

__attribute__((format(printf, 1, 2))) std::string text(const char* format, ...) {
    char buffer[160];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(buffer, sizeof buffer, format, arguments);
    va_end(arguments);
    return buffer;
}

uintptr_t address(const void* pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}

class VideoPool : public ::testing::Test {
  protected:
    void TearDown() override {
        EXPECT_EQ(live().windows + live().pixmaps + live().buffers, 0);
        kel_destroy_context(&context);
    }

    static screen_live_counts_t live() {
        screen_live_counts_t counts;
        screen_get_live_counts(&counts);
        return counts;
    }

    // Whether a pool can be made.
    static bool succeeds(kel_buffer_pool* pool) {
        const bool made = pool != nullptr;
        kel_destroy_buffer_pool(&pool);
        return made;
    }
    kel_buffer_pool* pixmap_pool(const kel_video_format& format, int count) const {
        return kel_create_pixmap_buffer_pool(context, &format, count);
    }
    kel_buffer_pool* window_pool(const kel_video_format& format, int count) const {
        return kel_create_window_buffer_pool(context, &format, SCREEN_CHILD_WINDOW, count);
    }

    // Makes each step fail once; `create` tells whether it succeeded and destroys what it made.
    static void sweep(std::initializer_list<Steps> parts, const std::function<bool()>& create) {
        Steps steps;
        for (const Steps& part : parts) steps.insert(steps.end(), part.begin(), part.end());
        const int tried = sweep_faults(screen_fault_points(), [&](const Fault* fault, LogCapture& log) {
            errno = 0;
            const bool created = create();
            Messages problems = log.messages(), expected;
            std::erase_if(problems, [](const LogMessage& message) { return message.level > 3; });
            if (fault) {
                ASSERT_LE(fault->point, std::ssize(steps));
                const Step& step = steps[static_cast<std::size_t>(fault->point) - 1];
                EXPECT_EQ(fault->function, step.function);
                EXPECT_EQ(errno, fault->function.starts_with("pthread_") ? 0 : ENOMEM);  // clean-up keeps it
                std::string message = step.message;
                if (const auto reason = message.find("%s"); reason != message.npos)
                    message.replace(reason, 2, strerror(ENOMEM));
                expected = {{step.level, message}};
            }
            EXPECT_EQ(problems, expected);
            EXPECT_EQ(created, !fault || expected.front().level == 3);
        });
        EXPECT_EQ(tried, std::ssize(steps));
    }

    // The record holds what Screen says of the buffer, and nothing else.
    static void expect_frame(const kel_buffer& buffer, kel_buffer_pool* pool, uint32_t size) {
        kel_buffer expected;
        memset(&expected, 0, sizeof expected);
        int contiguous = 0;
        long long paddr = 0;
        const screen_buffer_t source = buffer.screen_buffer;
        screen_get_buffer_property_pv(source, SCREEN_PROPERTY_POINTER, &expected.ptr);
        screen_get_buffer_property_iv(source, SCREEN_PROPERTY_STRIDE, &expected.stride);
        screen_get_buffer_property_llv(source, SCREEN_PROPERTY_PHYSICAL_ADDRESS, &paddr);
        screen_get_buffer_property_iv(source, SCREEN_PROPERTY_PHYSICALLY_CONTIGUOUS, &contiguous);
        expected.pool = pool;
        expected.size = size;
        expected.flags = contiguous ? KEL_BUFFER_PHYS_CONTIGUOUS : 0;
        expected.pixmap = buffer.pixmap;
        expected.screen_buffer = source;
        expected.paddr = static_cast<uint64_t>(paddr);
        EXPECT_EQ(memcmp(&buffer, &expected, sizeof buffer), 0);
        memset(buffer.ptr, 0xa5, buffer.size);  // all of it is ours
    }

    kel_context* context = kel_create_context();
};

TEST_F(VideoPool, EachStepCanFail) {
    sweep({record_step, set_up_steps, pixmap_steps, buffer_steps, pixmap_steps, buffer_steps, pixmap_steps,
           buffer_steps},
          [&] { return succeeds(pixmap_pool(rgba, 3)); });
    sweep({window_steps, record_step, set_up_steps, window_buffer_steps, buffer_steps, buffer_steps},
          [&] { return succeeds(window_pool(rgba, 2)); });
    sweep({single_record_step, set_up_steps, pixmap_steps, buffer_steps}, [&] {
        kel_buffer* buffer = kel_create_pixmap_buffer(context, &rgba);
        kel_release_buffer(buffer);
        return buffer != nullptr;
    });
}

TEST_F(VideoPool, EachBufferOfAPixmapPoolHasItsOwnPixmap) {
    const struct {
        kel_video_format format;
        uint32_t size;
    } rows[] = {{rgba, 640 * 4 * 480},
                {{SCREEN_FORMAT_NV12, 0, 640, 480}, 460800},
                {{SCREEN_FORMAT_NV12, 0, 63, 3}, 64 * 3 * 3 / 2},
                {{SCREEN_FORMAT_RGB565, 0, 33, 5}, 128 * 5},
                {{SCREEN_FORMAT_YUV420, 0, 64, 2}, 64 * 2}};  // only NV12 is given its chroma
    for (const auto& [format, size] : rows) {
        kel_buffer_pool* pool = pixmap_pool(format, 3);
        ASSERT_NE(pool, nullptr);
        EXPECT_EQ(live().pixmaps, 3);
        EXPECT_EQ(std::tuple(pool->context, pool->flags, pool->format.type), std::tuple(context, 0u, 1u));
        EXPECT_EQ(memcmp(&pool->format.video, &format, sizeof format), 0);
        for (int i = 0; i < 3; ++i) {
            int dimensions[2] = {0, 0};
            screen_get_pixmap_property_iv(pool->buffers[i].pixmap, SCREEN_PROPERTY_BUFFER_SIZE, dimensions);
            EXPECT_EQ(std::pair(dimensions[0], dimensions[1]), std::pair(format.width, format.height));
            expect_frame(pool->buffers[i], pool, size);
        }
        kel_destroy_buffer_pool(&pool);
        EXPECT_EQ(pool, nullptr);
    }
}

TEST_F(VideoPool, TheBuffersOfAWindowPoolAreItsWindows) {
    const struct {
        kel_video_format format;
        int buffer_width;
        uint32_t size;
    } rows[] = {{{SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_NATIVE, 1000, 30}, 1000, 4032 * 30},
                {{SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_CAPTURE, 1000, 30}, 1024, 4096 * 30},
                {{SCREEN_FORMAT_NV12, SCREEN_USAGE_CAPTURE, 1024, 30}, 1024, 1024 * 45}};
    for (const auto& [format, buffer_width, size] : rows) {
        LogCapture log;
        kel_buffer_pool* pool = window_pool(format, 2);
        ASSERT_NE(pool, nullptr);
        EXPECT_EQ(pool->flags, KEL_POOL_WINDOW);
        Messages said = {
            {7, text("kel: format 0x%08x", format.format)},
            {6, text("kel: allocate_video_buffers() of 2 buffers of %d x 30 pixels each", format.width)},
            {6, text("kel: allocate_window_buffers() 0x%08" PRIxPTR ", 2.", address(pool->window))}};
        void* rendered[2];
        EXPECT_EQ(screen_get_window_property_pv(pool->window, SCREEN_PROPERTY_RENDER_BUFFERS, rendered), 0);
        for (int i = 0; i < 2; ++i) {
            const kel_buffer& buffer = pool->buffers[i];
            expect_frame(buffer, pool, size);
            EXPECT_EQ(buffer.screen_buffer, rendered[i]);
            EXPECT_EQ(buffer.pixmap, nullptr);
            said.push_back(
                {6, text("kel: init_video_buffer() Created surface is %d x 30, %d bytes big @ %" PRIxPTR ".",
                         buffer.stride, buffer.stride * 30, address(buffer.ptr))});
        }
        EXPECT_EQ(log.messages(), said);
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
        };
        for (const auto& [property, expected] : properties) {
            int values[2] = {0, 0};
            EXPECT_EQ(screen_get_window_property_iv(pool->window, property, values), 0);
            EXPECT_TRUE(std::equal(values, values + 2, expected)) << property;
        }
        kel_destroy_buffer_pool(&pool);
    }
}

TEST_F(VideoPool, RefusesWhatCannotBeAFrame) {
    const struct {
        int32_t width, height, count;
    } rows[] = {{640, 480, 0}, {640, 480, -1}, {0, 480, 1}, {640, 0, 1}, {-640, 480, 1}, {640, -480, 1}};
    for (const auto& row : rows) {
        LogCapture log;
        const kel_video_format format = {SCREEN_FORMAT_RGBA8888, 0, row.width, row.height};
        EXPECT_EQ(pixmap_pool(format, row.count), nullptr);
        EXPECT_EQ(window_pool(format, row.count), nullptr);
        EXPECT_EQ(log.messages(2), Messages(2, {2, "kel: allocate_video_buffers() invalid parameters."}));
    }
    LogCapture log;  // no connection: Screen says so
    EXPECT_EQ(kel_create_pixmap_buffer_pool(nullptr, &rgba, 1), nullptr);
    EXPECT_EQ(kel_create_window_buffer_pool(nullptr, &rgba, SCREEN_CHILD_WINDOW, 1), nullptr);
    EXPECT_EQ(log.messages(2), (Messages{{2, "kel: screen_pixmap_create failed: Invalid argument"},
                                         {2, "kel: screen_create_window failed (err = -1, errno = 22)"}}));
}

// A compositor that reports success and gives a value of no use.
template <typename Handle, typename Value, auto value>
int answer(Handle, int, Value* values) {
    *values = value;
    return 0;
}

TEST_F(VideoPool, RefusesAnswersThatAreOfNoUse) {
    const auto refuse = [&](const char* function, auto replacement, const char* message) {
        LogCapture log;
        const ImportHook answered = hook(replacement, function);
        EXPECT_EQ(pixmap_pool(rgba, 2), nullptr);
        EXPECT_EQ(log.messages(2), (Messages{{2, message}}));
    };
    refuse("screen_get_pixmap_property_pv", answer<screen_pixmap_t, void*, nullptr>,
           "kel: init_video_buffer() buffer was NULL");
    refuse("screen_get_buffer_property_pv", answer<screen_buffer_t, void*, nullptr>,
           "kel: init_video_buffer() invalid pointer returned from Screen.");
    refuse("screen_get_buffer_property_llv", answer<screen_buffer_t, long long, 0>,
           "kel: buffer physical address not available from composition manager");
    refuse("screen_get_buffer_property_iv", answer<screen_buffer_t, int, 0>,
           "kel: allocate_video_buffers() invalid parameters.");
    refuse("screen_get_buffer_property_iv", answer<screen_buffer_t, int, INT32_MAX>,
           "kel: allocate_video_buffers() invalid parameters.");
}

}  // namespace
