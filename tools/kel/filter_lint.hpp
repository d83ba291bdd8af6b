// Looks a video filter over: its header, and what the driver says of its shader. Writes to standard output.
#pragma once

#include <kel.h>

#include <string>

#include "media/image.hpp"
#include "media/session.hpp"

namespace kel_tool {

// Name and description, then a line for each parameter.
void print_filter(const kel_video_filter* filter);

class filter_lint {
  public:
    explicit filter_lint(session& session);  // throws failure
    ~filter_lint();
    filter_lint(const filter_lint&) = delete;
    filter_lint& operator=(const filter_lint&) = delete;

    // Prints all there is to say of the filter, alone in a chain of the shelf's; whether it compiles and nothing of its
    // header was dropped. Throws failure when there is no such filter.
    bool check(const std::string& name);

  private:
    bool compile(kel_video_filter* filter);

    kel_context* context_;
    picture scrap_;  // something to draw into, so that there is a current GL context
    EGLSurface surface_;
};

}  // namespace kel_tool
