// The one log call: threshold, formatting, sink.
#include <aoi/aoi.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace {

constexpr int first_threshold = 3;

std::atomic<int> threshold{first_threshold};

// Held while a message is delivered, so that messages come one at a time and a sink can be replaced safely.
std::mutex sink_lock;
AoLogSink current_sink;
void* sink_argument;

void deliver(int level, const char* message) {
    std::lock_guard hold(sink_lock);
    if (current_sink) {
        current_sink(sink_argument, level, message);
    } else {
        fprintf(stderr, "%s\n", message);
    }
}

}  // namespace

void AoLog(int level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    AoLogV(level, format, arguments);
    va_end(arguments);
}

void AoLogV(int level, const char* format, va_list arguments) {
    if (level > threshold.load(std::memory_order_relaxed)) return;
    const int saved_errno = errno;
    char line[1024];
    va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(line, sizeof line, format, arguments);
    char* whole = nullptr;
    if (length >= static_cast<int>(sizeof line) && vasprintf(&whole, format, again) < 0) whole = nullptr;
    va_end(again);
    if (length >= 0) deliver(level, whole ? whole : line);
    free(whole);
    errno = saved_errno;
}

int AoLogSetThreshold(int level) {
    return threshold.exchange(level);
}

void AoLogSetSink(AoLogSink sink, void* argument) {
    std::lock_guard hold(sink_lock);
    current_sink = sink;
    sink_argument = argument;
}
