// A queue of slices between two threads, one that sends and one that takes.
#pragma once

#include <kel.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace kel_tool {

class slice_queue {
  public:
    explicit slice_queue(uint32_t limit);       // with a queue of its own
    explicit slice_queue(kel_queue* borrowed);  // for a reader's queue
    ~slice_queue();
    slice_queue(const slice_queue&) = delete;
    slice_queue& operator=(const slice_queue&) = delete;

    // Hands a slice over with one reference of its buffer; waits while the queue is full. False, with the reference
    // given back, when the queue is closed.
    bool send(const kel_slice& slice);

    // Takes the oldest slice over, to be released by the caller; waits while the queue is empty. False at the end.
    bool take(kel_slice& slice);

    // The sender's last word: what is inside can still be taken.
    void close() { kel_queue_close(queue_); }

    // Ends the queue for both sides: nothing is inside any more.
    void abort();

    // Leaves one slice without a buffer inside, which makes a reader fail.
    void poison();

    [[nodiscard]] uint32_t high_water() const { return high_water_; }  // the sender's
    [[nodiscard]] uint32_t limit() const { return limit_; }

  private:
    std::unique_ptr<kel_queue, void (*)(kel_queue*)> owned_;
    kel_queue* queue_;
    uint32_t limit_;
    uint32_t high_water_ = 0;
    // The records go round: by the time one is used again, everything sent before the queue was full has been taken,
    // and one may still be in the taker's hands.
    std::vector<kel_slice> records_;
    size_t next_ = 0;
    kel_slice empty_ = {};
};

}  // namespace kel_tool
