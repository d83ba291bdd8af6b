#include "support/threads.hpp"

#include <algorithm>
#include <barrier>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

namespace kel_test {

void run_together(int count, const std::function<void(int)>& body) {
    std::barrier start(count);
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            body(i);
        });
    for (auto& thread : threads) thread.join();
}

Watchdog::Watchdog(std::chrono::seconds deadline, std::string what) {
    thread_ = std::thread([this, deadline, what = std::move(what)] {
        std::unique_lock lock(mutex_);
        if (done_condition_.wait_for(lock, deadline, [this] { return done_; })) return;
        std::fprintf(stderr, "%s: still running after %lld s\n", what.c_str(),
                     static_cast<long long>(deadline.count()));
        std::abort();
    });
}

Watchdog::~Watchdog() {
    {
        std::lock_guard lock(mutex_);
        done_ = true;
    }
    done_condition_.notify_all();
    thread_.join();
}

double milliseconds(const std::function<void()>& body) {
    auto start = std::chrono::steady_clock::now();
    body();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

int stress_rounds(int full) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__arm__)
    return std::max(full / 20, 1);
#else
    return full;
#endif
}

unsigned long random_seed() {
    static const unsigned long seed = [] {
        const char* set = std::getenv("KEL_TEST_SEED");
        return set ? std::strtoul(set, nullptr, 0) : std::random_device()();
    }();
    return seed;
}

}  // namespace kel_test
