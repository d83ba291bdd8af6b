/* Processor data cache maintenance over address ranges. */
#ifndef SYS_CACHE_H
#define SYS_CACHE_H

#include <stddef.h>
#include <stdint.h>

#include <platform_export.h>

#ifdef __cplusplus
extern "C" {
#endif

#define NOFD (-1)

/* Bits of cache_ctrl.flags: the operation has nothing to do on this machine. */
#define CACHE_FLAG_SNOOPED_FLUSH 0x20000000u
#define CACHE_FLAG_SNOOPED_INVAL 0x10000000u

/*
 * A cache as cache_init found it. The routines act on every line that covers [vaddr, vaddr + len); they
 * return 0, or an errno value.
 */
struct cache_ctrl {
    int fd;             /* the cache library's descriptor; NOFD while it has none */
    unsigned flags;     /* CACHE_FLAG_* */
    unsigned line_size; /* bytes, a power of two */
    int (*flush)(struct cache_ctrl* cache, void* vaddr, uint64_t paddr, size_t len);
    int (*invalidate)(struct cache_ctrl* cache, void* vaddr, uint64_t paddr, size_t len);
};

/*
 * Fills *cache for this machine. `flags` must be 0 and `library` null (the platform's own). Returns 0, or -1
 * with errno EINVAL. Thread-safety: different records may be used from any thread.
 */
PLATFORM_API int cache_init(int flags, struct cache_ctrl* cache, const char* library);

/* Releases what cache_init set up. Returns 0, or -1 with errno EINVAL for a record that is not set up. */
PLATFORM_API int cache_fini(struct cache_ctrl* cache);

/* Writes the range back to memory; nothing to do when the flag says so. */
#define CACHE_FLUSH(cache, vaddr, paddr, len) \
    (((cache)->flags & CACHE_FLAG_SNOOPED_FLUSH) ? 0 : (cache)->flush((cache), (vaddr), (paddr), (len)))

/* Makes the next read of the range come from memory; nothing to do when the flag says so. */
#define CACHE_INVAL(cache, vaddr, paddr, len) \
    (((cache)->flags & CACHE_FLAG_SNOOPED_INVAL) ? 0 : (cache)->invalidate((cache), (vaddr), (paddr), (len)))

#ifdef __cplusplus
}
#endif
#endif
