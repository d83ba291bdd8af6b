#include "support/log_capture.hpp"

#include <aoi/aoi.h>

#include <algorithm>
#include <iterator>
#include <ostream>

namespace kel_test {

void PrintTo(const LogMessage& message, std::ostream* out) {
    *out << '(' << message.level << ", \"" << message.text << "\")";
}

LogCapture::LogCapture() : old_threshold_(AoLogSetThreshold(7)) {
    AoLogSetSink(sink, this);
}

LogCapture::~LogCapture() {
    AoLogSetSink(nullptr, nullptr);
    AoLogSetThreshold(old_threshold_);
}

void LogCapture::sink(void* self, int level, const char* message) {
    auto* capture = static_cast<LogCapture*>(self);
    std::lock_guard lock(capture->mutex_);
    capture->messages_.push_back({level, message});
}

std::vector<LogMessage> LogCapture::messages() const {
    std::lock_guard lock(mutex_);
    return messages_;
}

std::vector<LogMessage> LogCapture::messages(int level) const {
    std::lock_guard lock(mutex_);
    std::vector<LogMessage> result;
    std::copy_if(messages_.begin(), messages_.end(), std::back_inserter(result),
                 [level](const LogMessage& message) { return message.level == level; });
    return result;
}

int LogCapture::count(int level, std::string_view text) const {
    std::lock_guard lock(mutex_);
    return static_cast<int>(std::count_if(messages_.begin(), messages_.end(), [&](const LogMessage& message) {
        return message.level == level && message.text == text;
    }));
}

bool LogCapture::has_starting(int level, std::string_view start) const {
    std::lock_guard lock(mutex_);
    return std::any_of(messages_.begin(), messages_.end(), [&](const LogMessage& message) {
        return message.level == level && message.text.starts_with(start);
    });
}

void LogCapture::clear() {
    std::lock_guard lock(mutex_);
    messages_.clear();
}

}  // namespace kel_test
