#include "screen/frame_access.h"

#include <algorithm>

#include "screen/objects.hpp"

using namespace platform::screen;

namespace {

using share = std::shared_ptr<frame_memory>;

int hold(const buffer_record& buffer, platform_screen_frame* frame) {
    const frame_layout& layout = buffer.memory->layout();
    *frame = {new share(buffer.memory),
              buffer.memory->pointer(),
              layout.format,
              layout.width,
              layout.height,
              layout.stride(),
              layout.size};
    return 0;
}

int hold_first(world& w, const surface_record* surface, platform_screen_frame* frame) {
    if (!surface || !frame) return EINVAL;
    return surface->buffers.empty() ? ENOENT : hold(*w.buffers.find(surface->buffers.front()), frame);
}

}  // namespace

int platform_screen_hold_pixmap(screen_pixmap_t pixmap, platform_screen_frame* frame) {
    return call([=](world& w) { return hold_first(w, w.pixmaps.find(pixmap), frame); });
}

int platform_screen_hold_window(screen_window_t window, platform_screen_frame* frame) {
    return call([=](world& w) { return hold_first(w, w.windows.find(window), frame); });
}

int platform_screen_hold_buffer(screen_buffer_t buffer, platform_screen_frame* frame) {
    return call([=](world& w) {
        const buffer_record* record = w.buffers.find(buffer);
        return record && frame ? hold(*record, frame) : EINVAL;
    });
}

void platform_screen_release_frame(platform_screen_frame* frame) {
    if (!frame) return;
    delete static_cast<share*>(frame->hold);
    *frame = {};
}

int platform_screen_advance_window(screen_window_t window) {
    return call([=](world& w) {
        window_record* record = w.windows.find(window);
        if (!record) return EINVAL;
        if (record->buffers.empty()) return ENOENT;
        std::rotate(record->buffers.begin(), record->buffers.begin() + 1, record->buffers.end());
        return 0;
    });
}
