// Collects the system's log while it lives: every level, whole messages, in order.
#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kel_test {

struct LogMessage {
    int level;
    std::string text;
    bool operator==(const LogMessage&) const = default;
};

void PrintTo(const LogMessage& message, std::ostream* out);

// One at a time; messages go nowhere else meanwhile.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogMessage> messages() const;           // all so far
    std::vector<LogMessage> messages(int level) const;  // of one level
    int count(int level, std::string_view text) const;  // equal to text
    bool has(int level, std::string_view text) const { return count(level, text) > 0; }
    bool has_starting(int level, std::string_view start) const;
    void clear();

  private:
    static void sink(void* self, int level, const char* message);

    mutable std::mutex mutex_;
    std::vector<LogMessage> messages_;
    int old_threshold_;
};

}  // namespace kel_test
