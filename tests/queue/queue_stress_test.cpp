// Many items between many threads: order is kept per producer, nothing is lost or doubled.
#include <gtest/gtest.h>
#include <kel.h>

#include <atomic>
#include <random>
#include <vector>

#include "support/threads.hpp"

namespace {

using namespace kel_test;

struct Item {
    int producer;
    int number;
    std::atomic<int> seen = 0;
};

struct Load {
    uint32_t limit;
    int producers;
    int consumers;
    bool disturbed;  // clears, resets and closes happen meanwhile
};

void PrintTo(const Load& load, std::ostream* out) {
    *out << "limit " << load.limit << ", " << load.producers << " to " << load.consumers
         << (load.disturbed ? ", disturbed" : "");
}

void see(void* data) {
    ++static_cast<Item*>(data)->seen;
}

struct QueueStress : testing::TestWithParam<Load> {};

TEST_P(QueueStress, LosesNothing) {
    const Load load = GetParam();
    const int each = stress_rounds(load.disturbed ? 50000 : 150000) / load.producers;
    kel_queue* queue = kel_queue_create_with_limit(load.limit);
    kel_queue_set_node_destructor(queue, see);
    std::vector<std::vector<Item>> items;
    for (int p = 0; p < load.producers; ++p) items.emplace_back(static_cast<size_t>(each));
    std::atomic<int> producing = load.producers;
    std::atomic<int> thrown = 0;
    Watchdog watchdog(std::chrono::seconds(250));

    const auto produce = [&](int producer) {
        for (int number = 0; number < each; ++number) {
            Item& item = items[static_cast<size_t>(producer)][static_cast<size_t>(number)];
            item.producer = producer;
            item.number = number;
            while (!kel_queue_enqueue_with_timeout(queue, &item, number % 3 ? -1 : 5))
                std::this_thread::yield();
        }
        --producing;
    };
    const auto consume = [&](int) {
        std::vector<int> last(static_cast<size_t>(load.producers), -1);
        for (;;) {
            const bool over = producing == 0;
            void* data = nullptr;
            if (!kel_queue_dequeue_with_timeout(queue, &data, 5)) {
                if (over && kel_queue_get_size(queue) == 0) return;
                continue;
            }
            auto* item = static_cast<Item*>(data);
            int& before = last[static_cast<size_t>(item->producer)];
            EXPECT_GT(item->number, before);
            before = item->number;
            EXPECT_EQ(item->seen.fetch_add(1), 0);
        }
    };
    const auto disturb = [&] {
        std::mt19937 random(random_seed());
        while (producing > 0) {
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 300));
            if (random() % 2) kel_queue_close(queue);
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 100));
            if (random() % 2) kel_queue_clear(queue);
            kel_queue_reset(queue);
            ++thrown;
        }
    };
    run_together(load.producers + load.consumers + (load.disturbed ? 1 : 0), [&](int self) {
        if (self < load.producers) return produce(self);
        if (self < load.producers + load.consumers) return consume(self);
        disturb();
    });
    for (const auto& row : items) {
        for (const Item& item : row) ASSERT_EQ(item.seen, 1) << item.producer << ' ' << item.number;
    }
    EXPECT_EQ(kel_queue_get_size(queue), 0u);
    EXPECT_EQ(thrown > 0, load.disturbed);
    kel_queue_destroy(queue);
}

INSTANTIATE_TEST_SUITE_P(, QueueStress,
                         testing::Values(Load{1, 1, 1, false}, Load{1, 3, 3, false}, Load{2, 1, 1, false},
                                         Load{2, 4, 2, false}, Load{20, 1, 1, false}, Load{20, 2, 4, false},
                                         Load{0, 3, 2, false}, Load{1, 2, 2, true}, Load{2, 1, 1, true},
                                         Load{20, 3, 3, true}));

}  // namespace
