#include "slice_queue.hpp"

#include <algorithm>
#include <utility>

#include "failure.hpp"

namespace kel_tool {
namespace {

constexpr uint32_t records_beyond_limit = 3;  // being sent, being taken, and one between them

void release(void* data) {
    kel_release_buffer(std::exchange(static_cast<kel_slice*>(data)->buffer, nullptr));
}

}  // namespace

slice_queue::slice_queue(uint32_t limit)
    : owned_(kel_queue_create_with_limit(limit), kel_queue_destroy), queue_(owned_.get()), limit_(limit) {
    if (!queue_) throw failure("a queue cannot be made");
    kel_queue_set_node_destructor(queue_, release);
    records_.resize(limit_ + records_beyond_limit);
}

slice_queue::slice_queue(kel_queue* borrowed)
    : owned_(nullptr, kel_queue_destroy), queue_(borrowed), limit_(kel_queue_get_limit(borrowed)) {
    kel_queue_set_node_destructor(queue_, release);
    records_.resize(limit_ + records_beyond_limit);
}

slice_queue::~slice_queue() {
    kel_queue_clear(queue_);  // while the records are still there
}

bool slice_queue::send(const kel_slice& slice) {
    kel_slice& record = records_[next_];
    next_ = (next_ + 1) % records_.size();
    record = slice;
    if (!kel_queue_enqueue(queue_, &record)) {
        release(&record);
        return false;
    }
    high_water_ = std::max(high_water_, kel_queue_get_size(queue_));
    return true;
}

bool slice_queue::take(kel_slice& slice) {
    void* data = nullptr;
    if (!kel_queue_dequeue(queue_, &data)) return false;
    slice = *static_cast<kel_slice*>(data);
    return true;
}

void slice_queue::abort() {
    kel_queue_close(queue_);
    kel_queue_clear(queue_);
}

void slice_queue::poison() {
    kel_queue_reset(queue_);
    kel_queue_enqueue_with_timeout(queue_, &empty_, 1000);
}

}  // namespace kel_tool
