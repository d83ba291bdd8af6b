// Threads that start together, deadlines that end a hang with a message, and the scale of stress tests.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace kel_test {

// Runs body(0) ... body(count - 1) in threads of their own that leave the starting line together; returns
// when all have ended.
void run_together(int count, const std::function<void(int)>& body);

// Ends the whole program with a message when it still lives after the deadline.
class Watchdog {
  public:
    explicit Watchdog(std::chrono::seconds deadline, std::string what = "test");
    ~Watchdog();

  private:
    std::mutex mutex_;
    std::condition_variable done_condition_;
    bool done_ = false;
    std::thread thread_;
};

// Milliseconds of wall-clock time that body takes.
double milliseconds(const std::function<void()>& body);

// `full` rounds on a plain native build, fewer under the sanitizers and under emulation.
int stress_rounds(int full);

// The seed of every random test of this run: printed at start, set by the environment variable KEL_TEST_SEED.
unsigned long random_seed();

}  // namespace kel_test
