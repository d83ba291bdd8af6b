// What the file source and the file sink share.
#pragma once

#include <mm/mmf.h>

#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <vector>

namespace platform::mmf {

// Results of SetResource beside errno values.
inline constexpr int resource_not_writable = 1;
inline constexpr int resource_unknown = 4032;

// The action's result, or `failed` when memory ran out in it: no exception leaves a callback.
template <typename Action>
int no_throw(int failed, Action action) {
    try {
        return action();
    } catch (const std::bad_alloc&) {
        return failed;
    }
}

}  // namespace platform::mmf
