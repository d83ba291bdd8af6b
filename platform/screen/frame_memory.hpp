// The memory of one frame. Whoever holds a share keeps it: buffers, queued blits, EGL images.
#pragma once

#include <cstdint>

#include "screen/pixel_format.hpp"

namespace platform::screen {

// Allocated behind the pixels: vector code of general libraries may read that far, never write. The address
// sanitizer keeps a zone of its own there.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr std::size_t read_ahead = 0;
#else
inline constexpr std::size_t read_ahead = 64;
#endif

class frame_memory {
  public:
    explicit frame_memory(const frame_layout& layout);  // zero-filled; throws std::bad_alloc
    ~frame_memory();
    frame_memory(const frame_memory&) = delete;
    frame_memory& operator=(const frame_memory&) = delete;

    const frame_layout& layout() const { return layout_; }
    unsigned char* pointer() const { return pointer_; }
    uint64_t physical_address() const { return physical_address_; }

    static int live_count();

  private:
    frame_layout layout_;
    unsigned char* pointer_;
    uint64_t physical_address_;
};

}  // namespace platform::screen
