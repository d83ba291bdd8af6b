// How a command of the program ends early: with one line for the user and an exit status.
#pragma once

#include <stdexcept>
#include <string>

namespace kel_tool {

enum exit_status {
    exit_done = 0,
    exit_failed = 1,         // what was asked for could not be done
    exit_usage = 2,          // the command line is wrong
    exit_interrupted = 130,  // stopped by the user; what was written so far is whole
};

// Thrown anywhere below a command; main prints "kel: TEXT" and returns the status.
class failure : public std::runtime_error {
  public:
    explicit failure(const std::string& text, exit_status status = exit_failed)
        : std::runtime_error(text), status_(status) {}
    [[nodiscard]] exit_status status() const { return status_; }

  private:
    exit_status status_;
};

}  // namespace kel_tool
