// Cache maintenance by line, with the instructions that a process may use. Memory that only processors touch
// is coherent on this machine, but the routines do the work all the same: what uses them is tested for real.
#include <sys/cache.h>

#include <cerrno>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace {

// The half-open range of a request, or false when it wraps around or has no start.
bool range_of(void* vaddr, std::size_t len, uintptr_t& begin, uintptr_t& end) {
    begin = reinterpret_cast<uintptr_t>(vaddr);
    return begin != 0 && !__builtin_add_overflow(begin, len, &end);
}

#if defined(__x86_64__) || defined(__i386__)

struct processor {
    unsigned line_size = 64;
    bool has_clflushopt = false;
    bool has_clwb = false;
};

processor inspect_processor() {
    processor found;
    unsigned a, b, c, d;
    if (__get_cpuid(1, &a, &b, &c, &d) && (b >> 8 & 0xff) != 0) found.line_size = (b >> 8 & 0xff) * 8;
    if (__get_cpuid_count(7, 0, &a, &b, &c, &d)) {
        found.has_clflushopt = (b & bit_CLFLUSHOPT) != 0;
        found.has_clwb = (b & bit_CLWB) != 0;
    }
    return found;
}

using line_operation = void (*)(uintptr_t line, uintptr_t end, unsigned line_size);

__attribute__((target("clwb"))) void write_back(uintptr_t line, uintptr_t end, unsigned line_size) {
    for (; line < end; line += line_size) _mm_clwb(reinterpret_cast<void*>(line));
}

__attribute__((target("clflushopt"))) void evict_weakly_ordered(uintptr_t line, uintptr_t end,
                                                                unsigned line_size) {
    for (; line < end; line += line_size) _mm_clflushopt(reinterpret_cast<void*>(line));
}

void evict(uintptr_t line, uintptr_t end, unsigned line_size) {
    for (; line < end; line += line_size) _mm_clflush(reinterpret_cast<void*>(line));
}

int maintain(line_operation operation, unsigned line_size, void* vaddr, std::size_t len) {
    uintptr_t begin, end;
    if (!range_of(vaddr, len, begin, end)) return EINVAL;
    if (len == 0) return 0;
    _mm_mfence();  // earlier writes are in the cache before their lines are worked on
    operation(begin & ~uintptr_t{line_size - 1}, end, line_size);
    _mm_mfence();  // the work is done before anything later is read
    return 0;
}

unsigned cache_line_size() {
    return inspect_processor().line_size;
}

int flush_range(cache_ctrl* cache, void* vaddr, uint64_t, std::size_t len) {
    static const processor found = inspect_processor();
    const line_operation operation = found.has_clwb         ? write_back
                                     : found.has_clflushopt ? evict_weakly_ordered
                                                            : evict;
    return maintain(operation, cache->line_size, vaddr, len);
}

// A process cannot drop dirty lines unwritten; evicting them makes the next read come from memory.
int invalidate_range(cache_ctrl* cache, void* vaddr, uint64_t, std::size_t len) {
    static const processor found = inspect_processor();
    return maintain(found.has_clflushopt ? evict_weakly_ordered : evict, cache->line_size, vaddr, len);
}

#else

// The kernel's own cache flush: cleans the range to the point where all of the machine sees it.
unsigned cache_line_size() {
    return 32;
}

int flush_range(cache_ctrl*, void* vaddr, uint64_t, std::size_t len) {
    uintptr_t begin, end;
    if (!range_of(vaddr, len, begin, end)) return EINVAL;
    __sync_synchronize();
    __builtin___clear_cache(reinterpret_cast<char*>(begin), reinterpret_cast<char*>(end));
    __sync_synchronize();
    return 0;
}

int invalidate_range(cache_ctrl* cache, void* vaddr, uint64_t paddr, std::size_t len) {
    return flush_range(cache, vaddr, paddr, len);
}

#endif

}  // namespace

int cache_init(int flags, cache_ctrl* cache, const char* library) {
    if (flags != 0 || !cache || library) {
        errno = EINVAL;
        return -1;
    }
    *cache = cache_ctrl{NOFD, 0, cache_line_size(), flush_range, invalidate_range};
    return 0;
}

int cache_fini(cache_ctrl* cache) {
    if (!cache || cache->flush != flush_range) {
        errno = EINVAL;
        return -1;
    }
    *cache = cache_ctrl{NOFD, 0, 0, nullptr, nullptr};
    return 0;
}
