// The memory of one frame. Whoever holds a share keeps it: buffers, queued blits, EGL images.
#pragma once

#include <cstdint>

#include "screen/pixel_format.hpp"

namespace platform::screen {

class frame_memory {
  public:
    explicit frame_memory(const frame_layout& layout);  // zero-filled; throws std::bad_alloc
    ~frame_memory();
    frame_memory(const frame_memory&) = delete;
    frame_memory& operator=(const frame_memory&) = delete;

    const frame_layout& layout() const { return layout_; }
    unsigned char* pointer() const { return pointer_; }
    unsigned char* plane_pointer(int index) const { return pointer_ + layout_.planes[index].offset; }
    uint64_t physical_address() const { return physical_address_; }

    static int live_count();

  private:
    frame_layout layout_;
    unsigned char* pointer_;
    uint64_t physical_address_;
};

}  // namespace platform::screen
