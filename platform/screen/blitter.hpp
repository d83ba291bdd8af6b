// Does blits and fills: clipping here, RGB pixels by pixman, YUV by libswscale.
#pragma once

#include <memory>

#include "screen/compose.hpp"
#include "screen/yuv.hpp"

namespace platform::screen {

// One queued operation. It holds the memory of its buffers.
struct blit_operation {
    std::shared_ptr<frame_memory> destination{};
    std::shared_ptr<frame_memory> source{};  // null for a fill
    rectangle to{};                          // may reach beyond the frames
    rectangle from{};
    drawing_style style{};
};

// For one thread at a time. Its scratch memory and contexts stay from one operation to the next.
class blitter {
  public:
    void run(const blit_operation& operation);  // throws std::bad_alloc

  private:
    void fill(const blit_operation& operation);
    void blit(const blit_operation& operation, const frame_view& source);
    void draw(const frame_view& destination, const rectangle& area, const frame_view& source,
              const blit_operation& operation);

    composer composer_;
    yuv_converter source_in_, destination_in_, destination_out_, direct_;
    scratch_memory source_pixels_, destination_pixels_;
};

}  // namespace platform::screen
