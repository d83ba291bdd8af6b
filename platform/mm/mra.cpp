// Containers: fixed sets of them per channel, each with a few property and buffer elements.
#include <algorithm>
#include <array>
#include <cerrno>
#include <map>

#include "mm/framework.hpp"

namespace {

constexpr int most_elements = 16;
constexpr int most_containers = 4096;

struct element {
    int type;  // MM_ELEMENT_*
    int property;
    uint32_t value;
    uint16_t value16;
    kel_mmf_buffer* record;
    void* data;
    uint32_t size;
};

}  // namespace

struct mmf_mra {
    mmf_mra_pool* pool;
    bool acquired;
    int count;  // elements set
    std::array<element, most_elements> elements;
};

struct mmf_mra_pool {
    const kel_channel* channel;
    const kel_channel* owner;
    bool freed = false;  // its channel is gone: it ends with the last container that is out
    int out = 0;
    std::vector<mmf_mra> containers;
};

namespace {

// Every pool by the end of its containers' memory, so that a foreign pointer is told from a container.
std::mutex mutex;
std::condition_variable returned;
std::map<std::uintptr_t, std::unique_ptr<mmf_mra_pool>> pools;

std::uintptr_t address(const void* pointer) {
    return reinterpret_cast<std::uintptr_t>(pointer);
}

std::uintptr_t key_of(const mmf_mra_pool& pool) {
    return address(pool.containers.data() + pool.containers.size());
}

mmf_mra_pool* find_pool(const mmf_mra_pool* wanted) {
    for (auto& [key, pool] : pools)
        if (pool.get() == wanted) return pool.get();
    return nullptr;
}

// The container behind a handle that is out, or null.
mmf_mra* find_acquired(const mmf_mra* handle) {
    auto found = pools.upper_bound(address(handle));
    if (found == pools.end()) return nullptr;
    auto& containers = found->second->containers;
    const std::uintptr_t start = address(containers.data());
    if (address(handle) < start || (address(handle) - start) % sizeof(mmf_mra) != 0) return nullptr;
    mmf_mra& mra = containers[(address(handle) - start) / sizeof(mmf_mra)];
    return mra.acquired ? &mra : nullptr;
}

void free_if_done(mmf_mra_pool& pool) {
    if (pool.freed && pool.out == 0) pools.erase(key_of(pool));
}

const kel_allocator_interface* allocator_for(const kel_channel* owner) {
    if (owner->connection) return owner->connection->allocator;
    return platform::mmf::interface_of<kel_allocator_interface>(owner->filter, "MediaMemoryAllocator");
}

int set_element(mmf_mra* handle, int index, const element& value) {
    std::lock_guard lock(mutex);
    mmf_mra* mra = find_acquired(handle);
    if (!mra || index != mra->count || index >= most_elements) return EINVAL;
    mra->elements[static_cast<std::size_t>(index)] = value;
    ++mra->count;
    return 0;
}

int get_element(const mmf_mra* handle, int index, int type, element& value) {
    std::lock_guard lock(mutex);
    const mmf_mra* mra = find_acquired(handle);
    if (!mra || index < 0) return EINVAL;
    if (index >= mra->count) return ENOENT;
    value = mra->elements[static_cast<std::size_t>(index)];
    return type == 0 || value.type == type ? 0 : EINVAL;
}

}  // namespace

int MmfAllocateMraPool(mmf_mra_pool** out, kel_channel* channel, int count, kel_channel* owner) {
    if (!out || !channel || !owner || count < 1 || count > most_containers) return EINVAL;
    return platform::mmf::no_throw(ENOMEM, [&] {
        auto pool = std::make_unique<mmf_mra_pool>();
        pool->channel = channel;
        pool->owner = owner;
        pool->containers.resize(static_cast<std::size_t>(count));
        for (mmf_mra& mra : pool->containers) mra = {pool.get(), false, 0, {}};
        mmf_mra_pool* handle = pool.get();
        std::lock_guard lock(mutex);
        pools.emplace(key_of(*pool), std::move(pool));
        *out = handle;
        return 0;
    });
}

int MmfAcquireMra(mmf_mra_pool* handle, mmf_mra** out, int do_not_wait) {
    if (!out) return EINVAL;
    std::unique_lock lock(mutex);
    for (;;) {
        mmf_mra_pool* pool = find_pool(handle);
        if (!pool || pool->freed) return EINVAL;
        auto free = std::find_if(pool->containers.begin(), pool->containers.end(),
                                 [](const mmf_mra& mra) { return !mra.acquired; });
        if (free != pool->containers.end()) {
            free->acquired = true;
            free->count = 0;
            ++pool->out;
            *out = &*free;
            return 0;
        }
        if (do_not_wait) return EAGAIN;
        returned.wait(lock);
    }
}

int MmfReleaseMra(mmf_mra* handle) {
    std::unique_lock lock(mutex);
    mmf_mra* mra = find_acquired(handle);
    if (!mra) return EINVAL;
    const auto elements = mra->elements;
    const int count = mra->count;
    mmf_mra_pool& pool = *mra->pool;
    const kel_allocator_interface* allocator = pool.freed ? nullptr : allocator_for(pool.owner);
    mra->acquired = false;
    --pool.out;
    free_if_done(pool);
    lock.unlock();
    returned.notify_all();
    // A record that somebody else still counts on answers EAGAIN and returns with that holder.
    for (int i = 0; allocator && i < count; ++i)
        if (elements[static_cast<std::size_t>(i)].type == MM_ELEMENT_BUFFER)
            allocator->release_buffer(elements[static_cast<std::size_t>(i)].record);
    return 0;
}

int MmfSetMraPropertyElement(mmf_mra* mra, int index, int type, uint32_t value, uint16_t value16) {
    return set_element(mra, index, {MM_ELEMENT_PROPERTY, type, value, value16, nullptr, nullptr, 0});
}

int MmfSetMraBufferElement(mmf_mra* mra, int index, kel_mmf_buffer* record, void* data, uint32_t size) {
    if (!record) return EINVAL;
    return set_element(mra, index, {MM_ELEMENT_BUFFER, 0, 0, 0, record, data, size});
}

int MmfGetMraElementType(const mmf_mra* mra, int index, int* type) {
    element found{};
    const int error = type ? get_element(mra, index, 0, found) : EINVAL;
    if (error == 0) *type = found.type;
    return error;
}

int MmfGetMraPropertyElement(const mmf_mra* mra, int index, int* type, uint32_t* value, uint16_t* value16) {
    element found{};
    const int error = type && value && value16 ? get_element(mra, index, MM_ELEMENT_PROPERTY, found) : EINVAL;
    if (error != 0) return error;
    *type = found.property;
    *value = found.value;
    *value16 = found.value16;
    return 0;
}

int MmfGetMraBufferElement(const mmf_mra* mra, int index, kel_mmf_buffer** record, void** data,
                           uint32_t* size) {
    element found{};
    const int error = record && data && size ? get_element(mra, index, MM_ELEMENT_BUFFER, found) : EINVAL;
    if (error != 0) return error;
    *record = found.record;
    *data = found.data;
    *size = found.size;
    return 0;
}

void platform::mmf::free_mra_pools(const kel_channel* channel) {
    std::lock_guard lock(mutex);
    for (auto it = pools.begin(); it != pools.end();) {
        mmf_mra_pool& pool = *(it++)->second;
        if (pool.channel != channel) continue;
        pool.freed = true;
        free_if_done(pool);
    }
    returned.notify_all();
}
