// Contexts and their display.
#include <algorithm>

#include "screen/blit_queue.hpp"
#include "screen/objects.hpp"

using namespace platform::screen;

int screen_create_context(screen_context_t* context, int type) {
    return call([=](world& w) {
        if (!context || type != SCREEN_APPLICATION_CONTEXT) return EINVAL;
        auto blits = std::make_shared<blit_queue>();
        const screen_context_t created = w.contexts.add(nullptr, std::move(blits));
        try {
            w.contexts.find(created)->display = w.displays.add(created);
        } catch (...) {
            w.contexts.remove(created);
            throw;
        }
        *context = created;
        return 0;
    });
}

int screen_destroy_context(screen_context_t context) {
    return call([=](world& w) {
        const context_record* record = w.contexts.find(context);
        if (!record) return EINVAL;
        const auto belongs = [&](surface_record& surface) {
            if (surface.context != context) return false;
            w.destroy_buffers(surface);
            return true;
        };
        w.windows.remove_if(belongs);
        w.pixmaps.remove_if(belongs);
        w.displays.remove(record->display);
        w.contexts.remove(context);
        return 0;
    });
}

int screen_get_display_property_iv(screen_display_t display, int property, int* values) {
    return call([=](world& w) {
        const display_record* record = w.displays.find(display);
        if (!record || !values) return EINVAL;
        const auto formats = displayable_formats();
        switch (property) {
            case SCREEN_PROPERTY_FORMAT_COUNT:
                *values = static_cast<int>(formats.size());
                return 0;
            case SCREEN_PROPERTY_FORMATS:
                std::copy(formats.begin(), formats.end(), values);
                return 0;
            case SCREEN_PROPERTY_SIZE:
                std::copy_n(record->size, 2, values);
                return 0;
            default:
                return EINVAL;
        }
    });
}

void screen_get_live_counts(screen_live_counts_t* counts) {
    call([=](world& w) {
        *counts = {w.contexts.count(), w.windows.count(), w.pixmaps.count(), w.buffers.count(),
                   frame_memory::live_count()};
        return 0;
    });
}
