// What is remembered of each EGL object that concerns Screen, and of what is current on each thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

#include "egl/driver.hpp"
#include "screen/frame_access.h"

namespace platform::egl {

// The memory of a Screen object, held as long as this lives.
class held_frame {
  public:
    held_frame() = default;
    explicit held_frame(screen_pixmap_t pixmap) { platform_screen_hold_pixmap(pixmap, &frame_); }
    explicit held_frame(screen_window_t window) { platform_screen_hold_window(window, &frame_); }
    ~held_frame() { platform_screen_release_frame(&frame_); }
    held_frame(held_frame&& other) noexcept : frame_(std::exchange(other.frame_, {})) {}
    held_frame& operator=(held_frame&& other) noexcept {
        std::swap(frame_, other.frame_);
        return *this;
    }
    explicit operator bool() const { return frame_.hold != nullptr; }
    const platform_screen_frame& operator*() const { return frame_; }
    const platform_screen_frame* operator->() const { return &frame_; }

  private:
    platform_screen_frame frame_{};
};

// An EGL image made of a pixmap. It lives until its handle and the last texture made of it are gone.
struct image_record {
    EGLDisplay display;
    held_frame memory;
};

// The textures of contexts that share them. `textures` is guarded by the registry's lock.
struct share_group {
    std::unordered_map<GLuint, std::shared_ptr<image_record>> textures;  // those made of images
    std::atomic<int> count = 0;                                          // of `textures`
};

// A texture made of an image that this context has drawn into: newer than the memory until it is stored.
struct written_texture {
    GLuint name;
    std::shared_ptr<image_record> image;
};

// Used only by the thread that it is current on, like the surface below.
struct context_record {
    EGLDisplay display;
    EGLContext handle;
    std::shared_ptr<share_group> group;
    GLint units_used = 1;  // no unit at or above was ever active
    std::vector<written_texture> written{};
};

// To the driver it is a pbuffer, whose pixels are loaded from the memory of the Screen object and stored there.
struct surface_record {
    EGLDisplay display;
    EGLSurface handle;
    screen_window_t window;  // null for a pixmap surface
    held_frame pixmap;       // empty for a window surface
    EGLint width, height;    // of the pbuffer
    bool multisampled;
    bool dirty = false;  // the pbuffer is newer than the memory
};

template <typename Handle, typename Record>
class registry {
  public:
    void add(Handle handle, std::shared_ptr<Record> record) {
        std::lock_guard hold(lock_);
        records_[handle] = std::move(record);
    }
    std::shared_ptr<Record> find(Handle handle) {
        std::lock_guard hold(lock_);
        const auto found = records_.find(handle);
        return found == records_.end() ? nullptr : found->second;
    }
    // The record that the handle named until now.
    std::shared_ptr<Record> remove(Handle handle) {
        std::lock_guard hold(lock_);
        auto node = records_.extract(handle);
        return node ? std::move(node.mapped()) : nullptr;
    }
    void remove_display(EGLDisplay display) {
        std::lock_guard hold(lock_);
        std::erase_if(records_, [=](const auto& entry) { return entry.second->display == display; });
    }

  private:
    std::mutex lock_;
    std::unordered_map<Handle, std::shared_ptr<Record>> records_;
};

// Images made here have odd handles, so that none is an address of the driver's; drivers follow any handle blindly.
EGLImage next_image_handle();
inline bool is_image_handle(EGLImage handle) {
    return reinterpret_cast<uintptr_t>(handle) % 2 != 0;
}

// They live until the process ends: threads may still use EGL while it exits.
registry<EGLImage, image_record>& images();
registry<EGLContext, context_record>& contexts();
registry<EGLSurface, surface_record>& surfaces();

// Current on the calling thread; null where there is nothing, or a surface that is not Screen's.
struct current_objects {
    std::shared_ptr<context_record> context;
    std::shared_ptr<surface_record> draw, read;
    EGLSurface draw_handle, read_handle;  // also of those that are not Screen's
};
current_objects& current();

// The image that a texture of the current context is made of, or null.
std::shared_ptr<image_record> find_image_of(GLuint texture);
void set_image_of(GLuint texture, std::shared_ptr<image_record> image);
std::shared_ptr<image_record> remove_image_of(GLuint texture);  // what was set

}  // namespace platform::egl
