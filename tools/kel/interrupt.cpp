#include "interrupt.hpp"

#include <atomic>
#include <csignal>

namespace kel_tool {
namespace {

std::atomic<bool> seen{false};  // set in whichever thread the signal finds
static_assert(std::atomic<bool>::is_always_lock_free);

void note(int) {
    seen = true;
}

}  // namespace

void watch_for_interrupt() {
    struct sigaction action = {};
    action.sa_handler = note;
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow is an error like a full disk
}

bool interrupted() {
    return seen;
}

}  // namespace kel_tool
