// No exception leaves the platform: its callers are C.
#pragma once

#include <new>

namespace platform::mmf {

// The action's result, or `failed` when memory ran out in it.
template <typename Result, typename Action>
Result no_throw(Result failed, Action action) {
    try {
        return action();
    } catch (const std::bad_alloc&) {
        return failed;
    }
}

}  // namespace platform::mmf
