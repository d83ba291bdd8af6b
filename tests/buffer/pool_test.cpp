// Audio pools, and what every pool does: acquisition, counting, waiting, destruction.
#include <gtest/gtest.h>
#include <kel.h>

#include <cinttypes>
#include <cstring>
#include <random>
#include <thread>
#include <tuple>

#include "support/faults.hpp"
#include "support/threads.hpp"

namespace {

using namespace kel_test;

constexpr kel_audio_format stereo = {48000, 2, KEL_AUDIO_TYPE_S16LE};

const LogMessage no_acquisition = {
    2, "kel: Attempt to acquire buffer after pool has been marked for destruction"};
const LogMessage no_reference = {2, "kel: Attempt to reference a buffer that has not been acquired."};
const LogMessage no_release = {2, "kel: Attempt to release buffer that has not been acquired."};

using Messages = std::vector<LogMessage>;

class Pool : public ::testing::Test {
  protected:
    void TearDown() override { kel_destroy_buffer_pool(&pool); }

    // All buffers acquired, in index order.
    void fill(int count) {
        pool = kel_create_audio_buffer_pool(nullptr, &stereo, 4, count);
        ASSERT_NE(pool, nullptr);
        for (int i = 0; i < count; ++i) ASSERT_EQ(kel_acquire_buffer(pool), &pool->buffers[i]);
    }

