// Pixmaps, each with one buffer at most, and the properties of buffers.
#include "screen/properties.hpp"

using namespace platform::screen;

int screen_create_pixmap(screen_pixmap_t* pixmap, screen_context_t context) {
    return call([=](world& w) {
        if (!pixmap || !w.contexts.find(context)) return EINVAL;
        *pixmap = w.pixmaps.add(surface_record{context});
        return 0;
    });
}

int screen_destroy_pixmap(screen_pixmap_t pixmap) {
    return call([=](world& w) {
        pixmap_record* record = w.pixmaps.find(pixmap);
        if (!record) return EINVAL;
        w.destroy_buffers(*record);
        w.pixmaps.remove(pixmap);
        return 0;
    });
}

int screen_set_pixmap_property_iv(screen_pixmap_t pixmap, int property, const int* values) {
    return call([=](world& w) {
        pixmap_record* record = w.pixmaps.find(pixmap);
        if (!record || !values) return EINVAL;
        return set_property<pixmap_record>(*record, surface_properties<pixmap_record>, property, values);
    });
}

int screen_get_pixmap_property_iv(screen_pixmap_t pixmap, int property, int* values) {
    return call([=](world& w) {
        pixmap_record* record = w.pixmaps.find(pixmap);
        if (!record || !values) return EINVAL;
        return get_property<pixmap_record>(*record, surface_properties<pixmap_record>, property, values);
    });
}

int screen_get_pixmap_property_pv(screen_pixmap_t pixmap, int property, void** values) {
    return call([=](world& w) {
        const pixmap_record* record = w.pixmaps.find(pixmap);
        if (!record || !values || property != SCREEN_PROPERTY_RENDER_BUFFERS) return EINVAL;
        return record->buffers.empty() ? ENOENT : get_render_buffers(*record, values);
    });
}

int screen_create_pixmap_buffer(screen_pixmap_t pixmap) {
    return call([=](world& w) {
        pixmap_record* record = w.pixmaps.find(pixmap);
        return record ? w.create_buffers(*record, 1) : EINVAL;
    });
}

int screen_destroy_pixmap_buffer(screen_pixmap_t pixmap) {
    return call([=](world& w) {
        pixmap_record* record = w.pixmaps.find(pixmap);
        if (!record) return EINVAL;
        if (record->buffers.empty()) return ENOENT;
        w.destroy_buffers(*record);
        return 0;
    });
}

int screen_get_buffer_property_iv(screen_buffer_t buffer, int property, int* values) {
    return call([=](world& w) {
        const buffer_record* record = w.buffers.find(buffer);
        if (!record || !values) return EINVAL;
        const frame_layout& layout = record->memory->layout();
        switch (property) {
            case SCREEN_PROPERTY_STRIDE:
                *values = layout.stride();
                return 0;
            case SCREEN_PROPERTY_FORMAT:
                *values = layout.format;
                return 0;
            case SCREEN_PROPERTY_BUFFER_SIZE:
                values[0] = layout.width;
                values[1] = layout.height;
                return 0;
            case SCREEN_PROPERTY_PHYSICALLY_CONTIGUOUS:
                *values = 1;
                return 0;
            default:
                return EINVAL;
        }
    });
}

int screen_get_buffer_property_pv(screen_buffer_t buffer, int property, void** values) {
    return call([=](world& w) {
        const buffer_record* record = w.buffers.find(buffer);
        if (!record || !values || property != SCREEN_PROPERTY_POINTER) return EINVAL;
        *values = record->memory->pointer();
        return 0;
    });
}

int screen_get_buffer_property_llv(screen_buffer_t buffer, int property, long long* values) {
    return call([=](world& w) {
        const buffer_record* record = w.buffers.find(buffer);
        if (!record || !values || property != SCREEN_PROPERTY_PHYSICAL_ADDRESS) return EINVAL;
        *values = static_cast<long long>(record->memory->physical_address());
        return 0;
    });
}
