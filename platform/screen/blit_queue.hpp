// The blits of one context that wait to be flushed.
#pragma once

#include <mutex>
#include <vector>

#include "screen/blitter.hpp"

namespace platform::screen {

struct blit_queue {
    static constexpr std::size_t limit = 64;  // operations; the one that reaches it is flushed along

    std::vector<blit_operation> pending;  // guarded by the world's lock

    std::mutex running;  // held while a batch is done, so that flushes come one after the other
    std::vector<blit_operation> batch;
    blitter engine;
};

}  // namespace platform::screen
