// The allocator through which a media graph takes its buffers from the library's pools: each library buffer
// is wrapped in a record that the framework knows, with a reference count of its own.
#include <kel.h>
#include <mm/mmf.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "base/guard.hpp"
#include "base/log.hpp"
#include "graph/filters.hpp"
#include "graph/pixel_formats.hpp"

namespace {

// Results that are not errno values on every system.
constexpr int bad_size_or_count = 37;
constexpr int unsupported = 48;

// Bits of the attribute flags that no pool of the library can honour.
constexpr uint32_t unsupported_flags = 0x61010;

constexpr int32_t window_type = SCREEN_CHILD_WINDOW;
constexpr int32_t acquire_step_ms = 1000;
constexpr int attempts_per_warning = 10;

const kel_filter_head& head_of(const kel_channel& channel) {
    return *static_cast<const kel_filter_head*>(channel.filter->state);
}

uint32_t sample_type(int32_t bits) {
    switch (bits) {
        case 8:
            return KEL_AUDIO_TYPE_U8;
        case 16:
            return KEL_AUDIO_TYPE_S16LE;
        case 32:
            return KEL_AUDIO_TYPE_S24_8LE;
        default:
            return 0;
    }
}

int make_audio_pool(const kel_channel& channel, int32_t count, kel_buffer_pool*& pool) {
    const auto& audio = channel.format.audio;
    const uint32_t type = sample_type(audio.bits_per_sample);
    if (type == 0) {
        KEL_LOG_ERROR("kel_allocator: AllocateMemoryPool() for unhandled sample depth %d",
                      audio.bits_per_sample);
        return EINVAL;
    }
    if (audio.channels < 1) return EINVAL;
    const int64_t frame_bytes = int64_t{audio.channels} * (audio.bits_per_sample / 8);
    const int64_t frames = (channel.format.buffer_size + frame_bytes - 1) / frame_bytes;
    const kel_audio_format format = {audio.rate, audio.channels, type};
    const kel_filter_head& head = head_of(channel);
    pool = kel_create_audio_buffer_pool(head.context, &format,
                                        static_cast<uint32_t>(std::max<int64_t>(frames, 0)),
                                        std::max(count, head.min_audio_buffers));
    return pool ? 0 : ENOMEM;
}

int make_video_pool(const kel_channel& channel, int32_t count, kel_buffer_pool*& pool) {
    const auto& format = channel.format;
    const kel::fourcc_text text(format.fourcc);
    KEL_LOG_INFO("Translating FOURCC '%-4.4s'", text.characters);
    const uint32_t code =
        kel_fourcc_to_mmf_format(format.fourcc, format.video.bits_per_pixel, format.variant);
    if (code == 0) return ENOMEM;
    const int32_t screen_format = kel_mmf_to_screen_format(code);
    KEL_LOG_TRACE("kel_allocator: Screen format for FOURCC %c%c%c%c = 0x%08x", text.characters[3],
                  text.characters[2], text.characters[1], text.characters[0],
                  static_cast<unsigned>(screen_format));
    const kel_filter_head& head = head_of(channel);
    const kel_video_format video = {screen_format, head.usage, format.video.width, format.video.height};
    pool = kel_create_window_buffer_pool(head.context, &video, window_type,
                                         std::max(count, head.min_video_buffers));
    return pool ? 0 : ENOMEM;
}

int make_pool(const kel_channel& channel, int32_t count, kel_buffer_pool*& pool) {
    return channel.format.media_type == MM_MEDIA_AUDIO ? make_audio_pool(channel, count, pool)
                                                       : make_video_pool(channel, count, pool);
}

void wrap_buffers(kel_mmf_pool& pool) {
    const kel_buffer_pool& library = *pool.buffer_pool;
    for (int32_t i = 0; i < library.count; ++i) {
        kel_buffer& buffer = library.buffers[i];
        kel_mmf_buffer& record = pool.buffers[i];
        record.pool = &pool;
        record.data = buffer.ptr;
        record.size = buffer.size;
        record.buffer = &buffer;
        if (library.format.type == KEL_BUFFER_VIDEO) record.paddr = buffer.paddr;
    }
}

int allocate_memory_pool(kel_mmf_pool** out, kel_channel* channel,
                         const kel_mmf_pool_attributes* attributes) {
    if (!out || !channel || !channel->connection || !attributes) return EINVAL;
    if (attributes->buffer_count < 1 || attributes->buffer_size < 1) return bad_size_or_count;
    if (attributes->word_14 || attributes->word_18 || attributes->word_1c ||
        (attributes->flags & unsupported_flags))
        return unsupported;
    const kel_filter_head& head = head_of(*channel);
    KEL_LOG_INFO("kel_allocator: AllocateMemoryPool() for %s -> %s %d x %d bytes (min: a: %d, v: %d)",
                 channel->filter->name, channel->name, attributes->buffer_count, attributes->buffer_size,
                 head.min_audio_buffers, head.min_video_buffers);
    const uint32_t media_type = channel->format.media_type;
    if (media_type != MM_MEDIA_VIDEO && media_type != MM_MEDIA_AUDIO) {
        KEL_LOG_ERROR("kel_allocator: AllocateMemoryPool() for unhandled media type %d",
                      static_cast<int>(media_type));
        return EINVAL;
    }

    *out = nullptr;
    auto pool = kel::make_record<kel_mmf_pool>();
    if (!pool) return ENOMEM;
    pool->channel = channel;

    kel_buffer_pool* library = nullptr;
    if (int error = make_pool(*channel, attributes->buffer_count, library)) return error;
    kel::scope_exit destroy_library([&] { kel_destroy_buffer_pool(&library); });

    auto records = kel::make_records<kel_mmf_buffer>(static_cast<std::size_t>(library->count));
    if (!records) return ENOMEM;

    pool->buffer_pool = library;
    pool->buffers = records.release();
    pool->attributes = *attributes;
    pool->buffer_size = library->buffers[0].size;
    wrap_buffers(*pool);
    destroy_library.dismiss();
    *out = pool.release();
    return 0;
}

int free_memory_pool(kel_mmf_pool* pool) {
    if (!pool) return 0;
    KEL_LOG_TRACE("kel_allocator: FreeMemoryPool() mpool = %p ( %d x %d bytes) for %s -> %s",
                  static_cast<void*>(pool), pool->buffer_pool->count, static_cast<int>(pool->buffer_size),
                  pool->channel->filter->name, pool->channel->name);
    free(pool->buffers);
    kel_destroy_buffer_pool(&pool->buffer_pool);
    free(pool);
    KEL_LOG_TRACE("kel_allocator: FreeMemoryPool() done");
    return 0;
}

int get_memory_pool_buffers(kel_mmf_pool* pool, int* count, int* size, kel_mmf_buffer** buffers) {
    if (!pool || !count || !size) return EINVAL;
    *count = pool->buffer_pool->count;
    *size = static_cast<int>(pool->buffer_size);
    if (buffers)
        for (int i = 0; i < *count; ++i) buffers[i] = &pool->buffers[i];
    return 0;
}

// Waits for as long as it takes; a graph that starves says so every ten seconds.
kel_buffer* wait_for_buffer(kel_buffer_pool* pool) {
    for (int attempt = 1;; ++attempt) {
        kel_buffer* buffer = kel_acquire_buffer_wait(pool, acquire_step_ms);
        if (attempt % attempts_per_warning == 0)
            KEL_LOG_WARNING("kel_allocator: AcquireBuffer() Unable to acquire a buffer for 10 seconds");
        if (buffer) return buffer;
    }
}

int acquire_buffer(kel_mmf_pool* pool, kel_mmf_buffer** out, int do_not_wait) {
    if (!pool || !out) return EINVAL;
    kel_buffer_pool* library = pool->buffer_pool;
    kel_buffer* buffer = do_not_wait ? kel_acquire_buffer(library) : wait_for_buffer(library);
    if (!buffer) return ENOMEM;
    kel_mmf_buffer& record = pool->buffers[buffer - library->buffers];
    pthread_mutex_lock(&library->mutex);
    record.refcount = 1;
    pthread_mutex_unlock(&library->mutex);
    *out = &record;
    return 0;
}

// Takes the lock that guards the record's count: that of the library pool which owns its buffer.
pthread_mutex_t* lock_record(kel_mmf_buffer* record) {
    if (!record) return nullptr;
    pthread_mutex_t* mutex = &record->buffer->pool->mutex;
    return pthread_mutex_lock(mutex) == 0 ? mutex : nullptr;
}

int increment_ref_count(kel_mmf_buffer* record) {
    pthread_mutex_t* mutex = lock_record(record);
    if (!mutex) {
        KEL_LOG_ERROR("kel_allocator: IncrementRefCount unable to lock mutex.");
        return EINVAL;
    }
    int result = 0;
    if (record->refcount == 0) {
        KEL_LOG_ERROR("kel_allocator: IncrementRefCount of buffer with ref count = 0.");
        result = EINVAL;
    } else {
        ++record->refcount;
    }
    pthread_mutex_unlock(mutex);
    return result;
}

int decrement_ref_count(kel_mmf_buffer* record) {
    pthread_mutex_t* mutex = lock_record(record);
    if (!mutex) {
        KEL_LOG_ERROR("kel_allocator: DecrementRefCount unable to lock mutex.");
        return EINVAL;
    }
    int result = 0;
    if (record->refcount <= 1) {
        KEL_LOG_ERROR("kel_allocator: DecrementRefCount of buffer with ref count <= 1.");
        result = EINVAL;
    } else if (--record->refcount == 1) {
        record->refcount = 0;
        return kel_release_buffer_unlocked(record->buffer);
    }
    pthread_mutex_unlock(mutex);
    return result;
}

int release_buffer(kel_mmf_buffer* record) {
    pthread_mutex_t* mutex = lock_record(record);
    if (!mutex) {
        KEL_LOG_ERROR("kel_allocator: ReleaseBuffer unable to lock mutex.");
        return EINVAL;
    }
    if (record->refcount != 1) {
        pthread_mutex_unlock(mutex);
        return EAGAIN;
    }
    record->refcount = 0;
    return kel_release_buffer_unlocked(record->buffer);
}

void* get_memory_pool_attributes(void* pool) {
    return pool ? static_cast<char*>(pool) + offsetof(kel_mmf_pool, attributes) : nullptr;
}

int not_supported() {
    return unsupported;
}

}  // namespace

const kel_allocator_interface kel_allocator = {
    .allocate_memory_pool = allocate_memory_pool,
    .free_memory_pool = free_memory_pool,
    .get_memory_pool_buffers = get_memory_pool_buffers,
    .acquire_buffer = acquire_buffer,
    .increment_ref_count = increment_ref_count,
    .decrement_ref_count = decrement_ref_count,
    .release_buffer = release_buffer,
    .get_memory_pool_attributes = get_memory_pool_attributes,
    .not_supported = not_supported,
};
