#include "pipeline.hpp"

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "failure.hpp"

namespace kel_tool {
namespace {

constexpr int32_t look_around_ms = 200;  // how often a wait looks whether the road stops

// Bytes that the program has from the heap.
int64_t heap_bytes() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<int64_t>(info.uordblks) + static_cast<int64_t>(info.hblkhd);
}

}  // namespace

void road_stats::pool::note(kel_buffer_pool& used) {
    buffers = used.count;
    pthread_mutex_lock(&used.mutex);
    peak = std::max(peak, used.in_use);
    pthread_mutex_unlock(&used.mutex);
}

void road_stats::queue::note(const slice_queue& used) {
    peak = used.high_water();
    limit = used.limit();
}

kel_buffer* acquire(kel_buffer_pool* pool, road_stats::pool& stats, const std::atomic<bool>& stop) {
    kel_buffer* buffer = kel_acquire_buffer(pool);
    if (!buffer) ++stats.waits;
    while (!buffer && !stop) buffer = kel_acquire_buffer_wait(pool, look_around_ms);
    stats.note(*pool);
    return buffer;
}

std::thread road::start(std::function<void()> work) {
    return std::thread([this, work = std::move(work)] {
        try {
            work();
        } catch (...) {
            {
                std::lock_guard lock(mutex_);
                if (!first_failure_) first_failure_ = std::current_exception();
            }
            stop_ = true;
            output_.abandon();
        }
    });
}

void road::check(media_input& input) {
    const std::string damage = input.damage();
    if (damage.empty()) return;
    if (!accept_damage_) throw failure(damage + " (--accept-damage takes what is there)");
    std::fprintf(stderr, "kel: %s\n", damage.c_str());
}

void road::note_heap() {
    if (std::max<int64_t>(pictures, blocks) < warm_after) return;
    heap_now_ = heap_bytes();
    if (heap_when_warm_ == 0) heap_when_warm_ = heap_now_;
}

void road::rethrow() {
    std::lock_guard lock(mutex_);
    if (first_failure_) std::rethrow_exception(first_failure_);
}

}  // namespace kel_tool
