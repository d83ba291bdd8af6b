// Pools of reference-counted buffers: acquisition with and without waiting, release, destruction.
#include <cerrno>
#include <cinttypes>
#include <cstdlib>
#include <cstring>

#include "base/arith.hpp"
#include "base/deadline.hpp"
#include "base/guard.hpp"
#include "base/lock.hpp"
#include "base/log.hpp"
#include "buffer/pool.hpp"

namespace {

// One bit for each buffer in kel_buffer_pool::free_words, set while the buffer is free: the lowest free index
// is the lowest set bit of the first word that has one.
constexpr uint32_t word_bits = 64;

constexpr std::size_t words_for(uint32_t count) {
    return (std::size_t{count} + word_bits - 1) / word_bits;
}

// The buffer records and, behind them, the free words: one block. Null when it cannot be had.
kel_buffer* allocate_buffers(uint32_t count) {
    std::size_t bytes = 0;
    if (!kel::multiply(std::size_t{count}, sizeof(kel_buffer), bytes)) return nullptr;
    if (__builtin_add_overflow(bytes, words_for(count) * sizeof(uint64_t), &bytes)) return nullptr;
    return static_cast<kel_buffer*>(calloc(1, bytes));
}

void mark_all_free(uint64_t* words, uint32_t count) {
    for (uint32_t whole = count / word_bits; whole > 0; --whole) *words++ = ~uint64_t{0};
    if (count % word_bits != 0) *words = (uint64_t{1} << count % word_bits) - 1;
}

// The caller knows that a buffer is free.
kel_buffer* lowest_free(kel_buffer_pool& pool) KEL_REQUIRES(pool.mutex) {
    uint64_t* word = pool.free_words;
    while (*word == 0) ++word;
    const auto bit = static_cast<uint32_t>(__builtin_ctzll(*word));
    *word &= *word - 1;
    return &pool.buffers[static_cast<std::size_t>(word - pool.free_words) * word_bits + bit];
}

void mark_free(kel_buffer_pool& pool, const kel_buffer& buffer) KEL_REQUIRES(pool.mutex) {
    const auto index = static_cast<std::size_t>(&buffer - pool.buffers);
    pool.free_words[index / word_bits] |= uint64_t{1} << index % word_bits;
}

// Null when no buffer can be had.
kel_buffer* take_free_buffer(kel_buffer_pool& pool) KEL_REQUIRES(pool.mutex) {
    if (pool.flags & KEL_POOL_MARKED_FOR_DESTRUCTION) {
        KEL_LOG_ERROR("kel: Attempt to acquire buffer after pool has been marked for destruction");
        return nullptr;
    }
    if (pool.in_use == pool.count) return nullptr;
    kel_buffer* buffer = lowest_free(pool);
    buffer->refcount = 1;
    ++pool.in_use;
    return buffer;
}

// The mutex is given up meanwhile. Returns 0 or the error of the wait; no deadline waits without limit.
int wait_for_buffer(kel_buffer_pool& pool, const timespec* deadline) KEL_REQUIRES(pool.mutex) {
    ++pool.waiters;
    const int error = deadline ? pthread_cond_timedwait(&pool.cond, &pool.mutex, deadline)
                               : pthread_cond_wait(&pool.cond, &pool.mutex);
    --pool.waiters;
    return error;
}

// True when the pool is marked and the last buffer came back: the caller destroys it once the mutex is free.
bool return_to_pool(kel_buffer_pool& pool, const kel_buffer& buffer) KEL_REQUIRES(pool.mutex) {
    mark_free(pool, buffer);
    --pool.in_use;
    if (pool.waiters != 0) pthread_cond_signal(&pool.cond);
    return pool.in_use == 0 && (pool.flags & KEL_POOL_MARKED_FOR_DESTRUCTION);
}

void destroy(kel_buffer_pool* pool) {
    if (pool->format.type == KEL_BUFFER_VIDEO) {
        kel::destroy_video_storage(*pool);
    } else {
        free(pool->buffers[0].ptr);
    }
    kel::tear_down_pool(*pool);
    free(pool);
}

int release(kel_buffer_pool& pool, kel_buffer& buffer) KEL_RELEASE(pool.mutex) {
    {
        kel::lock_guard lock(pool.mutex, kel::adopt);
        if (buffer.refcount <= 0) {
            KEL_LOG_ERROR("kel: Attempt to release buffer that has not been acquired.");
            return EINVAL;
        }
        if (--buffer.refcount > 0) return 0;
        if (!return_to_pool(pool, buffer)) return 0;
    }
    KEL_LOG_INFO("kel: Automatically destroying buffer pool at %08" PRIxPTR,
                 reinterpret_cast<uintptr_t>(&pool));
    destroy(&pool);
    return 0;
}

}  // namespace

