// Passing items through a queue of 20, beside other libraries' queues.
#include <glib.h>
#include <kel.h>
#include <tbb/concurrent_queue.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>

#include "benchmarks/harness.hpp"

namespace {

using namespace kel_bench;

constexpr int limit = 20;

class KelQueue {
  public:
    ~KelQueue() { kel_queue_destroy(queue_); }
    void put(void* item) { kel_queue_enqueue(queue_, item); }
    void* take() {
        void* item = nullptr;
        kel_queue_dequeue(queue_, &item);
        return item;
    }

  private:
    kel_queue* queue_ = kel_queue_create_with_limit(limit);
};

class TbbQueue {
  public:
    TbbQueue() { queue_.set_capacity(limit); }
    void put(void* item) { queue_.push(item); }
    void* take() {
        void* item = nullptr;
        queue_.pop(item);
        return item;
    }

  private:
    tbb::concurrent_bounded_queue<void*> queue_;
};

// Has no limit: its producer never waits.
class GlibQueue {
  public:
    ~GlibQueue() { g_async_queue_unref(queue_); }
    void put(void* item) { g_async_queue_push(queue_, item); }
    void* take() { return g_async_queue_pop(queue_); }

  private:
    GAsyncQueue* queue_ = g_async_queue_new();
};

class PlainQueue {
  public:
    void put(void* item) {
        std::unique_lock lock(mutex_);
        not_full_.wait(lock, [&] { return items_.size() < limit; });
        items_.push_back(item);
        not_empty_.notify_one();
    }
    void* take() {
        std::unique_lock lock(mutex_);
        not_empty_.wait(lock, [&] { return !items_.empty(); });
        void* item = items_.front();
        items_.pop_front();
        not_full_.notify_one();
        return item;
    }

  private:
    std::mutex mutex_;
    std::condition_variable not_empty_, not_full_;
    std::deque<void*> items_;
};

template <typename Queue>
void add_pairs(Comparison& comparison, Role role, const char* name) {
    const auto queue = std::make_shared<Queue>();
    comparison.add(role, name, [queue](uint64_t count) {
        while (count-- > 0) {
            queue->put(queue.get());
            keep(queue->take());
        }
    });
}

template <typename Queue>
void add_stream(Comparison& comparison, Role role, const char* name, const std::shared_ptr<Team>& team) {
    const auto queue = std::make_shared<Queue>();
    comparison.add(role, name, [queue, team](uint64_t count) {
        team->run([&](int self) {
            for (uint64_t i = 0; i < count; ++i) {
                if (self == 0)
                    queue->put(queue.get());
                else
                    keep(queue->take());
            }
        });
    });
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = parse_options(argc, argv);
    Comparison pairs("Enqueue and dequeue, one thread", {"ns a pair", 1e9});
    add_pairs<KelQueue>(pairs, Role::subject, "libkel");
    add_pairs<TbbQueue>(pairs, Role::peer, "TBB concurrent_bounded_queue");
    add_pairs<GlibQueue>(pairs, Role::peer, "GLib GAsyncQueue (no limit)");
    add_pairs<PlainQueue>(pairs, Role::peer, "mutex and deque");
    pairs.run(options);

    const auto team = std::make_shared<Team>(2);
    Comparison stream("One producer, one consumer, limit 20", {"ns an item", 1e9}, 2);
    add_stream<KelQueue>(stream, Role::subject, "libkel", team);
    add_stream<TbbQueue>(stream, Role::reference, "TBB concurrent_bounded_queue", team);
    add_stream<GlibQueue>(stream, Role::peer, "GLib GAsyncQueue (no limit)", team);
    add_stream<PlainQueue>(stream, Role::peer, "mutex and deque", team);
    stream.run(options);
}
