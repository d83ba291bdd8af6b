// What the file source and the file sink share.
#pragma once

#include <mm/mmf.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "mm/no_throw.hpp"

namespace platform::mmf {

// Results of SetResource beside errno values.
inline constexpr int resource_not_writable = 1;
inline constexpr int resource_unknown = 4032;

// Both filters post errors and nothing else.
inline int iterate_events(kel_filter* filter, int* type, int* cursor) {
    if (!filter || !type || !cursor || *cursor != 0) return -1;
    *cursor = 1;
    *type = MM_EV_ERR;
    return 0;
}

inline int enable_event(kel_filter* filter, int type) {
    return filter && type == MM_EV_ERR ? 0 : -1;
}

}  // namespace platform::mmf