bool kel::set_up_pool(kel_buffer_pool& pool) {
    if (const int error = pthread_mutex_init(&pool.mutex, nullptr)) {
        KEL_LOG_ERROR("kel: Unable to create buffer pool mutex.: %s", strerror(error));
        return false;
    }
    scope_exit drop_mutex([&] { pthread_mutex_destroy(&pool.mutex); });
    if (const int error = pthread_cond_init(&pool.cond, nullptr)) {
        KEL_LOG_ERROR("kel: Unable to create buffer pool condvar.: %s", strerror(error));
        return false;
    }
    scope_exit drop_cond([&] { pthread_cond_destroy(&pool.cond); });

    const auto count = static_cast<uint32_t>(pool.count);
    pool.buffers = allocate_buffers(count);
    if (!pool.buffers) {
        KEL_LOG_ERROR("kel: Unable to allocate memory for buffer pool buffers.");
        return false;
    }
    for (uint32_t i = 0; i < count; ++i) pool.buffers[i].pool = &pool;
    pool.free_words = reinterpret_cast<uint64_t*>(pool.buffers + count);
    mark_all_free(pool.free_words, count);

    drop_cond.dismiss();
    drop_mutex.dismiss();
    return true;
}

void kel::tear_down_pool(kel_buffer_pool& pool) {
    free(pool.buffers);
    pool.buffers = nullptr;
    pool.free_words = nullptr;
    pthread_cond_destroy(&pool.cond);
    pthread_mutex_destroy(&pool.mutex);
}

kel_buffer* kel_acquire_buffer(kel_buffer_pool* pool) {
    if (!pool) return nullptr;
    kel::lock_guard lock(pool->mutex);
    return take_free_buffer(*pool);
}

kel_buffer* kel_acquire_buffer_wait(kel_buffer_pool* pool, int32_t timeout_ms) {
    if (!pool) return nullptr;
    kel::lock_guard lock(pool->mutex);
    kel_buffer* buffer = take_free_buffer(*pool);
    if (buffer) return buffer;

    const timespec deadline = kel::deadline_from_now(timeout_ms);
    while (!buffer) {
        if (const int error = wait_for_buffer(*pool, timeout_ms == -1 ? nullptr : &deadline)) {
            if (error != ETIMEDOUT) {
                KEL_LOG_ERROR("kel: Error when waiting for buffer: Error %d: %s.", error, strerror(error));
            }
            return nullptr;
        }
        buffer = take_free_buffer(*pool);
    }
    return buffer;
}

int kel_ref_buffer(kel_buffer* buffer) {
    if (!buffer) return 0;
    kel::lock_guard lock(buffer->pool->mutex);
    if (buffer->refcount == 0) {
        KEL_LOG_ERROR("kel: Attempt to reference a buffer that has not been acquired.");
        return EINVAL;
    }
    ++buffer->refcount;
    return 0;
}

int kel_release_buffer(kel_buffer* buffer) {
    if (!buffer) return EINVAL;
    kel_buffer_pool& pool = *buffer->pool;
    kel::acquire(pool.mutex);
    return release(pool, *buffer);
}

int kel_release_buffer_unlocked(kel_buffer* buffer) {
    if (!buffer) return EINVAL;
    kel_buffer_pool& pool = *buffer->pool;
    kel::assume_held(pool.mutex);
    return release(pool, *buffer);
}

void kel_destroy_buffer_pool(kel_buffer_pool** pool) {
    if (!pool || !*pool) return;
    destroy(*pool);
    *pool = nullptr;
}

void kel_destroy_buffer_pool_when_unused(kel_buffer_pool* pool) {
    if (!pool) return;
    {
        kel::lock_guard lock(pool->mutex);
        pool->flags |= KEL_POOL_MARKED_FOR_DESTRUCTION;
        if (pool->in_use != 0) return;
    }
    destroy(pool);
}

const kel_buffer_format* kel_get_buffer_format(const kel_buffer* buffer) {
    return buffer ? &buffer->pool->format : nullptr;
}
