#include "screen/objects.hpp"

namespace platform::screen {

uintptr_t next_handle_value() {
    static uintptr_t last = 0x4001;  // guarded by the world's lock
    if (last > UINTPTR_MAX - 2) throw std::bad_alloc();
    return last += 2;
}

// Lives until the process ends: handles may be used by other objects' destructors at exit.
world& the_world() {
    static world* everything = new world;
    return *everything;
}

int world::create_buffers(surface_record& surface, int count) {
    frame_layout layout;
    if (!lay_out_frame(surface.format, surface.buffer_size[0], surface.buffer_size[1], layout)) return EINVAL;
    if (!surface.buffers.empty()) return EBUSY;
    try {
        for (int i = 0; i < count; ++i) {
            surface.buffers.reserve(static_cast<std::size_t>(i) + 1);
            surface.buffers.push_back(buffers.add(std::make_shared<frame_memory>(layout)));
        }
    } catch (...) {
        destroy_buffers(surface);
        throw;
    }
    return 0;
}

void world::destroy_buffers(surface_record& surface) {
    for (screen_buffer_t buffer : surface.buffers) buffers.remove(buffer);
    surface.buffers.clear();
}

}  // namespace platform::screen
