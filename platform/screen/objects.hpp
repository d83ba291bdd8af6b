// The objects behind the handles, and the one lock that guards them all.
#pragma once

#include <screen/screen.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <unordered_map>
#include <vector>

#include "screen/frame_memory.hpp"

namespace platform::screen {

// A value never used before in this process; odd, so that no address of an object is taken for a handle.
uintptr_t next_handle_value();

// The records of one kind of handle. A handle that is not inside, stale or foreign, finds nothing.
template <typename Handle, typename Record>
class registry {
  public:
    template <typename... Arguments>
    Handle add(Arguments&&... arguments) {
        const auto handle = reinterpret_cast<Handle>(next_handle_value());
        std::unique_ptr<Record> record(new Record{std::forward<Arguments>(arguments)...});
        records_.emplace(handle, std::move(record));
        return handle;
    }
    Record* find(Handle handle) const {
        const auto found = records_.find(handle);
        return found == records_.end() ? nullptr : found->second.get();
    }
    void remove(Handle handle) { records_.erase(handle); }
    template <typename Predicate>
    void remove_if(Predicate predicate) {
        std::erase_if(records_, [&](auto& entry) { return predicate(*entry.second); });
    }
    int count() const { return static_cast<int>(records_.size()); }

  private:
    std::unordered_map<Handle, std::unique_ptr<Record>> records_;
};

struct display_record {
    screen_context_t context;
    int size[2] = {1920, 1080};
};

struct blit_queue;

struct context_record {
    screen_display_t display = nullptr;
    std::shared_ptr<blit_queue> blits;  // shared with a flush that is under way when the context ends
};

// A render buffer; its handle ends with its window or pixmap, its memory with the last holder.
struct buffer_record {
    std::shared_ptr<frame_memory> memory;
};

// What windows and pixmaps have in common.
struct surface_record {
    screen_context_t context;
    int format = SCREEN_FORMAT_RGBA8888;
    int usage = SCREEN_USAGE_READ | SCREEN_USAGE_WRITE;
    int buffer_size[2] = {0, 0};
    std::vector<screen_buffer_t> buffers{};  // the next one to render into first
};

struct pixmap_record : surface_record {};

struct window_record : surface_record {
    int source_size[2] = {0, 0};
    int size[2] = {0, 0};
    int position[2] = {0, 0};
    int zorder = 0;
    int sensitivity = SCREEN_SENSITIVITY_TEST;
    int transparency = SCREEN_TRANSPARENCY_SOURCE;
};

struct world {
    std::mutex lock;
    registry<screen_context_t, context_record> contexts;
    registry<screen_display_t, display_record> displays;
    registry<screen_window_t, window_record> windows;
    registry<screen_pixmap_t, pixmap_record> pixmaps;
    registry<screen_buffer_t, buffer_record> buffers;

    int create_buffers(surface_record& surface, int count);  // 0 or an errno value
    void destroy_buffers(surface_record& surface);
};

world& the_world();

// The frame of a call: runs `body(world)` under the lock; its result, 0 or an errno value, becomes 0 or -1
// with errno.
template <typename Body>
int call(Body body) {
    int error;
    try {
        world& everything = the_world();
        std::lock_guard hold(everything.lock);
        error = body(everything);
    } catch (const std::bad_alloc&) {
        error = ENOMEM;
    }
    if (error == 0) return 0;
    errno = error;
    return -1;
}

}  // namespace platform::screen
