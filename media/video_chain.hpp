// A chain of video filters at work: one picture drawn through all of them into another. Belongs to one thread.
#pragma once

#include <kel.h>

#include <unordered_map>
#include <vector>

#include "filter_spec.hpp"
#include "handles.hpp"
#include "session.hpp"

namespace kel_tool {

// A chain of filters and where it stands between what was asked for and the library.
struct chosen_filter {
    kel_video_filter* filter;
    filter_spec spec;
};

// Looks filters and parameters up; needs no OpenGL ES. Throws failure.
std::vector<chosen_filter> choose_filters(const std::vector<filter_spec>& specs);

class video_chain {
  public:
    // The session must have made OpenGL ES ready. Throws failure.
    video_chain(const session& session, const std::vector<chosen_filter>& filters);
    ~video_chain();
    video_chain(const video_chain&) = delete;
    video_chain& operator=(const video_chain&) = delete;

    // Draws the source, an RGBA pixmap, into `place` of the target, one of a pool of them; the rest becomes black.
    // The target keeps its surface until the chain is destroyed, so the pool must live longer. Throws failure.
    void draw(const kel_slice& source, const kel_slice& target, const kel_rect& place);

  private:
    void make_current(kel_buffer* target);
    void build();
    void show(const kel_slice& source);

    kel_context* context_;
    std::vector<chosen_filter> filters_;
    std::unordered_map<kel_buffer*, EGLSurface> surfaces_;
    chain_handle chain_;
    texture_handle texture_;
};

}  // namespace kel_tool
