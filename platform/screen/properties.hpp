// Integer properties of windows and pixmaps, as tables of rows.
#pragma once

#include <algorithm>

#include "screen/objects.hpp"

namespace platform::screen {

template <typename Record>
struct int_property {
    int number;
    int count;                    // of values
    int* (*values)(Record&);      // where they are kept
    int (*check)(const int*);     // 0, or the errno value that refuses them
    bool shapes_buffers = false;  // cannot change while the object has buffers
};

int check_format(const int* values);
int check_usage(const int* values);
int check_buffer_size(const int* values);

// The rows that windows and pixmaps share.
template <typename Record>
inline constexpr int_property<Record> surface_properties[] = {
    {SCREEN_PROPERTY_FORMAT, 1, [](Record& r) { return &r.format; }, check_format, true},
    {SCREEN_PROPERTY_USAGE, 1, [](Record& r) { return &r.usage; }, check_usage, true},
    {SCREEN_PROPERTY_BUFFER_SIZE, 2, [](Record& r) { return r.buffer_size; }, check_buffer_size, true},
};

template <typename Record>
int set_property(Record& record, std::span<const int_property<Record>> rows, int number, const int* values) {
    for (const int_property<Record>& row : rows) {
        if (row.number != number) continue;
        if (const int error = row.check(values)) return error;
        if (row.shapes_buffers && !record.buffers.empty()) return EBUSY;
        std::copy_n(values, row.count, row.values(record));
        return 0;
    }
    return EINVAL;
}

template <typename Record>
int get_property(Record& record, std::span<const int_property<Record>> rows, int number, int* values) {
    for (const int_property<Record>& row : rows) {
        if (row.number != number) continue;
        std::copy_n(row.values(record), row.count, values);
        return 0;
    }
    return EINVAL;
}

inline int get_render_buffers(const surface_record& surface, void** values) {
    std::copy(surface.buffers.begin(), surface.buffers.end(), values);
    return 0;
}

}  // namespace platform::screen
