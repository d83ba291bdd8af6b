// The allocator for two filters of which neither has one: buffers of plain memory.
#include <algorithm>
#include <cerrno>

#include "mm/framework.hpp"
#include "mm/source_formats.hpp"

namespace {

constexpr std::size_t alignment = 64;
constexpr std::size_t most_bytes = std::size_t{1} << 30;
constexpr int most_buffers = 4096;

// A pool with its memory and the lock that guards its records' counts.
struct heap_pool : kel_mmf_pool {
    std::mutex mutex;
    std::condition_variable returned;
    std::vector<kel_mmf_buffer> records;
    std::unique_ptr<uint8_t[]> memory;
};

heap_pool& pool_of(kel_mmf_pool* pool) {
    return *static_cast<heap_pool*>(pool);
}

constexpr std::size_t round_up(std::size_t bytes) {
    return (bytes + alignment - 1) / alignment * alignment;
}

// Bytes of a buffer: as asked for, or those of NV12 rows that begin at aligned addresses where they may.
std::size_t buffer_bytes(const kel_channel_format& format, const kel_mmf_pool_attributes& attributes) {
    const auto asked = static_cast<std::size_t>(attributes.buffer_size);
    if (format.media_type != MM_MEDIA_VIDEO || format.fourcc != platform::mmf::video_fourcc ||
        !(format.flags & platform::mmf::own_stride_flag) || format.video.width < 1 || format.video.height < 1)
        return asked;
    const auto rows = static_cast<std::size_t>(format.video.height) * 3 / 2;
    return std::max(asked, round_up(static_cast<std::size_t>(format.video.width)) * rows);
}

int allocate_memory_pool(kel_mmf_pool** out, kel_channel* channel,
                         const kel_mmf_pool_attributes* attributes) {
    if (!out || !channel || !attributes) return EINVAL;
    if (attributes->buffer_size < 1 || attributes->buffer_count < 1) return EINVAL;
    const std::size_t bytes = buffer_bytes(channel->format, *attributes);
    if (attributes->buffer_count > most_buffers) return ENOMEM;
    const auto count = static_cast<std::size_t>(attributes->buffer_count);
    // Behind each buffer a spare line: conversions write whole vectors.
    const std::size_t step = round_up(bytes) + alignment;
    if (bytes > most_bytes || step > most_bytes / count) return ENOMEM;
    return platform::mmf::no_throw(ENOMEM, [&] {
        auto pool = std::make_unique<heap_pool>();
        pool->memory.reset(new (std::nothrow) uint8_t[step * count + alignment]());
        if (!pool->memory) return ENOMEM;
        pool->records.resize(count);
        pool->buffers = pool->records.data();
        pool->channel = channel;
        pool->attributes = *attributes;
        pool->buffer_size = static_cast<uint32_t>(bytes);
        const std::size_t misfit = reinterpret_cast<std::uintptr_t>(pool->memory.get()) % alignment;
        uint8_t* data = pool->memory.get() + (alignment - misfit) % alignment;
        for (kel_mmf_buffer& record : pool->records) {
            record = {pool.get(), data, pool->buffer_size, 0, 0, nullptr, 0};
            data += step;
        }
        *out = pool.release();
        return 0;
    });
}

int free_memory_pool(kel_mmf_pool* pool) {
    if (pool) delete &pool_of(pool);
    return 0;
}

int get_memory_pool_buffers(kel_mmf_pool* pool, int* count, int* size, kel_mmf_buffer** buffers) {
    if (!pool || !count || !size) return EINVAL;
    *count = static_cast<int>(pool_of(pool).records.size());
    *size = static_cast<int>(pool->buffer_size);
    for (int i = 0; buffers && i < *count; ++i) buffers[i] = &pool->buffers[i];
    return 0;
}

int acquire_buffer(kel_mmf_pool* pool, kel_mmf_buffer** out, int do_not_wait) {
    if (!pool || !out) return EINVAL;
    heap_pool& own = pool_of(pool);
    std::unique_lock lock(own.mutex);
    for (;;) {
        for (kel_mmf_buffer& record : own.records)
            if (record.refcount == 0) {
                record.refcount = 1;
                *out = &record;
                return 0;
            }
        if (do_not_wait) return ENOMEM;
        own.returned.wait(lock);
    }
}

int increment_ref_count(kel_mmf_buffer* record) {
    if (!record) return EINVAL;
    std::lock_guard lock(pool_of(record->pool).mutex);
    if (record->refcount == 0) return EINVAL;
    ++record->refcount;
    return 0;
}

// The caller holds the pool's lock.
void free_record(kel_mmf_buffer& record) {
    record.refcount = 0;
    pool_of(record.pool).returned.notify_one();
}

// The last but one of several holders frees the record, since the first one's release was refused.
int decrement_ref_count(kel_mmf_buffer* record) {
    if (!record) return EINVAL;
    std::lock_guard lock(pool_of(record->pool).mutex);
    if (record->refcount <= 1) return EINVAL;
    if (--record->refcount == 1) free_record(*record);
    return 0;
}

int release_buffer(kel_mmf_buffer* record) {
    if (!record) return EINVAL;
    std::lock_guard lock(pool_of(record->pool).mutex);
    if (record->refcount != 1) return EAGAIN;
    free_record(*record);
    return 0;
}

void* get_memory_pool_attributes(void* pool) {
    return pool ? &static_cast<kel_mmf_pool*>(pool)->attributes : nullptr;
}

int not_supported() {
    return ENOTSUP;
}

}  // namespace

const kel_allocator_interface platform::mmf::heap_allocator = {
    allocate_memory_pool, free_memory_pool, get_memory_pool_buffers,    acquire_buffer, increment_ref_count,
    decrement_ref_count,  release_buffer,   get_memory_pool_attributes, not_supported,
};
