// Small helpers for the framework's graphs.
#pragma once

#include <mm/mmf.h>

#include <cstdint>

namespace kel_tool {

inline int set_number(kel_filter* filter, const char* resource, int32_t value) {
    return MmSetResource(filter, resource, &value);
}

// The value of a pointer or string resource; null when there is none.
template <typename T>
T* resource(kel_filter* filter, const char* name) {
    const mmf_resource* entry = MmFindResource(filter, name);
    return entry ? *static_cast<T**>(entry->value) : nullptr;
}

// The first output or input of a filter that carries a media type (MM_MEDIA_*), or null.
kel_channel* output_of(kel_filter* filter, uint32_t media_type);
kel_channel* input_of(kel_filter* filter, uint32_t media_type);

}  // namespace kel_tool
