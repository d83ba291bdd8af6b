// Video pools: buffers in Screen's memory, each with its own pixmap, or all of one window.
#include <cerrno>
#include <cinttypes>
#include <cstdlib>
#include <cstring>

#include "base/arith.hpp"
#include "base/guard.hpp"
#include "base/log.hpp"
#include "buffer/pool.hpp"

namespace {

// Chroma of NV12 lies below the luma rows, at half their height; no other format is given extra planes.
constexpr uint64_t frame_bytes(int32_t stride, const kel_video_format& format) {
    const uint64_t rows = static_cast<uint64_t>(stride) * static_cast<uint64_t>(format.height);
    return format.format == SCREEN_FORMAT_NV12 ? rows * 3 / 2 : rows;
}

// Fills a buffer record from Screen's buffer. The Screen objects stay with the caller.
bool init_video_buffer(kel_buffer& buffer, screen_buffer_t source) {
    const kel_video_format& format = buffer.pool->format.video;
    if (!source) {
        KEL_LOG_ERROR("kel: init_video_buffer() buffer was NULL");
        return false;
    }
    buffer.screen_buffer = source;

    if (screen_get_buffer_property_pv(source, SCREEN_PROPERTY_POINTER, &buffer.ptr) != 0) {
        KEL_LOG_ERROR("kel: init_video_buffer() screen_get_window_property_pv SCREEN_PROPERTY_POINTER: %s",
                      strerror(errno));
        return false;
    }
    if (!buffer.ptr) {
        KEL_LOG_ERROR("kel: init_video_buffer() invalid pointer returned from Screen.");
        return false;
    }

    if (screen_get_buffer_property_iv(source, SCREEN_PROPERTY_STRIDE, &buffer.stride) != 0) {
        KEL_LOG_ERROR("kel: init_video_buffer() screen_get_window_property_iv SCREEN_PROPERTY_STRIDE: %s",
                      strerror(errno));
        return false;
    }
    const uint64_t bytes = frame_bytes(buffer.stride, format);
    if (buffer.stride < 1 || bytes > UINT32_MAX) {
        KEL_LOG_ERROR("kel: allocate_video_buffers() invalid parameters.");
        return false;
    }
    KEL_LOG_INFO("kel: init_video_buffer() Created surface is %d x %d, %d bytes big @ %" PRIxPTR ".",
                 buffer.stride, format.height, static_cast<int>(int64_t{buffer.stride} * format.height),
                 reinterpret_cast<uintptr_t>(buffer.ptr));
    buffer.size = static_cast<uint32_t>(bytes);

    long long address = 0;
    if (screen_get_buffer_property_llv(source, SCREEN_PROPERTY_PHYSICAL_ADDRESS, &address) != 0) {
        KEL_LOG_ERROR("kel: screen_get_window_property_llv SCREEN_PROPERTY_PHYSICAL_ADDRESS: %s",
                      strerror(errno));
        return false;
    }
    if (address == 0) {
        KEL_LOG_ERROR("kel: buffer physical address not available from composition manager");
        return false;
    }
    buffer.paddr = static_cast<uint64_t>(address);

    int contiguous = 0;
    if (screen_get_buffer_property_iv(source, SCREEN_PROPERTY_PHYSICALLY_CONTIGUOUS, &contiguous) != 0) {
        KEL_LOG_ERROR("kel: screen_get_window_property_iv SCREEN_PROPERTY_PHYSICALLY_CONTIGUOUS: %s",
                      strerror(errno));
        return false;
    }
    if (contiguous) buffer.flags |= KEL_BUFFER_PHYS_CONTIGUOUS;
    return true;
}

bool allocate_window_buffers(kel_buffer_pool& pool) {
    const auto count = static_cast<std::size_t>(pool.count);
    auto handles = kel::make_records<void*>(count);
    if (!handles) {
        KEL_LOG_ERROR("kel: allocate_window_buffers() unable to allocate temporary memory.");
        return false;
    }
    KEL_LOG_INFO("kel: allocate_window_buffers() 0x%08" PRIxPTR ", %d.",
                 reinterpret_cast<uintptr_t>(pool.window), pool.count);
    if (screen_create_window_buffers(pool.window, pool.count) != 0) {
        KEL_LOG_ERROR("kel: allocate_window_buffers() unable to create window buffers: %s", strerror(errno));
        return false;
    }
    kel::scope_exit drop_buffers([&] { screen_destroy_window_buffers(pool.window); });
    if (screen_get_window_property_pv(pool.window, SCREEN_PROPERTY_RENDER_BUFFERS, handles.get()) != 0) {
        KEL_LOG_ERROR(
            "kel: allocate_window_buffers() screen_get_window_property_pv SCREEN_PROPERTY_RENDER_BUFFERS: %s",
            strerror(errno));
        return false;
    }

    std::size_t filled = 0;
    while (filled < count &&
           init_video_buffer(pool.buffers[filled], static_cast<screen_buffer_t>(handles[filled]))) {
        ++filled;
    }
    handles.reset(nullptr);
    if (filled < count) return false;
    drop_buffers.dismiss();
    return true;
}

// A pixmap made on the way stays in the buffer, also when a later step fails.
bool make_pixmap_buffer(kel_buffer& buffer, screen_context_t screen) {
    const kel_video_format& format = buffer.pool->format.video;
    if (screen_create_pixmap(&buffer.pixmap, screen) != 0) {
        KEL_LOG_ERROR("kel: screen_pixmap_create failed: %s", strerror(errno));
        return false;
    }
    if (screen_set_pixmap_property_iv(buffer.pixmap, SCREEN_PROPERTY_USAGE, &format.usage) != 0) {
        KEL_LOG_ERROR("kel: screen_set_pixmap_property_iv(SCREEN_PROPERTY_USAGE) to %08X failed: %s",
                      static_cast<unsigned>(format.usage), strerror(errno));
        return false;
    }
    if (screen_set_pixmap_property_iv(buffer.pixmap, SCREEN_PROPERTY_FORMAT, &format.format) != 0) {
        KEL_LOG_ERROR("kel: screen_set_pixmap_property_iv(SCREEN_PROPERTY_FORMAT) failed: %s",
                      strerror(errno));
        return false;
    }
    const int size[] = {format.width, format.height};
    if (screen_set_pixmap_property_iv(buffer.pixmap, SCREEN_PROPERTY_BUFFER_SIZE, size) != 0) {
        KEL_LOG_ERROR("kel: screen_set_pixmap_property_iv(SCREEN_PROPERTY_BUFFER_SIZE) failed: %s.",
                      strerror(errno));
        return false;
    }
    if (screen_create_pixmap_buffer(buffer.pixmap) != 0) {
        KEL_LOG_ERROR("kel: screen_create_pixmap_buffer() failed: %s.", strerror(errno));
        return false;
    }
    void* handle = nullptr;
    if (screen_get_pixmap_property_pv(buffer.pixmap, SCREEN_PROPERTY_RENDER_BUFFERS, &handle) != 0) {
        KEL_LOG_ERROR(
            "kel: allocate_pixmap_buffers() screen_get_window_property_pv SCREEN_PROPERTY_RENDER_BUFFERS: %s",
            strerror(errno));
        return false;
    }
    return init_video_buffer(buffer, static_cast<screen_buffer_t>(handle));
}

bool allocate_pixmap_buffers(kel_buffer_pool& pool) {
    const screen_context_t screen = pool.context ? pool.context->screen_context : nullptr;
    for (int32_t i = 0; i < pool.count; ++i) {
        if (make_pixmap_buffer(pool.buffers[i], screen)) continue;
        kel::errno_keeper keep;
        for (int32_t made = 0; made <= i; ++made) {
            if (pool.buffers[made].pixmap) screen_destroy_pixmap(pool.buffers[made].pixmap);
        }
        return false;
    }
    return true;
}

// Makes the shared part of the pool and its storage; leaves neither behind when it fails.
bool allocate_video_buffers(kel_buffer_pool& pool) {
    const kel_video_format& format = pool.format.video;
    KEL_LOG_INFO("kel: allocate_video_buffers() of %d buffers of %d x %d pixels each", pool.count,
                 format.width, format.height);
    if (pool.count < 1 || format.width < 1 || format.height < 1) {
        KEL_LOG_ERROR("kel: allocate_video_buffers() invalid parameters.");
        return false;
    }
    if (!kel::set_up_pool(pool)) return false;
    kel::scope_exit tear_down([&] { kel::tear_down_pool(pool); });
    const bool allocated =
        pool.flags & KEL_POOL_WINDOW ? allocate_window_buffers(pool) : allocate_pixmap_buffers(pool);
    if (allocated) tear_down.dismiss();
    return allocated;
}

void describe(kel_buffer_pool& pool, kel_context* context, const kel_video_format& format, int32_t count) {
    pool.count = count;
    pool.context = context;
    pool.format.type = KEL_BUFFER_VIDEO;
    pool.format.video = format;
}

bool set(screen_window_t window, int property, int value) {
    return screen_set_window_property_iv(window, property, &value) == 0;
}

bool set(screen_window_t window, int property, int first, int second) {
    const int values[] = {first, second};
    return screen_set_window_property_iv(window, property, values) == 0;
}

// Behind everything, never touched, never blended: the pool's window is storage, not something to look at.
bool set_window_appearance(screen_window_t window) {
    if (!set(window, SCREEN_PROPERTY_ZORDER, -10000)) {
        KEL_LOG_ERROR("kel: screen_set_window_property_iv(SCREEN_PROPERTY_ZORDER)  failed: %s",
                      strerror(errno));
        return false;
    }
    if (!set(window, SCREEN_PROPERTY_SENSITIVITY, SCREEN_SENSITIVITY_NEVER)) {
        KEL_LOG_ERROR("kel: screen_set_window_property_iv(SCREEN_PROPERTY_SENSITIVITY) failed: %s",
                      strerror(errno));
        return false;
    }
    if (!set(window, SCREEN_PROPERTY_TRANSPARENCY, SCREEN_TRANSPARENCY_NONE)) {
        KEL_LOG_ERROR("kel: screen_set_window_property_iv(SCREEN_PROPERTY_TRANSPARENCY) failed: %s",
                      strerror(errno));
        return false;
    }
    return true;
}

// Devices that capture into the buffers need rows that are a multiple of this many pixels.
constexpr uint32_t capture_width_multiple = 32;

int buffer_width(const kel_video_format& format) {
    if (!(format.usage & SCREEN_USAGE_CAPTURE)) return format.width;
    return static_cast<int>(kel::round_up(static_cast<uint32_t>(format.width), capture_width_multiple));
}

bool set_window_format(screen_window_t window, const kel_video_format& format) {
    if (!set(window, SCREEN_PROPERTY_USAGE, format.usage)) {
        KEL_LOG_ERROR("kel: screen_set_window_property_iv(SCREEN_PROPERTY_USAGE) to %08X failed: %s",
                      static_cast<unsigned>(format.usage), strerror(errno));
        return false;
    }
    KEL_LOG_TRACE("kel: format 0x%08x", static_cast<unsigned>(format.format));
    if (!set(window, SCREEN_PROPERTY_FORMAT, format.format)) {
        KEL_LOG_ERROR("kel: screen_set_window_property_iv(SCREEN_PROPERTY_FORMAT) failed: %s",
                      strerror(errno));
        return false;
    }
    if (!set(window, SCREEN_PROPERTY_BUFFER_SIZE, buffer_width(format), format.height)) {
        KEL_LOG_ERROR("kel: screen_set_window_property_iv(SCREEN_PROPERTY_BUFFER_SIZE) failed: %s",
                      strerror(errno));
        return false;
    }
    if (!set(window, SCREEN_PROPERTY_SOURCE_SIZE, format.width, format.height)) {
        KEL_LOG_ERROR("kel: screen_set_window_property_iv(SCREEN_PROPERTY_SOURCE_SIZE) failed: %s",
                      strerror(errno));
        return false;
    }
    return true;
}

// Where the window would be shown does not matter to its buffers, so a refusal is only reported.
void place_window(screen_window_t window, const kel_video_format& format) {
    if (!set(window, SCREEN_PROPERTY_SIZE, format.width, format.height)) {
        KEL_LOG_WARNING("kel: screen_set_window_property_iv(SCREEN_PROPERTY_SIZE): %s", strerror(errno));
    }
    const int origin[] = {0, 0};
    if (const int error = screen_set_window_property_iv(window, SCREEN_PROPERTY_POSITION, origin)) {
        KEL_LOG_WARNING("kel: screen_set_window_property_iv(SCREEN_PROPERTY_POSITION) (err = %d)", error);
    }
}

}  // namespace

