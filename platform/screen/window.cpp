// Windows and their render buffers.
#include "screen/properties.hpp"

using namespace platform::screen;

namespace {

int accept_any(const int*) {
    return 0;
}

int check_size(const int* values) {
    return values[0] >= 0 && values[1] >= 0 ? 0 : EINVAL;
}

int check_sensitivity(const int* values) {
    return values[0] >= SCREEN_SENSITIVITY_TEST && values[0] <= SCREEN_SENSITIVITY_NEVER ? 0 : EINVAL;
}

int check_transparency(const int* values) {
    return values[0] >= SCREEN_TRANSPARENCY_SOURCE && values[0] <= SCREEN_TRANSPARENCY_DISCARD ? 0 : EINVAL;
}

constexpr int_property<window_record> window_properties[] = {
    surface_properties<window_record>[0],
    surface_properties<window_record>[1],
    surface_properties<window_record>[2],
    { SCREEN_PROPERTY_SOURCE_SIZE, 2, [](window_record& w) { return w.source_size; }, accept_any },
    { SCREEN_PROPERTY_SIZE, 2, [](window_record& w) { return w.size; }, check_size },
    { SCREEN_PROPERTY_POSITION, 2, [](window_record& w) { return w.position; }, accept_any },
    {SCREEN_PROPERTY_ZORDER, 1, [](window_record& w) { return &w.zorder; }, accept_any},
    {SCREEN_PROPERTY_SENSITIVITY, 1, [](window_record& w) { return &w.sensitivity; }, check_sensitivity},
    {SCREEN_PROPERTY_TRANSPARENCY, 1, [](window_record& w) { return &w.transparency; }, check_transparency},
};

}  // namespace

int screen_create_window_type(screen_window_t* window, screen_context_t context, int type) {
    return call([=](world& w) {
        if (!window || !w.contexts.find(context)) return EINVAL;
        if (type < SCREEN_APPLICATION_WINDOW || type > SCREEN_EMBEDDED_WINDOW) return EINVAL;
        *window = w.windows.add(surface_record{context});
        return 0;
    });
}

int screen_destroy_window(screen_window_t window) {
    return call([=](world& w) {
        window_record* record = w.windows.find(window);
        if (!record) return EINVAL;
        w.destroy_buffers(*record);
        w.windows.remove(window);
        return 0;
    });
}

int screen_set_window_property_iv(screen_window_t window, int property, const int* values) {
    return call([=](world& w) {
        window_record* record = w.windows.find(window);
        if (!record || !values) return EINVAL;
        return set_property<window_record>(*record, window_properties, property, values);
    });
}

int screen_get_window_property_iv(screen_window_t window, int property, int* values) {
    return call([=](world& w) {
        window_record* record = w.windows.find(window);
        if (!record || !values) return EINVAL;
        if (property == SCREEN_PROPERTY_RENDER_BUFFER_COUNT) {
            *values = static_cast<int>(record->buffers.size());
            return 0;
        }
        return get_property<window_record>(*record, window_properties, property, values);
    });
}

int screen_get_window_property_pv(screen_window_t window, int property, void** values) {
    return call([=](world& w) {
        const window_record* record = w.windows.find(window);
        if (!record || !values) return EINVAL;
        switch (property) {
            case SCREEN_PROPERTY_RENDER_BUFFERS:
                return get_render_buffers(*record, values);
            case SCREEN_PROPERTY_DISPLAY:
                *values = w.contexts.find(record->context)->display;
                return 0;
            default:
                return EINVAL;
        }
    });
}

int screen_create_window_buffers(screen_window_t window, int count) {
    return call([=](world& w) {
        window_record* record = w.windows.find(window);
        if (!record || count < 1) return EINVAL;
        return w.create_buffers(*record, count);
    });
}

int screen_destroy_window_buffers(screen_window_t window) {
    return call([=](world& w) {
        window_record* record = w.windows.find(window);
        if (!record) return EINVAL;
        if (record->buffers.empty()) return ENOENT;
        w.destroy_buffers(*record);
        return 0;
    });
}
