// How far the work is, on standard error: a bar on a terminal, else a line now and then.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace kel_tool {

class progress {
  public:
    // `total`: microseconds that the output will have; 0: unknown. `quiet`: shows nothing.
    progress(int64_t total, bool quiet);
    ~progress();

    // Shows how far the output is when it is time to.
    void show(int64_t pts, int64_t pictures);

    // The closing line.
    void finish(const std::string& path, int64_t pts, int64_t pictures);

    [[nodiscard]] double seconds() const;  // since the beginning

  private:
    [[nodiscard]] std::string line(int64_t pts, int64_t pictures) const;
    void clear();

    std::chrono::steady_clock::time_point begin_, next_;
    int64_t total_;
    bool quiet_, terminal_, shown_ = false;
};

// "1:02:03.4", without hours below one.
std::string clock_text(int64_t pts);

}  // namespace kel_tool