void kel::destroy_video_storage(kel_buffer_pool& pool) {
    if ((pool.flags & KEL_POOL_WINDOW) && pool.window) {
        screen_destroy_window_buffers(pool.window);
        screen_destroy_window(pool.window);
        return;
    }
    for (int32_t i = 0; i < pool.count; ++i) {
        const screen_pixmap_t pixmap = pool.buffers[i].pixmap;
        if (!pixmap) continue;
        screen_destroy_pixmap_buffer(pixmap);
        screen_destroy_pixmap(pixmap);
    }
}

kel_buffer_pool* kel_create_pixmap_buffer_pool(kel_context* context, const kel_video_format* format,
                                               int32_t count) {
    auto pool = kel::make_record<kel_buffer_pool>();
    if (!pool) {
        KEL_LOG_ERROR("kel: Unable to allocate memory for video buffer pool handle.");
        return nullptr;
    }
    describe(*pool, context, *format, count);
    if (!allocate_video_buffers(*pool)) return nullptr;
    return pool.release();
}

kel_buffer_pool* kel_create_window_buffer_pool(kel_context* context, const kel_video_format* format,
                                               int32_t type, int32_t count) {
    const screen_context_t screen = context ? context->screen_context : nullptr;
    screen_window_t window = nullptr;
    if (const int error = screen_create_window_type(&window, screen, type)) {
        KEL_LOG_ERROR("kel: screen_create_window failed (err = %d, errno = %d)", error, errno);
        return nullptr;
    }
    kel::scope_exit drop_window([&] { screen_destroy_window(window); });
    if (!set_window_appearance(window) || !set_window_format(window, *format)) return nullptr;
    place_window(window, *format);

    auto pool = kel::make_record<kel_buffer_pool>();
    if (!pool) {
        KEL_LOG_ERROR("kel: Unable to allocate memory for video buffer pool handle.");
        return nullptr;
    }
    describe(*pool, context, *format, count);
    pool->window = window;
    pool->flags = KEL_POOL_WINDOW;
    if (!allocate_video_buffers(*pool)) return nullptr;
    drop_window.dismiss();
    return pool.release();
}

kel_buffer* kel_create_pixmap_buffer(kel_context* context, const kel_video_format* format) {
    auto pool = kel::make_record<kel_buffer_pool>();
    if (!pool) {
        KEL_LOG_ERROR("kel: kel_create_pixmap_buffer() Unable to allocate memory for video buffer handle.");
        return nullptr;
    }
    describe(*pool, context, *format, 1);
    if (!allocate_video_buffers(*pool)) return nullptr;
    kel_buffer* buffer = kel_acquire_buffer(pool.release());
    kel_destroy_buffer_pool_when_unused(buffer->pool);
    return buffer;
}
