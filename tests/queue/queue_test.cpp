// The queue in one or two threads: order, closing, clearing, time-outs, null handles, failures.
#include <gtest/gtest.h>
#include <kel.h>

#include <atomic>
#include <thread>

#include "support/faults.hpp"
#include "support/threads.hpp"

namespace {

using namespace kel_test;

std::vector<intptr_t> thrown_away;
void throw_away(void* data) {
    thrown_away.push_back(reinterpret_cast<intptr_t>(data));
}

void* item(intptr_t value) {
    return reinterpret_cast<void*>(value);
}

struct Queue : testing::Test {
    void SetUp() override { thrown_away.clear(); }
    void TearDown() override { kel_queue_destroy(queue); }
    void make(uint32_t limit) { queue = kel_queue_create_with_limit(limit); }
    void fill(intptr_t count) {
        for (intptr_t i = 0; i < count; ++i) ASSERT_EQ(kel_queue_enqueue_with_timeout(queue, item(i), 0), 1);
    }
    // Takes everything without waiting.
    std::vector<intptr_t> drain() {
        std::vector<intptr_t> taken;
        void* data = item(-1);
        while (kel_queue_dequeue_with_timeout(queue, &data, 0)) {
            taken.push_back(reinterpret_cast<intptr_t>(data));
            data = item(-1);
        }
        EXPECT_EQ(data, item(-1));  // untouched by the refusal
        return taken;
    }
    kel_queue* queue = nullptr;
};

const std::vector<intptr_t> three = {0, 1, 2};

TEST_F(Queue, KeepsOrderAndLimit) {
    for (const uint32_t limit : {0u, 1u, 3u, 5000u}) {
        make(limit);
        EXPECT_EQ(kel_queue_get_limit(queue), limit);
        const intptr_t count = limit ? static_cast<intptr_t>(limit) : 5000;
        for (int round = 0; round < 2; ++round) {  // the second with recycled nodes
            fill(count);
            EXPECT_EQ(kel_queue_get_size(queue), static_cast<uint32_t>(count));
            EXPECT_EQ(kel_queue_enqueue_with_timeout(queue, item(count), 0), limit ? 0 : 1);
            const auto taken = drain();
            EXPECT_EQ(taken.size(), static_cast<size_t>(limit ? count : count + 1));
            for (size_t i = 0; i < taken.size(); ++i) ASSERT_EQ(taken[i], static_cast<intptr_t>(i));
        }
        kel_queue_destroy(queue);
    }
    queue = kel_queue_create();
    EXPECT_EQ(kel_queue_get_limit(queue), 0u);
}

TEST_F(Queue, CloseClearAndResetInEveryState) {
    make(4);
    EXPECT_EQ(kel_queue_get_node_destructor(queue), nullptr);
    fill(2);
    EXPECT_EQ(kel_queue_clear(queue), 1);  // without a destructor
    EXPECT_EQ(kel_queue_set_node_destructor(queue, throw_away), 1);
    EXPECT_EQ(kel_queue_get_node_destructor(queue), throw_away);

    fill(3);
    EXPECT_EQ(kel_queue_close(queue), 1);
    EXPECT_EQ(kel_queue_enqueue(queue, item(7)), 0);  // with room, and without waiting
    EXPECT_EQ(drain(), three);
    void* data = nullptr;
    EXPECT_EQ(kel_queue_dequeue(queue, &data), 0);
    EXPECT_TRUE(thrown_away.empty());

    for (const auto call : {kel_queue_clear, kel_queue_reset}) {
        thrown_away.clear();
        EXPECT_EQ(kel_queue_reset(queue), 1);
        fill(3);
        EXPECT_EQ(kel_queue_close(queue), 1);
        EXPECT_EQ(call(queue), 1);
        EXPECT_EQ(thrown_away, three);
        EXPECT_EQ(kel_queue_is_closed(queue), call == kel_queue_clear);
        EXPECT_EQ(kel_queue_get_size(queue), 0u);
    }
    fill(3);
    kel_queue_destroy(std::exchange(queue, nullptr));
    EXPECT_EQ(thrown_away.size(), 6u);
}

TEST_F(Queue, AcceptsNullHandles) {
    void* data = item(5);
    EXPECT_EQ(kel_queue_enqueue(nullptr, data), 0);
    EXPECT_EQ(kel_queue_enqueue_with_timeout(nullptr, data, -1), 0);
    EXPECT_EQ(kel_queue_dequeue(nullptr, &data), 0);
    EXPECT_EQ(kel_queue_dequeue_with_timeout(nullptr, &data, -1), 0);
    EXPECT_EQ(data, item(5));
    for (const auto call : {kel_queue_clear, kel_queue_reset, kel_queue_close}) EXPECT_EQ(call(nullptr), 0);
    EXPECT_EQ(kel_queue_get_size(nullptr), UINT32_MAX);
    EXPECT_EQ(kel_queue_get_limit(nullptr), UINT32_MAX);
    EXPECT_EQ(kel_queue_set_node_destructor(nullptr, throw_away), 0);
    EXPECT_EQ(kel_queue_get_node_destructor(nullptr), nullptr);
    kel_queue_destroy(nullptr);
}

TEST_F(Queue, WaitsAsLongAsAsked) {
    make(2);
    fill(2);
    kel_queue* empty = kel_queue_create();
    void* data = item(5);
    for (const int32_t ms : {0, 30, 120}) {
        const auto within = [&](double taken) { return taken >= ms - 1 && taken < ms + 400; };
        EXPECT_PRED1(within,
                     milliseconds([&] { EXPECT_EQ(kel_queue_enqueue_with_timeout(queue, nullptr, ms), 0); }));
        EXPECT_PRED1(within,
                     milliseconds([&] { EXPECT_EQ(kel_queue_dequeue_with_timeout(empty, &data, ms), 0); }));
    }
    kel_queue_destroy(empty);
    EXPECT_EQ(data, item(5));
    EXPECT_EQ(kel_queue_get_size(queue), 2u);
}

// What ends a wait without limit, and with what result.
TEST_F(Queue, WakesEveryWaiter) {
    const auto put_two = [](kel_queue* q) {
        return kel_queue_enqueue(q, item(1)) + kel_queue_enqueue(q, item(2));
    };
    const auto take_two = [](kel_queue* q) {
        void* data;
        return kel_queue_dequeue(q, &data) + kel_queue_dequeue(q, &data);
    };
    const struct {
        const char* what;
        bool full;               // producers wait; otherwise consumers
        int (*act)(kel_queue*);  // done once
        int succeeded;           // of the two waiters
    } rows[] = {{"close, consumers", false, kel_queue_close, 0},
                {"close, producers", true, kel_queue_close, 0},
                {"clear", true, kel_queue_clear, 2},
                {"reset", true, kel_queue_reset, 2},
                {"items", false, put_two, 2},
                {"room", true, take_two, 2}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        make(2);
        if (row.full) fill(2);
        Watchdog watchdog(std::chrono::seconds(60), row.what);
        std::atomic<int> started = 0, succeeded = 0;
        run_together(3, [&](int self) {
            if (self == 0) {
                while (started < 2) std::this_thread::yield();
                std::this_thread::sleep_for(std::chrono::milliseconds(20));  // most likely both sleep by now
                EXPECT_GE(row.act(queue), 1);
                return;
            }
            void* data = nullptr;
            ++started;
            succeeded += row.full ? kel_queue_enqueue(queue, nullptr) : kel_queue_dequeue(queue, &data);
        });
        EXPECT_EQ(succeeded, row.succeeded);
        kel_queue_destroy(std::exchange(queue, nullptr));
    }
}

TEST_F(Queue, EveryStepOfCreationFailsOnce) {
    using Messages = std::vector<LogMessage>;
    const Messages steps[] = {{},
                              {},
                              {{2, "kel: Unable to create queue modify mutex. (err = 12)"}},
                              {{2, "kel: Unable to create queue empty condvar. (err = 12)"}},
                              {{2, "kel: Unable to create queue full condvar. (err = 12)"}}};
    const int tried = sweep_faults({}, [&](const Fault* fault, LogCapture& log) {
        kel_queue* made = kel_queue_create_with_limit(3);
        EXPECT_EQ(made == nullptr, fault != nullptr);
        EXPECT_EQ(log.messages(), steps[fault ? fault->point : 0]);
        kel_queue_destroy(made);
    });
    EXPECT_EQ(tried, 4);
}

TEST_F(Queue, AllocatesOnlyWhatItCannotRecycle) {
    Faults faults;
    make(3);
    faults.fail_call(1);
    EXPECT_EQ(kel_queue_enqueue(queue, item(0)), 0);
    EXPECT_EQ(kel_queue_get_size(queue), 0u);
    faults.fail_call(0);
    fill(3);
    EXPECT_EQ(drain(), three);
    faults.fail_call(1);  // whatever is allocated from here on fails
    for (int round = 0; round < 100; ++round) {
        fill(3);
        EXPECT_EQ(drain(), three);
    }
    EXPECT_EQ(faults.calls(), 0);
    fill(2);
    kel_queue_clear(queue);  // gives every node back
    EXPECT_EQ(faults.holdings().blocks, 1);
    kel_queue_destroy(queue);
    faults.fail_call(0);
    make(0);
    fill(20000);
    EXPECT_EQ(drain().size(), 20000u);
    EXPECT_LE(faults.holdings().blocks, 1 + 1024);  // what is kept is bounded
    kel_queue_destroy(std::exchange(queue, nullptr));
    EXPECT_EQ(faults.holdings(), Holdings{});
}

int fixed_clock(clockid_t clock, timespec* now) {
    EXPECT_EQ(clock, CLOCK_REALTIME);
    *now = {10, 600000000};
    return 0;
}

TEST(AbsoluteTime, AddsMilliseconds) {
    const ImportHook clock = hook(fixed_clock, "clock_gettime");
    ASSERT_TRUE(clock.bound());
    const struct {
        int32_t ms;
        time_t seconds;
        long nanoseconds;
    } rows[] = {{0, 10, 600000000}, {1500, 12, 100000000},           {399, 10, 999000000},
                {400, 11, 0},       {INT32_MAX, 2147494, 247000000}, {1, 10, 601000000}};
    for (const auto& row : rows) {
        timespec out = {};
        EXPECT_EQ(ms_to_abs_timespec(&out, row.ms), &out);
        EXPECT_EQ(out.tv_sec, row.seconds) << row.ms;
        EXPECT_EQ(out.tv_nsec, row.nanoseconds) << row.ms;
    }
}

}  // namespace
