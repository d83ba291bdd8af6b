// Processor cache maintenance over whole video buffers.
#include <kel.h>

#include <cerrno>

#include <sys/cache.h>

namespace {

// The platform works by physical address, which only video buffers have.
bool can_be_maintained(const kel_buffer& buffer) {
    return kel_get_buffer_format(&buffer)->type == KEL_BUFFER_VIDEO && buffer.paddr != 0;
}

}  // namespace

int kel_invalidate_cache(const kel_buffer* buffer) {
    if (!buffer || !can_be_maintained(*buffer)) return EINVAL;
    CACHE_INVAL(&kel_cache_ctrl, buffer->ptr, buffer->paddr, buffer->size);
    return 0;
}

int kel_flush_cache(const kel_buffer* buffer) {
    if (!buffer || !can_be_maintained(*buffer)) return EINVAL;
    CACHE_FLUSH(&kel_cache_ctrl, buffer->ptr, buffer->paddr, buffer->size);
    return 0;
}