    kel_buffer_pool* pool = nullptr;
    LogCapture log;
    Watchdog watchdog{std::chrono::seconds(120)};
};

TEST_F(Pool, CutsAZeroFilledBlockIntoAlignedSlots) {
    const struct {
        kel_audio_format format;
        uint32_t nsamples, size, stride;
    } rows[] = {{stereo, 25, 100, 112},
                {stereo, 32, 128, 128},
                {{8000, 1, KEL_AUDIO_TYPE_U8}, 1, 1, 16},
                {{96000, 6, KEL_AUDIO_TYPE_S24_8LE}, 1024, 24576, 24576}};
    auto* context = reinterpret_cast<kel_context*>(this);  // kept, never looked at
    for (const auto& row : rows) {
        pool = kel_create_audio_buffer_pool(context, &row.format, row.nsamples, 3);
        ASSERT_NE(pool, nullptr);
        EXPECT_EQ(std::tuple(pool->count, pool->in_use, pool->flags, pool->context, pool->window),
                  std::tuple(3, 0, 0u, context, nullptr));
        auto* data = static_cast<char*>(pool->buffers[0].ptr);
        EXPECT_TRUE(std::all_of(data, data + 3 * row.stride, [](char byte) { return byte == 0; }));
        for (uint32_t i = 0; i < 3; ++i) {
            kel_buffer expected;
            memset(&expected, 0, sizeof expected);  // the video fields stay 0
            expected.pool = pool;
            expected.ptr = data + i * row.stride;
            expected.size = row.size;
            EXPECT_EQ(memcmp(&pool->buffers[i], &expected, sizeof expected), 0);
        }
        const kel_buffer_format& format = *kel_get_buffer_format(&pool->buffers[2]);
        EXPECT_EQ(std::pair(format.type, format.nsamples), std::pair(2u, row.nsamples));
        EXPECT_FALSE(kel_audio_formats_differ(&format.audio, &row.format));
        kel_destroy_buffer_pool(&pool);
        EXPECT_EQ(pool, nullptr);
    }
}

TEST_F(Pool, RefusesSizesThatAreNotPositiveOrOverflow) {
    const struct {
        kel_audio_format format;
        uint32_t nsamples;
        int32_t count;
    } rows[] = {
        {stereo, 4, 0},
        {stereo, 4, -1},
        {stereo, 4, INT32_MIN},
        {stereo, 0, 4},
        {stereo, 0x40000001, 4},                              // 2^32 + 4 bytes
        {{48000, 0x40000001, KEL_AUDIO_TYPE_S24_8LE}, 1, 4},  // in the frame alone
        {{48000, 0, KEL_AUDIO_TYPE_S16LE}, 4, 4},
        {{48000, -2, KEL_AUDIO_TYPE_S16LE}, 4, 4},
        {{48000, 2, 0}, 4, 4},
#if UINTPTR_MAX == UINT32_MAX
        {stereo, 0x10000000, 16},  // more than the address space
#endif
    };
    for (const auto& row : rows) {
        log.clear();
        EXPECT_EQ(kel_create_audio_buffer_pool(nullptr, &row.format, row.nsamples, row.count), nullptr);
        EXPECT_EQ(log.messages(),
                  (Messages{{2, "kel: Unable to allocate memory for audio buffer pool data."}}));
    }
}

TEST(PoolCreation, EachFailureIsReported) {
    const struct {
        const char* function;
        int occurrence;
        const char* message;
    } steps[] = {
        {"calloc", 1, "kel: Unable to allocate memory for audio buffer pool handle."},
        {"calloc", 2, "kel: Unable to allocate memory for audio buffer pool data."},
        {"pthread_mutex_init", 1, "kel: Unable to create buffer pool mutex.: Cannot allocate memory"},
        {"pthread_cond_init", 1, "kel: Unable to create buffer pool condvar.: Cannot allocate memory"},
        {"calloc", 3, "kel: Unable to allocate memory for buffer pool buffers."},
    };
    const int tried = sweep_faults({}, [&](const Fault* fault, LogCapture& log) {
        kel_buffer_pool* pool = kel_create_audio_buffer_pool(nullptr, &stereo, 4, 3);
        EXPECT_EQ(pool == nullptr, fault != nullptr);
        if (fault) {
            const auto& step = steps[fault->point - 1];
            EXPECT_TRUE(fault->is(step.function, step.occurrence));
            EXPECT_EQ(log.messages(), (Messages{{2, step.message}}));
        }
        kel_destroy_buffer_pool(&pool);
    });
    EXPECT_EQ(tried, std::ssize(steps));
}

TEST_F(Pool, CountsLikeAPlainScan) {
    std::mt19937 random(random_seed());
    for (const int count : {1, 63, 64, 65, 128, 200}) {
        pool = kel_create_audio_buffer_pool(nullptr, &stereo, 1, count);
        std::vector<int> holders(count);  // the model
        for (int step = 0; step < 20000; ++step) {
            const int i = static_cast<int>(random() % count);
            const auto action = random() % (step % 2000 < 1000 ? 4 : 6);  // filling and draining by turns
            if (action < 2) {
                const auto free = std::find(holders.begin(), holders.end(), 0) - holders.begin();
                ASSERT_EQ(kel_acquire_buffer(pool), free < count ? &pool->buffers[free] : nullptr);
                if (free < count) holders[free] = 1;
            } else {
                const auto act = action == 2 ? kel_ref_buffer : kel_release_buffer;
                ASSERT_EQ(act(&pool->buffers[i]), holders[i] ? 0 : EINVAL);
                if (holders[i]) holders[i] += action == 2 ? 1 : -1;
            }
            ASSERT_EQ(pool->buffers[i].refcount, holders[i]);
            ASSERT_EQ(pool->in_use, count - std::count(holders.begin(), holders.end(), 0));
        }
        kel_destroy_buffer_pool(&pool);
    }
}

TEST_F(Pool, RefusesMisuseAndChangesNothing) {
    fill(1);
    kel_buffer* buffer = &pool->buffers[0];
    for (const int result : {0, 22}) {
        pthread_mutex_lock(&pool->mutex);
        EXPECT_EQ(kel_release_buffer_unlocked(buffer), result);  // and gives the lock back
    }
    EXPECT_EQ(kel_release_buffer(buffer), 22);
    EXPECT_EQ(kel_ref_buffer(buffer), 22);
    EXPECT_EQ(log.messages(), (Messages{no_release, no_release, no_reference}));
    EXPECT_EQ(std::tuple(buffer->refcount, pool->in_use), std::tuple(0, 0));

    kel_buffer_pool* none = nullptr;
    EXPECT_EQ(kel_ref_buffer(nullptr), 0);
    EXPECT_EQ(kel_release_buffer(nullptr), 22);
    EXPECT_EQ(kel_release_buffer_unlocked(nullptr), 22);
    EXPECT_EQ(kel_get_buffer_format(nullptr), nullptr);
    EXPECT_EQ(kel_acquire_buffer(nullptr), nullptr);
    EXPECT_EQ(kel_acquire_buffer_wait(nullptr, -1), nullptr);
    kel_destroy_buffer_pool(&none);
    kel_destroy_buffer_pool(nullptr);
    kel_destroy_buffer_pool_when_unused(nullptr);
}

TEST_F(Pool, WaitsAsLongAsItWasTold) {
    fill(1);
    for (const int32_t timeout : {0, 1, 250, 1100}) {
        const double taken =
            milliseconds([&] { EXPECT_EQ(kel_acquire_buffer_wait(pool, timeout), nullptr); });
        EXPECT_GE(taken, timeout - 0.5);   // two clocks
        EXPECT_LE(taken, timeout + 1000);  // a loaded machine
    }
    EXPECT_EQ(pool->waiters, 0);
    EXPECT_TRUE(log.messages().empty());
}

int refused_wait(pthread_cond_t*, pthread_mutex_t*, const timespec*) {
    return EPERM;
}

TEST_F(Pool, ReportsAWaitThatFails) {
    fill(1);
    const ImportHook refused = hook(refused_wait, "pthread_cond_timedwait");
    EXPECT_EQ(kel_acquire_buffer_wait(pool, 10), nullptr);
    EXPECT_EQ(log.messages(),
              (Messages{{2, "kel: Error when waiting for buffer: Error 1: Operation not permitted."}}));
    EXPECT_EQ(pool->waiters, 0);
}

TEST(PoolEnd, ComesWithTheLastBuffer) {
    Faults faults;
    const Holdings before = faults.holdings();
    LogCapture log;
    kel_buffer_pool* pool = kel_create_audio_buffer_pool(nullptr, &stereo, 4, 3);
    kel_destroy_buffer_pool_when_unused(pool);  // unused now
    EXPECT_EQ(faults.holdings(), before);
    EXPECT_TRUE(log.messages().empty());

    pool = kel_create_audio_buffer_pool(nullptr, &stereo, 4, 3);
    kel_buffer* first = kel_acquire_buffer(pool);
    kel_buffer* second = kel_acquire_buffer(pool);
    kel_destroy_buffer_pool_when_unused(pool);
    EXPECT_EQ(kel_acquire_buffer(pool), nullptr);
    EXPECT_EQ(kel_acquire_buffer_wait(pool, 0), nullptr);  // refused at once, and again after the wait
    EXPECT_EQ(kel_ref_buffer(first), 0);
    EXPECT_EQ(kel_release_buffer(second), 0);
    EXPECT_EQ(kel_release_buffer(first), 0);
    EXPECT_EQ(pool->in_use, 1);
    EXPECT_EQ(log.messages(), (Messages{no_acquisition, no_acquisition}));
    log.clear();
    EXPECT_EQ(kel_release_buffer(first), 0);
    char text[80];
    snprintf(text, sizeof text, "kel: Automatically destroying buffer pool at %08" PRIxPTR,
             reinterpret_cast<uintptr_t>(pool));
    EXPECT_EQ(log.messages(), (Messages{{6, text}}));
    EXPECT_EQ(faults.holdings(), before);
}

TEST_F(Pool, AWaiterOfAMarkedPoolIsRefusedAndWaitsOn) {
    fill(2);
    std::thread waiter([&] { EXPECT_EQ(kel_acquire_buffer_wait(pool, 300), nullptr); });
    for (int waiters = 0; waiters == 0; std::this_thread::yield()) {
        pthread_mutex_lock(&pool->mutex);
        waiters = pool->waiters;
        pthread_mutex_unlock(&pool->mutex);
    }
    kel_destroy_buffer_pool_when_unused(pool);
    const double taken = milliseconds([&] {
        kel_release_buffer(&pool->buffers[0]);
        waiter.join();
    });
    EXPECT_GE(taken, 100);
    EXPECT_EQ(log.messages(), Messages{no_acquisition});
    kel_release_buffer(&pool->buffers[1]);
    pool = nullptr;
}

}  // namespace
