#include "progress.hpp"

#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>

namespace kel_tool {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds step_on_terminal{200}, step_elsewhere{5000};
constexpr int bar_width = 24;

__attribute__((format(printf, 1, 2))) std::string format(const char* pattern, ...) {
    char text[200];
    va_list arguments;
    va_start(arguments, pattern);
    std::vsnprintf(text, sizeof text, pattern, arguments);
    va_end(arguments);
    return text;
}

}  // namespace

std::string clock_text(int64_t pts) {
    const int64_t tenths = pts / 100000, seconds = tenths / 10, minutes = seconds / 60, hours = minutes / 60;
    const int tenth = static_cast<int>(tenths % 10), second = static_cast<int>(seconds % 60);
    if (hours == 0) return format("%d:%02d.%d", static_cast<int>(minutes), second, tenth);
    return format("%" PRId64 ":%02d:%02d.%d", hours, static_cast<int>(minutes % 60), second, tenth);
}

progress::progress(int64_t total, bool quiet)
    : begin_(std::chrono::steady_clock::now()),
      next_(begin_),
      total_(total),
      quiet_(quiet),
      terminal_(isatty(STDERR_FILENO) != 0) {
    if (!terminal_) next_ += step_elsewhere;
}

progress::~progress() {
    clear();
}

double progress::seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count();
}

void progress::clear() {
    if (shown_ && terminal_) std::fputs("\r\033[K", stderr);
    shown_ = false;
}

std::string progress::line(int64_t pts, int64_t pictures) const {
    const double speed = static_cast<double>(pts) / 1e6 / std::max(seconds(), 1e-3);
    std::string text = clock_text(pts);
    if (total_ > 0) text += " of " + clock_text(total_);
    if (pictures > 0) text += format(", %" PRId64 " pictures", pictures);
    text += format(", %.1f times real time", speed);
    if (total_ > pts && speed > 0)
        text += ", " + clock_text(static_cast<int64_t>(static_cast<double>(total_ - pts) / speed)) + " left";
    return text;
}

void progress::show(int64_t pts, int64_t pictures) {
    const auto now = std::chrono::steady_clock::now();
    if (quiet_ || now < next_) return;
    next_ = now + (terminal_ ? step_on_terminal : step_elsewhere);
    if (!terminal_) {
        std::fprintf(stderr, "%s\n", line(pts, pictures).c_str());
        return;
    }
    std::string bar;
    if (total_ > 0) {
        const auto filled = static_cast<size_t>(std::clamp<int64_t>(pts * bar_width / total_, 0, bar_width));
        bar.append("[").append(filled, '#').append(bar_width - filled, '.').append("] ");
    }
    std::fprintf(stderr, "\r%s%s\033[K", bar.c_str(), line(pts, pictures).c_str());
    shown_ = true;
}

void progress::finish(const std::string& path, int64_t pts, int64_t pictures) {
    clear();
    if (quiet_) return;
    std::fprintf(stderr, "%s: %s", path.c_str(), clock_text(pts).c_str());
    if (pictures > 0) std::fprintf(stderr, ", %" PRId64 " pictures", pictures);
    std::fprintf(stderr, ", in %.1f s (%.1f times real time)\n", seconds(),
                 static_cast<double>(pts) / 1e6 / std::max(seconds(), 1e-3));
}

}  // namespace kel_tool
