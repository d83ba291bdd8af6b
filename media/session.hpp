// The library made ready for one command: initialised, with one context.
#pragma once

#include <kel.h>

namespace kel_tool {

class session {
  public:
    session();  // throws failure
    ~session();
    session(const session&) = delete;
    session& operator=(const session&) = delete;

    [[nodiscard]] kel_context* context() const { return context_; }

    // Make text and OpenGL ES ready on first use; both end with the session. They throw failure.
    void need_text();
    void need_gles();

  private:
    kel_context* context_ = nullptr;
};

}  // namespace kel_tool
