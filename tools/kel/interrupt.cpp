#include "interrupt.hpp"

#include <csignal>

namespace kel_tool {
namespace {

volatile std::sig_atomic_t seen = 0;

void note(int) {
    seen = 1;
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
    return seen != 0;
}

}  // namespace kel_tool
