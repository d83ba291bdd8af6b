// Interface lists registered by add-ons: kept for the life of the process, so handles never go stale.
#include <aoi/aoi.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>

struct AOHandle {
    const AOInterface_t* interfaces;
    AOHandle* next;
};

namespace {

std::atomic<AOHandle*> newest{nullptr};
std::atomic<unsigned> count{0};

const AOInterface_t* find_interface(const AOInterface_t* list, const char* name) {
    for (; list->name; ++list) {
        if (strcmp(list->name, name) == 0) return list;
    }
    return nullptr;
}

bool is_registered(const AOHandle* handle) {
    for (const AOHandle* entry = newest.load(); entry; entry = entry->next) {
        if (entry == handle) return true;
    }
    return false;
}

}  // namespace

AOHandle_t* AoAddStatic(const AOInterface_t* interfaces) {
    if (!interfaces || !find_interface(interfaces, "Name")) {
        errno = EINVAL;
        return nullptr;
    }
    auto* handle = new (std::nothrow) AOHandle{interfaces, newest.load()};
    if (!handle) {
        errno = ENOMEM;
        return nullptr;
    }
    while (!newest.compare_exchange_weak(handle->next, handle)) {
    }
    ++count;
    return handle;
}

const AOInterface_t* AoGetInterface(const AOHandle_t* handle, const char* name) {
    if (!name || !is_registered(handle)) {
        errno = EINVAL;
        return nullptr;
    }
    const AOInterface_t* found = find_interface(handle->interfaces, name);
    if (!found) errno = ESRCH;
    return found;
}

unsigned AoCountStatic() {
    return count.load();
}
