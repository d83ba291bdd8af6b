// Many threads on one small pool: nobody shares a buffer, no wake-up is lost, the counts come out even.
#include <gtest/gtest.h>
#include <kel.h>

#include <atomic>
#include <random>

#include "support/threads.hpp"

namespace {

using namespace kel_test;

TEST(PoolStress, EightThreadsShareThreeBuffers) {
    constexpr int threads = 8;
    const int rounds = stress_rounds(200000) / threads;
    const kel_audio_format format = {48000, 2, KEL_AUDIO_TYPE_S16LE};
    kel_buffer_pool* pool = kel_create_audio_buffer_pool(nullptr, &format, 16, 3);
    ASSERT_NE(pool, nullptr);
    std::atomic<int> taken = 0;
    Watchdog watchdog(std::chrono::seconds(250));
    run_together(threads, [&](int self) {
        std::mt19937 random(random_seed() + static_cast<unsigned long>(self));
        for (int round = 0; round < rounds; ++round) {
            kel_buffer* buffer = nullptr;
            if (random() % 4 == 0) buffer = kel_acquire_buffer(pool);
            if (random() % 4 == 0 && !buffer)
                buffer = kel_acquire_buffer_wait(pool, static_cast<int32_t>(random() % 3));
            if (!buffer) buffer = kel_acquire_buffer_wait(pool, -1);
            ASSERT_NE(buffer, nullptr);
            auto* words = static_cast<int*>(buffer->ptr);  // a race if it were shared
            std::fill_n(words, 16, self);
            const auto references = random() % 3;
            for (unsigned i = 0; i < references; ++i) EXPECT_EQ(kel_ref_buffer(buffer), 0);
            for (unsigned i = 0; i < references; ++i) EXPECT_EQ(kel_release_buffer(buffer), 0);
            if (random() % 4 == 0) std::this_thread::yield();  // the others come to wait
            EXPECT_EQ(std::count(words, words + 16, self), 16);
            if (random() % 2) {
                EXPECT_EQ(kel_release_buffer(buffer), 0);
            } else {
                pthread_mutex_lock(&pool->mutex);
                EXPECT_EQ(kel_release_buffer_unlocked(buffer), 0);
            }
            ++taken;
        }
    });
    EXPECT_EQ(taken, rounds * threads);
    EXPECT_EQ(pool->in_use, 0);
    EXPECT_EQ(pool->waiters, 0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(kel_acquire_buffer(pool), &pool->buffers[i]);
    EXPECT_EQ(kel_acquire_buffer(pool), nullptr);
    kel_destroy_buffer_pool(&pool);
}

}  // namespace
