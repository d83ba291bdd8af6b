/*
 * libkel: the core of a media processing service.
 *
 * Conventions, stated once:
 *  - Null handles are accepted wherever nothing else is said and give the neutral result.
 *  - kel_create_* and kel_acquire_* give the caller something to destroy or release. kel_destroy_* of contexts,
 *    pools, converters, mixers, textures and chains takes the address of the caller's handle and sets it to null.
 *  - A function whose name ends in _unlocked expects the caller to hold the object's lock and gives it back.
 *  - Results: int results are 0 or an errno value (22 EINVAL, 12 ENOMEM, ...) unless stated otherwise; creation
 *    gives a handle or null; queue operations give 1 or 0.
 *  - Time-outs are signed milliseconds; -1 waits without limit; other negative values have no meaning.
 *  - Presentation times (pts) are microseconds. Audio counts called "samples" are frames: one value per channel.
 *  - Failures are logged through AoLog: level 2 errors, 3 non-fatal problems, 5 and 6 information, 7 tracing.
 *  - "Thread-safety: any thread" means concurrent calls are fine; "one thread at a time" means the client
 *    serialises the calls on one object; different objects are always independent.
 */
#ifndef KEL_H
#define KEL_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <time.h>

#ifndef EGL_NO_PLATFORM_SPECIFIC_TYPES
#define EGL_NO_PLATFORM_SPECIFIC_TYPES /* EGL's native pixmaps and windows are Screen's handles */
#endif
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>

#include <img/img.h>
#include <mm/mmf.h>
#include <screen/screen.h>
#include <sys/cache.h>

/* Marks what the library exports. */
#if defined(__GNUC__)
#define KEL_API __attribute__((visibility("default")))
#else
#define KEL_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------------------------------------
 * Library and context
 */

typedef struct kel_gles_state kel_gles_state; /* opaque; see "GLES environment and textures" */
typedef struct kel_text kel_text;             /* opaque; see "Fonts and text" */

/* One connection to the compositor and what hangs on it. Fields are for reading; the library writes them. */
typedef struct kel_context {
    screen_context_t screen_context; /* made and destroyed with the context */
    kel_gles_state* gles;            /* null until kel_gles_init */
    kel_text* text;                  /* null until kel_text_init */
    int32_t max_image_width;         /* pixels, 2048; a loaded image is at most half of it wide */
    int32_t max_image_height;        /* pixels, 2048; a loaded image is at most half of it high */
} kel_context;

#if defined(__cplusplus) && UINTPTR_MAX == UINT32_MAX
static_assert(offsetof(kel_context, screen_context) == 0 && offsetof(kel_context, gles) == 4 &&
                  offsetof(kel_context, text) == 8 && offsetof(kel_context, max_image_width) == 12 &&
                  offsetof(kel_context, max_image_height) == 16 && sizeof(kel_context) == 20,
              "layout");
#endif

/* The cache record that the first kel_init prepares and cache maintenance uses. Nobody else writes it. */
extern KEL_API struct cache_ctrl kel_cache_ctrl;

/*
 * Counted initialisation of the process: the first call readies kel_cache_ctrl and obtains I/O privileges.
 * Returns 0, or -1 (nothing is logged, the count is unchanged and the next call tries again).
 * Thread-safety: not concurrent with kel_fini, with itself or with cache maintenance.
 */
KEL_API int kel_init(void);

/*
 * Takes one kel_init back; the last one releases kel_cache_ctrl. Ignored when the count is 0.
 * Thread-safety: as kel_init.
 */
KEL_API void kel_fini(void);

/*
 * A new context, or null (logged at level 2): out of memory, or Screen refuses a connection (errno as Screen
 * left it). The caller destroys it with kel_destroy_context after everything made against it.
 * Thread-safety: any thread.
 */
KEL_API kel_context* kel_create_context(void);

/*
 * Ends the context's text state, then its GLES state, then its Screen connection, and sets *context to null.
 * Nothing when context or *context is null. Thread-safety: while no thread uses the context or anything made against it.
 */
KEL_API void kel_destroy_context(kel_context** context);

/* ------------------------------------------------------------------------------------------------------------
 * Audio formats and timing
 */

/* Sample type codes: a bit field of sign, fraction bits / 8, byte order and bytes per value. */
#define KEL_AUDIO_TYPE_SIGNED 0x80000000u     /* set: two's complement; clear: offset by half the range */
#define KEL_AUDIO_TYPE_BIG_ENDIAN 0x00004000u /* set: big-endian; clear: little-endian */
#define KEL_AUDIO_TYPE_BYTES_MASK 0x00000070u /* bytes per value, shifted left by 4 */

#define KEL_AUDIO_TYPE_U8 0x00008010u       /* "U8", silence 0x80 */
#define KEL_AUDIO_TYPE_S8 0x80008010u       /* "S8" */
#define KEL_AUDIO_TYPE_U16LE 0x00008020u    /* "U16LE", silence 0x8000 */
#define KEL_AUDIO_TYPE_S16LE 0x80008020u    /* "S16LE" */
#define KEL_AUDIO_TYPE_U16BE 0x0000C020u    /* "U16BE" */
#define KEL_AUDIO_TYPE_S16BE 0x8000C020u    /* "S16BE" */
#define KEL_AUDIO_TYPE_S24_8LE 0x80018040u  /* "S24.8LE": 32 bits, a 16-bit value v is held as v * 256 */
#define KEL_AUDIO_TYPE_S24_8BE 0x8001C040u  /* "S24.8BE": can be named, not converted */
#define KEL_AUDIO_TYPE_S16_16LE 0x80028040u /* parameter streams of audio filters: 1.0 is 65536 */

/* A PCM format; a plain value, compared byte by byte. Channels are interleaved. */
typedef struct kel_audio_format {
    int32_t rate;     /* frames per second */
    int32_t channels; /* values per frame */
    uint32_t type;    /* KEL_AUDIO_TYPE_* */
} kel_audio_format;

/* Bytes of one frame: channels times bytes per value. Thread-safety: any thread. */
KEL_API int32_t kel_get_audio_sample_size(const kel_audio_format* format);

/* Container bits of one channel value: 8, 16 or 32 (S24.8 gives 32). Thread-safety: any thread. */
KEL_API int32_t kel_get_audio_format_bits(const kel_audio_format* format);

/*
 * Name of the sample type ("S16LE"), a static string; "unknown" for every code without a name.
 * Thread-safety: any thread.
 */
KEL_API const char* kel_get_audio_format_type_name(const kel_audio_format* format);

/*
 * nsamples frames at `rate` (Hz; 0 gives 0) in microseconds, truncated toward zero; the product wraps at 64 bits.
 * Keep a running count of frames and derive the pts from it: a round trip may lose a frame.
 * Thread-safety: any thread.
 */
KEL_API int64_t kel_get_audio_pts_from_nsamples(int32_t rate, int64_t nsamples);

/* pts microseconds at `rate` (Hz) in frames, truncated toward zero. Thread-safety: any thread. */
KEL_API int64_t kel_get_audio_nsamples_from_pts(int32_t rate, int64_t pts);

/* 0 when all fields are equal, else 1. Thread-safety: any thread. */
KEL_API int32_t kel_audio_formats_differ(const kel_audio_format* a, const kel_audio_format* b);

/* ------------------------------------------------------------------------------------------------------------
 * Buffer pools and buffers
 */

/* kel_buffer_format.type */
#define KEL_BUFFER_VIDEO 1u /* `video` applies */
#define KEL_BUFFER_AUDIO 2u /* `audio` and `nsamples` apply */

/* kel_buffer_pool.flags */
#define KEL_POOL_WINDOW 1u                 /* the buffers are the render buffers of one Screen window */
#define KEL_POOL_MARKED_FOR_DESTRUCTION 2u /* acquisitions are refused; the last release destroys the pool */

/* kel_buffer.flags */
#define KEL_BUFFER_PHYS_CONTIGUOUS 1u /* Screen reports the memory physically contiguous */

/* The format of a video pool. */
typedef struct kel_video_format {
    int32_t format; /* SCREEN_FORMAT_* */
    int32_t usage;  /* SCREEN_USAGE_* bits */
    int32_t width;  /* pixels */
    int32_t height; /* pixels */
} kel_video_format;

/* A pool's format: `type` says which member of the union applies. */
typedef struct kel_buffer_format {
    uint32_t type; /* KEL_BUFFER_VIDEO or KEL_BUFFER_AUDIO */
    union {
        kel_video_format video;     /* of a video pool */
        __extension__ struct {      /* C++ has no unnamed structs of its own */
            kel_audio_format audio; /* of an audio pool */
            uint32_t nsamples;      /* of an audio pool: frames that one buffer holds */
        };
    };
} kel_buffer_format;

typedef struct kel_buffer_pool kel_buffer_pool; /* see below */

/* One buffer, inside its pool's array; it never moves to another pool. */
typedef struct kel_buffer {
    kel_buffer_pool* pool;         /* the owning pool */
    void* ptr;                     /* the data, as the processor sees it */
    uint32_t size;                 /* bytes of data */
    uint32_t flags;                /* KEL_BUFFER_* flags; video only */
    int32_t refcount;              /* 0 free, 1 or more acquired; guarded by the pool's mutex */
    screen_pixmap_t pixmap;        /* pixmap pools only, otherwise null */
    screen_buffer_t screen_buffer; /* video only */
    int32_t stride;                /* bytes from one row to the next; video only */
    uint64_t paddr;                /* physical address, never 0; video only (audio: 0) */
} kel_buffer;

/* A fixed set of equally sized buffers. Clients read the fields; only the library writes them. */
struct kel_buffer_pool {
    int32_t count;            /* buffers, fixed at creation */
    int32_t in_use;           /* buffers whose refcount is not 0 */
    kel_buffer* buffers;      /* `count` records in index order */
    uint32_t flags;           /* KEL_POOL_* */
    int32_t waiters;          /* threads blocked in kel_acquire_buffer_wait */
    kel_context* context;     /* the context that it was made against; not owned */
    pthread_mutex_t mutex;    /* guards in_use, flags, waiters and every refcount */
    pthread_cond_t cond;      /* signalled once for each buffer that returns while somebody waits */
    kel_buffer_format format; /* fixed at creation */
    screen_window_t window;   /* the window of a window pool, otherwise null */
    uint64_t* free_words;     /* private: one bit per free buffer, lowest index first */
};

#if defined(__cplusplus) && UINTPTR_MAX == UINT32_MAX
static_assert(offsetof(kel_buffer_format, type) == 0 && offsetof(kel_buffer_format, video) == 4 &&
                  offsetof(kel_buffer_format, audio) == 4 && offsetof(kel_buffer_format, nsamples) == 16 &&
                  sizeof(kel_buffer_format) == 20,
              "layout");
static_assert(offsetof(kel_buffer, pool) == 0 && offsetof(kel_buffer, ptr) == 4 &&
                  offsetof(kel_buffer, size) == 8 && offsetof(kel_buffer, flags) == 12 &&
                  offsetof(kel_buffer, refcount) == 16 && offsetof(kel_buffer, pixmap) == 20 &&
                  offsetof(kel_buffer, screen_buffer) == 24 && offsetof(kel_buffer, stride) == 28 &&
                  offsetof(kel_buffer, paddr) == 32 && sizeof(kel_buffer) == 40,
              "layout");
static_assert(offsetof(kel_buffer_pool, count) == 0 && offsetof(kel_buffer_pool, in_use) == 4 &&
                  offsetof(kel_buffer_pool, buffers) == 8 && offsetof(kel_buffer_pool, flags) == 12 &&
                  offsetof(kel_buffer_pool, waiters) == 16 && offsetof(kel_buffer_pool, context) == 20 &&
                  offsetof(kel_buffer_pool, mutex) == 24 &&
                  offsetof(kel_buffer_pool, cond) == 24 + sizeof(pthread_mutex_t) &&
                  offsetof(kel_buffer_pool, format) ==
                      offsetof(kel_buffer_pool, cond) + sizeof(pthread_cond_t) &&
                  offsetof(kel_buffer_pool, window) == offsetof(kel_buffer_pool, format) + 20,
              "layout");
#endif

/*
 * A pool of `count` audio buffers of `nsamples` frames each: zero-filled memory, slots a multiple of 16 bytes
 * apart. `format` is copied; the context is kept, not owned. Null (logged at level 2) when memory, mutex or
 * condition variable cannot be had, or count or size is not positive or overflows. The caller destroys it with
 * kel_destroy_buffer_pool or kel_destroy_buffer_pool_when_unused. Thread-safety: any thread.
 */
KEL_API kel_buffer_pool* kel_create_audio_buffer_pool(kel_context* context, const kel_audio_format* format,
                                                      uint32_t nsamples, int32_t count);

/*
 * A pool of `count` Screen pixmaps of the given format, each with its one buffer. Null when anything fails
 * (logged at level 2); then no pixmap is left behind. Thread-safety: any thread.
 */
KEL_API kel_buffer_pool* kel_create_pixmap_buffer_pool(kel_context* context, const kel_video_format* format,
                                                       int32_t count);

/*
 * A pool of the `count` render buffers of one new Screen window of the given type (SCREEN_*_WINDOW). With usage
 * bit 0x100 the buffer width is rounded up to a multiple of 32. Null when anything fails (logged at level 2);
 * then no window is left behind. Thread-safety: any thread.
 */
KEL_API kel_buffer_pool* kel_create_window_buffer_pool(kel_context* context, const kel_video_format* format,
                                                       int32_t type, int32_t count);

/*
 * One acquired pixmap buffer (refcount 1) in a pool of its own, which the last release destroys. Null when
 * anything fails (logged at level 2). Thread-safety: any thread.
 */
KEL_API kel_buffer* kel_create_pixmap_buffer(kel_context* context, const kel_video_format* format);

/*
 * The free buffer with the lowest index, with refcount 1, or null: null pool, none free, or a pool marked for
 * destruction (logged at level 2). Never blocks for a buffer. The caller gives it back with kel_release_buffer.
 * Thread-safety: any thread.
 */
KEL_API kel_buffer* kel_acquire_buffer(kel_buffer_pool* pool);

/*
 * As kel_acquire_buffer, but waits up to timeout_ms (-1: without limit) for a buffer. A time-out is silent; any
 * other wait error is logged at level 2. The pool must not be destroyed or marked while somebody waits.
 * Thread-safety: any thread.
 */
KEL_API kel_buffer* kel_acquire_buffer_wait(kel_buffer_pool* pool, int32_t timeout_ms);

/*
 * Adds a holder to an acquired buffer. Returns 0 (also for null), or 22 for a free buffer (logged at level 2).
 * Thread-safety: any thread.
 */
KEL_API int kel_ref_buffer(kel_buffer* buffer);

/*
 * Takes one holder away; the last one returns the buffer to its pool, wakes one waiter and destroys a pool that
 * is marked and now unused. Returns 0, or 22 for null or a free buffer (logged at level 2).
 * Thread-safety: any thread.
 */
KEL_API int kel_release_buffer(kel_buffer* buffer);

/* kel_release_buffer for a caller that holds the pool's mutex; the mutex is unlocked on return. */
KEL_API int kel_release_buffer_unlocked(kel_buffer* buffer);

/*
 * Destroys the pool at once, with its Screen objects; buffers still acquired become invalid. Sets *pool to null.
 * Thread-safety: while no other thread uses the pool.
 */
KEL_API void kel_destroy_buffer_pool(kel_buffer_pool** pool);

/*
 * Refuses further acquisitions and destroys the pool when no buffer is out: now, or at the last release (which
 * logs at level 6). Thread-safety: any thread; nobody may be waiting for a buffer.
 */
KEL_API void kel_destroy_buffer_pool_when_unused(kel_buffer_pool* pool);

/* The format record of the buffer's pool, valid while the pool lives; null for null. Thread-safety: any thread. */
KEL_API const kel_buffer_format* kel_get_buffer_format(const kel_buffer* buffer);

/* ------------------------------------------------------------------------------------------------------------
 * Points and rectangles, for text and blits
 */

/* Whole pixels; y grows downwards. */
typedef struct kel_point {
    int32_t x; /* from the left */
    int32_t y; /* from the top */
} kel_point;

/* Whole pixels; y grows downwards. */
typedef struct kel_rect {
    int32_t x;      /* left edge */
    int32_t y;      /* top edge */
    int32_t width;  /* to the right */
    int32_t height; /* downwards */
} kel_rect;

/* ------------------------------------------------------------------------------------------------------------
 * Slices
 */

/*
 * A view of one buffer: a plain value, copied freely, that holds no reference. Which member of `spec` applies
 * follows from the buffer's pool.
 */
typedef struct kel_slice {
    kel_buffer* buffer; /* null for an empty slice */
    uint64_t pts;       /* microseconds */
    union {
        struct {
            uint32_t nsamples;   /* frames in the slice */
            void* samples_start; /* first frame, inside the buffer's data */
        } audio;                 /* of an audio pool's buffer */
        struct {
            int32_t x;            /* left edge in pixels */
            int32_t y;            /* top edge in pixels */
            int32_t width;        /* pixels */
            int32_t height;       /* pixels */
            int32_t frame_width;  /* equal to width */
            int32_t frame_height; /* equal to height */
        } video;                  /* of a video pool's buffer */
    } spec;                       /* what part of the buffer */
} kel_slice;

#if defined(__cplusplus) && UINTPTR_MAX == UINT32_MAX
static_assert(offsetof(kel_slice, buffer) == 0 && offsetof(kel_slice, pts) == 8 &&
                  offsetof(kel_slice, spec) == 16 && offsetof(kel_slice, spec.audio.samples_start) == 20 &&
                  offsetof(kel_slice, spec.video.frame_height) == 36 && sizeof(kel_slice) == 40,
              "layout");
#endif

/*
 * Makes *slice view the whole buffer with pts 0; a null buffer gives an all-zero slice.
 * Thread-safety: any thread, while the buffer is held.
 */
KEL_API void kel_init_buffer_slice(kel_slice* slice, kel_buffer* buffer);

/* The same slice by value. */
KEL_API kel_slice kel_slice_for_buffer(kel_buffer* buffer);

/* The same slice on the heap, freed by the caller with free(); null when out of memory. */
KEL_API kel_slice* kel_create_slice_for_buffer(kel_buffer* buffer);

/*
 * The pool's video format with the slice's width and height; all zeros for a slice without a buffer. For video
 * slices only: the pool's type is not looked at. Thread-safety: any thread, while the buffer is held.
 */
KEL_API kel_video_format kel_get_video_slice_format(const kel_slice* slice);

/* ------------------------------------------------------------------------------------------------------------
 * Cache maintenance
 */

/*
 * Before the processor reads what a device wrote, or before a device reads what the processor wrote: acts on the
 * whole buffer. Returns 0, or 22 (nothing was done) for a buffer that is not video or has no physical address.
 * Thread-safety: any thread between the first kel_init and the last kel_fini, while the buffer is held.
 */
KEL_API int kel_invalidate_cache(const kel_buffer* buffer);
KEL_API int kel_flush_cache(const kel_buffer* buffer);

/* ------------------------------------------------------------------------------------------------------------
 * Blocking queue
 */

/*
 * A first-in, first-out queue of pointers. It owns nothing that the pointers name; what happens to items that
 * are thrown away is the node destructor's matter. Any number of producers and consumers.
 */
typedef struct kel_queue kel_queue;

/* Receives the data of each item that is thrown away, under the queue's lock: it must not use that queue. */
typedef void (*kel_queue_node_destructor)(void* data);

/*
 * An empty open queue that holds at most `limit` items (0: no limit), or null: out of memory (silent), or a lock
 * cannot be made (logged at level 2). Thread-safety: any thread.
 */
KEL_API kel_queue* kel_queue_create_with_limit(uint32_t limit);
KEL_API kel_queue* kel_queue_create(void); /* no limit */

/* Throws the items away and frees the queue. Thread-safety: while no other thread uses the queue. */
KEL_API void kel_queue_destroy(kel_queue* queue);

/*
 * Puts data (null is as good as any) at the end; waits while the queue is full, each single wait for at most
 * timeout_ms. Returns 1, or 0: closed, time-out, wait error or out of memory (silent; the caller keeps data).
 * Thread-safety: any thread.
 */
KEL_API int kel_queue_enqueue_with_timeout(kel_queue* queue, void* data, int32_t timeout_ms);
KEL_API int kel_queue_enqueue(kel_queue* queue, void* data); /* waits without limit */

/*
 * Takes the oldest item into *data_out; waits while the queue is empty and open, each single wait for at most
 * timeout_ms. Returns 1, or 0 with *data_out untouched: empty and closed, time-out or wait error.
 * Thread-safety: any thread.
 */
KEL_API int kel_queue_dequeue_with_timeout(kel_queue* queue, void** data_out, int32_t timeout_ms);
KEL_API int kel_queue_dequeue(kel_queue* queue, void** data_out); /* waits without limit */

/* Throws all items away, oldest first. Returns 1; 0 for null. Thread-safety: any thread. */
KEL_API int kel_queue_clear(kel_queue* queue);

/* kel_queue_clear, and opens a closed queue again. Returns 1; 0 for null. Thread-safety: any thread. */
KEL_API int kel_queue_reset(kel_queue* queue);

/*
 * Wakes everybody who waits and refuses further items; those inside can still be taken. Returns 1; 0 for null.
 * Thread-safety: any thread.
 */
KEL_API int kel_queue_close(kel_queue* queue);

/* Read without the lock: the value may be old at once. Thread-safety: any thread. */
KEL_API int kel_queue_is_closed(kel_queue* queue);      /* 1 or 0; the queue must not be null */
KEL_API uint32_t kel_queue_get_size(kel_queue* queue);  /* items; all bits set for null */
KEL_API uint32_t kel_queue_get_limit(kel_queue* queue); /* all bits set for null */
KEL_API int kel_queue_set_node_destructor(kel_queue* queue,
                                          kel_queue_node_destructor destructor); /* 1; 0 for null */
KEL_API kel_queue_node_destructor kel_queue_get_node_destructor(kel_queue* queue);

/* *out = CLOCK_REALTIME now plus ms milliseconds; returns out. Thread-safety: any thread. */
KEL_API struct timespec* ms_to_abs_timespec(struct timespec* out, int32_t ms);

/* ------------------------------------------------------------------------------------------------------------
 * Audio conversion steps
 */

/*
 * One link of a conversion chain. Each step changes one field of the format: the type, the rate or the channel
 * count. Records made by a factory continue with the kernel's own state.
 */
typedef struct kel_audio_step kel_audio_step;

/*
 * Does the work of a step. On entry *input_frames is what the input offers, *output_frames the room at the output,
 * *format the input's format; on return they are the frames consumed, the frames written and the output's format.
 * Input and output never overlap. Never more is consumed than offered, nor written than there is room.
 * Thread-safety: one thread at a time per step.
 */
typedef void (*kel_audio_step_kernel)(kel_audio_step* step, const void* input, void* output,
                                      int32_t* input_frames, int32_t* output_frames,
                                      kel_audio_format* format);

/* A new step between two formats, with kernel and release set, or null with errno: EINVAL, ENOMEM. */
typedef kel_audio_step* (*kel_audio_step_create)(const kel_audio_format* from, const kel_audio_format* to);

/* Frees a step. */
typedef void (*kel_audio_step_release)(kel_audio_step* step);

/* What every step begins with. */
struct kel_audio_step {
    kel_audio_step* next;           /* null at the end of the chain */
    kel_audio_step_kernel kernel;   /* does the work */
    kel_audio_step_release release; /* frees the record */
};

/* Applies when the current type is from_type. */
typedef struct kel_type_conversion_step {
    kel_audio_step_kernel kernel; /* null in the table's last row */
    uint32_t from_type;           /* KEL_AUDIO_TYPE_* */
    uint32_t to_type;             /* KEL_AUDIO_TYPE_* */
    kel_audio_step_create create; /* null: a plain record */
} kel_type_conversion_step;

/*
 * Applies to a type with (type ^ type_value) & type_mask == 0 when rate * multiplier / divisor is the target rate;
 * with a multiplier and a divisor of 0 for any target rate.
 */
typedef struct kel_rate_conversion_step {
    kel_audio_step_kernel kernel; /* null in the table's last row */
    int32_t multiplier;           /* 0: any target rate */
    int32_t divisor;              /* 0: any target rate */
    uint32_t type_value;          /* KEL_AUDIO_TYPE_* bits that the type must have */
    uint32_t type_mask;           /* bits that are looked at */
    kel_audio_step_create create; /* null: a plain record */
} kel_rate_conversion_step;

/* Applies to a type with (type ^ type_value) & type_mask == 0 between the two channel counts. */
typedef struct kel_channel_conversion_step {
    kel_audio_step_kernel kernel; /* null in the table's last row */
    int32_t from_channels;        /* values per frame before */
    int32_t to_channels;          /* values per frame after */
    uint32_t type_value;          /* KEL_AUDIO_TYPE_* bits that the type must have */
    uint32_t type_mask;           /* bits that are looked at */
    kel_audio_step_create create; /* null: a plain record */
} kel_channel_conversion_step;

/* The steps that exist, in the order in which they are tried; each table ends with a row whose kernel is null. */
extern KEL_API const kel_type_conversion_step kel_type_conversion_steps_c[15];
extern KEL_API const kel_rate_conversion_step kel_rate_conversion_steps_c[10];
extern KEL_API const kel_channel_conversion_step kel_channel_conversion_steps_c[7];

/* ------------------------------------------------------------------------------------------------------------
 * Audio converter
 */

/* Turns PCM of one format into another by the shortest chain of steps. */
typedef struct kel_audio_converter kel_audio_converter;

/* One block to convert: kel_init_audio_conversion fills it, the limits may be set then, the results are read. */
typedef struct kel_audio_conversion {
    const void* input;       /* whole frames of the converter's first format */
    int32_t input_bytes;     /* bytes available at input */
    int32_t input_limit;     /* most frames to take; negative: no limit */
    void* output;            /* does not overlap the input */
    int32_t output_bytes;    /* room at output in bytes */
    int32_t output_limit;    /* most frames to write; negative: no limit */
    int32_t consumed_bytes;  /* result: bytes of input used */
    int32_t produced_bytes;  /* result: bytes written at output */
    int32_t consumed_frames; /* result: frames of input used */
    int32_t produced_frames; /* result: frames written */
} kel_audio_conversion;

/*
 * A converter between two formats, or null (logged at level 2) with errno: EINVAL when no chain leads from one to
 * the other (equal formats included), ENOMEM. The formats are copied. The caller destroys it with
 * kel_destroy_audio_converter. Thread-safety: any thread.
 */
KEL_API kel_audio_converter* kel_create_audio_converter(const kel_audio_format* from,
                                                        const kel_audio_format* to);

/*
 * Sets input and output, no limits and zero results. Returns 0, or 22 for null (logged at level 2).
 * Thread-safety: any thread.
 */
KEL_API int kel_init_audio_conversion(kel_audio_conversion* conversion, const void* input,
                                      int32_t input_bytes, void* output, int32_t output_bytes);

/*
 * Converts one block, as much as input, room and limits allow. A stream goes through one converter in order, each
 * block from the frame at which the previous call stopped; how it is cut into blocks does not change the output.
 * Frames may be produced while none is consumed, and the other way round. Returns 0, 12 (logged at level 2; a later
 * call tries again) or 22 for null (logged at level 2). Allocates only when a block needs more than any before.
 * Thread-safety: one thread at a time.
 */
KEL_API int kel_convert_audio(kel_audio_converter* converter, kel_audio_conversion* conversion);

/* Destroys the converter and sets *converter to null. Returns 0, or 22 when there is nothing to destroy. */
KEL_API int kel_destroy_audio_converter(kel_audio_converter** converter);

/* ------------------------------------------------------------------------------------------------------------
 * Audio mixer
 */

/* Sums tracks into the buffers of one audio pool; works in S24.8LE at the pool's rate and channel count. */
typedef struct kel_audio_mixer kel_audio_mixer;

/* One source of a mixer. It is the client's: it outlives its mixer until it is released. */
typedef struct kel_audio_mixer_track kel_audio_mixer_track;

/*
 * A mixer with gain 1.0 that fills buffers of `pool`, an audio pool, which stays the caller's and must outlive it.
 * Null (logged at level 2) with errno: EINVAL for another or null pool or a format that cannot be converted to,
 * ENOMEM. The caller destroys it with kel_destroy_audio_mixer. Thread-safety: any thread.
 */
KEL_API kel_audio_mixer* kel_create_audio_mixer(kel_buffer_pool* pool);

/*
 * Destroys the mixer, gives the buffer of a slice that nobody took back to its pool and sets *mixer to null; the
 * tracks lose their mixer and remain to be released. Returns 0, or 22 when there is nothing to destroy.
 * Thread-safety: one thread at a time for a mixer and its tracks; so it is for all functions of this section.
 */
KEL_API int kel_destroy_audio_mixer(kel_audio_mixer** mixer);

/*
 * A new track at the mixer's current position, or null (logged at level 2) with errno EINVAL for a null mixer,
 * ENOMEM. The mixer emits nothing until the track is full, too. The caller releases it.
 */
KEL_API kel_audio_mixer_track* kel_acquire_audio_mixer_track(kel_audio_mixer* mixer);

/*
 * Takes the track out of its mixer and frees it; what it has mixed stays, and a buffer that only waited for it is
 * emitted. Returns 0, or 22 for null (logged at level 2).
 */
KEL_API int kel_release_audio_mixer_track(kel_audio_mixer_track* track);

/*
 * Converts frames of an audio slice, from frame `start` on, and adds them to the mix with 32-bit wrap-around
 * (256 full-scale 16-bit tracks fit). Adds at most `max_frames` frames, counted at the mixer's rate, and at most as
 * many as the track has left; emits a buffer when that fills the last track. The slice stays the caller's.
 * Returns the frames of the slice that were taken, which for a track that changes the rate may be 0 while frames
 * were added; or -1 with errno:
 *  - EINVAL: null track, track without mixer, `start` beyond the slice, negative count;
 *  - EINVAL (logged at level 2): no audio slice, or a format that cannot be converted;
 *  - ENOMEM (logged at level 2): no memory for the conversion.
 */
KEL_API int32_t kel_feed_audio_mixer_track(kel_audio_mixer_track* track, const kel_slice* slice,
                                           int32_t start, int32_t max_frames);

/*
 * Adds silence, at most as much as the track has left. Returns the frames added; `frames` itself when it is below 1;
 * 22 for null or a track without mixer (logged at level 2).
 */
KEL_API int32_t kel_feed_audio_mixer_track_silence(kel_audio_mixer_track* track, int32_t frames);

/*
 * Frames that the track has in the current buffer, and frames it has left to fill. 22, which is a possible count,
 * too, for null or a track without mixer (logged at level 2).
 */
KEL_API int32_t kel_get_audio_mixer_track_num_samples_mixed(kel_audio_mixer_track* track);
KEL_API int32_t kel_get_audio_mixer_track_num_samples_left(kel_audio_mixer_track* track);

/* The track's position in frames at the mixer's rate; 0 for null. */
KEL_API uint64_t kel_get_audio_mixer_track_pts_in_samples(const kel_audio_mixer_track* track);

/*
 * Emits a buffer if all tracks are full, waiting up to timeout_ms (-1: without limit) for a free one in the pool.
 * Returns 0 when a slice can be taken, 11 (EAGAIN) when not, 22 for null (logged at level 2).
 */
KEL_API int kel_wait_for_audio_mixer(kel_audio_mixer* mixer, int32_t timeout_ms);

/* 1 when a slice can be taken, else 0; for null 0 with errno EINVAL (logged at level 2). Does not wait. */
KEL_API int kel_audio_mixer_has_buffer(kel_audio_mixer* mixer);

/*
 * Takes the emitted slice; from then on its buffer is the caller's to release with kel_release_buffer. Until it is
 * taken nothing further is emitted. Returns 0, 11 (EAGAIN) when there is none, 22 for a null mixer (logged at
 * level 2) or a null slice. Does not wait.
 */
KEL_API int kel_get_audio_mixer_slice(kel_audio_mixer* mixer, kel_slice* slice);

/* The working format, inside the mixer: the pool's rate and channels, S24.8LE. Null for null. */
KEL_API const kel_audio_format* kel_get_audio_mixer_format(const kel_audio_mixer* mixer);

/*
 * The gain applied when a buffer is emitted, in steps of 1/256: (value x (gain x 256)) >> 8, saturated. A negative
 * gain is silence. 0 for null; setting it on null does nothing.
 */
KEL_API float kel_get_audio_mixer_global_gain(const kel_audio_mixer* mixer);
KEL_API void kel_set_audio_mixer_global_gain(kel_audio_mixer* mixer, float gain);

/* Frames in the current buffer: the most that any track has put in since the last emission. 0 for null. */
KEL_API int32_t kel_get_audio_mixer_buffer_fill(const kel_audio_mixer* mixer);

/*
 * The position at which the current buffer begins, in frames or, truncated, in microseconds. 0 for null. Setting it
 * moves the tracks along, each by what it has mixed since; it does nothing for null.
 */
KEL_API uint64_t kel_get_audio_mixer_pts_in_samples(const kel_audio_mixer* mixer);
KEL_API void kel_set_audio_mixer_pts_in_samples(kel_audio_mixer* mixer, uint64_t samples);
KEL_API uint64_t kel_get_audio_mixer_pts(const kel_audio_mixer* mixer);
KEL_API void kel_set_audio_mixer_pts(kel_audio_mixer* mixer, uint64_t pts);

/* ------------------------------------------------------------------------------------------------------------
 * Audio filters
 */

/* Flags of a template's port descriptors */
#define KEL_AUDIO_PORT_INPUT 2u  /* the filter reads from it */
#define KEL_AUDIO_PORT_OUTPUT 4u /* the filter writes to it */
#define KEL_AUDIO_PORT_PARAM 8u  /* a parameter stream: S16.16LE instead of S24.8LE */

typedef struct kel_audio_filter kel_audio_filter;             /* an instance */
typedef struct kel_audio_filter_class kel_audio_filter_class; /* a kind of filter */

/* What a class does with `frames` frames; returns the frames processed, or -1 with errno. */
typedef int32_t (*kel_audio_filter_process)(kel_audio_filter* filter, int32_t frames);

/* Sets a biquad's coefficients for f0 (Hz) and q; the last value is not used. */
typedef void (*kel_audio_filter_coefficients)(kel_audio_filter* filter, double f0, double q, double unused);

/*
 * A named way in or out of a filter. The client points `data` at its own values, which stay its own, and says how
 * many there are; `data` may be the same on an input and an output.
 */
typedef struct kel_audio_filter_port {
    const char* name;        /* a static string */
    int32_t index;           /* tells ports of one name apart */
    uint32_t flags;          /* the descriptor's KEL_AUDIO_PORT_* flags; 0 on biquads */
    int32_t decimation;      /* frames per value that the filter reads: 1 = every frame */
    kel_audio_format format; /* S24.8LE, or S16.16LE (1.0 = 65536) for parameters */
    int32_t* data;           /* interleaved values; set by the client */
    int32_t capacity;        /* frames of room on an output port; set by the client */
    int32_t available;       /* frames present on an input port; set by the client */
} kel_audio_filter_port;

/* What a port of a new instance begins with. */
typedef struct kel_audio_filter_port_descriptor {
    const char* name;     /* a static string */
    int32_t index;        /* tells ports of one name apart */
    uint32_t flags;       /* KEL_AUDIO_PORT_* */
    int32_t decimation;   /* frames per value that the filter reads */
    uint32_t reserved[6]; /* zero */
} kel_audio_filter_port_descriptor;

/* A filter made from a table: what it does and its ports. */
typedef struct kel_audio_filter_template {
    kel_audio_filter_process process;                /* of every instance */
    uint32_t flags;                                  /* 1 */
    int32_t ndescriptors;                            /* descriptors that count */
    kel_audio_filter_port_descriptor descriptors[3]; /* the ports, inputs first */
} kel_audio_filter_template;

/* The gain filter's. */
extern KEL_API const kel_audio_filter_template _kel_gain_filter_tmpl;

/* A row of the registry: a kind of filter. */
struct kel_audio_filter_class {
    const char* name; /* a static string */
    union {
        const kel_audio_filter_template* tmpl;             /* gain */
        kel_audio_filter_coefficients update_coefficients; /* biquads */
    };
    kel_audio_filter* (*create)(const kel_audio_filter_class* cls,
                                const kel_audio_format* format); /* kel_create_audio_filter's */
    void (*destroy)(kel_audio_filter* filter);                   /* kel_destroy_audio_filter's */
};

/* An instance. Clients read the fields; they write only to the ports. */
struct kel_audio_filter {
    const kel_audio_filter_class* cls; /* its kind, of the registry */
    kel_audio_filter_process process;  /* what kel_pump_audio_filter calls */
    kel_audio_format format;           /* rate, channels, S24.8LE */
    kel_audio_format output_format;    /* the same */
    int32_t ninputs;                   /* ports at inputs */
    kel_audio_filter_port* inputs;     /* the filter's */
    int32_t noutputs;                  /* ports at outputs */
    kel_audio_filter_port* outputs;    /* the filter's */
};

/*
 * The class of that exact name: "gain", "highpass", "lowpass", "bandpass" or "notch"; null with errno ESRCH when
 * there is none, EINVAL for a null name. Thread-safety: any thread.
 */
KEL_API const kel_audio_filter_class* kel_find_audio_filter(const char* name);

/*
 * A new instance for the format's rate and channels (its type does not matter: audio is S24.8LE), or null with
 * errno: EINVAL for a null argument, a rate or channel count that is not positive or a class that is not whole,
 * ENOMEM. The caller destroys it. Ports:
 *  - gain: inputs "audio" and "gain" (S16.16LE, per value), output "audio";
 *  - biquads: inputs "audio", "freq" (one channel of Hz x 256, of which every 1024th frame of a block is read) and
 *    optionally "mix" (S16.16LE, per value: 65536 = filtered, 0 = unfiltered), output "audio". Q is 0.707.
 * Thread-safety: any thread.
 */
KEL_API kel_audio_filter* kel_create_audio_filter(const kel_audio_filter_class* cls,
                                                  const kel_audio_format* format);

/* Nothing for null or for an instance without a class. Thread-safety: while no thread uses the instance. */
KEL_API void kel_destroy_audio_filter(kel_audio_filter* filter);

/*
 * The port of that name and index, owned by the instance; null with errno ESRCH when there is none, EINVAL for a
 * null argument or a negative index. Thread-safety: any thread.
 */
KEL_API kel_audio_filter_port* kel_get_audio_filter_input(kel_audio_filter* filter, const char* name,
                                                          int32_t index);
KEL_API kel_audio_filter_port* kel_get_audio_filter_output(kel_audio_filter* filter, const char* name,
                                                           int32_t index);

/*
 * Runs the filter over `frames` frames, or as many as the audio input has available and the output has room for.
 * Returns the frames processed; -1 with errno EINVAL for a null instance, a negative count or a port that needs
 * data and has none ("mix" alone may go without). Biquads carry their last two frames over to the next call; their
 * frequency is read anew at the start of each block, then every 1024 frames.
 *  gain: out = (gain x in) >> 16, saturated to 32 bits.
 *  biquads: y[n] = b0 x[n] + b1 x[n-1] + b2 x[n-2] - a1 y[n-1] - a2 y[n-2] in double, from left to right, truncated
 *  and saturated to 32 bits; the coefficients are the well-known ones of R. Bristow-Johnson's cookbook.
 * Thread-safety: one thread at a time.
 */
KEL_API int32_t kel_pump_audio_filter(kel_audio_filter* filter, int32_t frames);

/* The class's name, a static string; null for null. Thread-safety: any thread. */
KEL_API const char* kel_get_audio_filter_name(const kel_audio_filter_class* cls);

/*
 * Writes a linear ramp of end - begin frames into one channel of a port, from the start of its data: it starts at
 * `from` and stops one step short of `to`, with which the next block begins. The values are in the port's unit (Hz,
 * or 1.0 for full). Returns the frames written (0 when end is not after begin), or -1 with errno EINVAL: a null port,
 * a port without data, a channel that it has not, or another type than S24.8LE and S16.16LE.
 * Thread-safety: one thread at a time.
 */
KEL_API int32_t kel_linint_audio_param(kel_audio_filter_port* port, int32_t channel, int32_t begin,
                                       int32_t end, float from, float to);

/* ------------------------------------------------------------------------------------------------------------
 * GLES environment and textures
 *
 * Order of use: kel_gles_init once per context; then surfaces; then textures (the first surface of the process
 * loads what they need); kel_gles_deinit, or kel_destroy_context, last. The client opens the EGL display and
 * terminates it; the library does neither. What a texture shows is the buffer's memory at the moment of the draw.
 * A pixmap surface draws into the buffer's memory: the pixels are there after glFinish, eglWaitClient,
 * eglSwapBuffers or a change of the current surface; the top of the picture (clip y = +1) is row 0. Nothing here
 * is logged.
 */

/*
 * A texture that shows one buffer. Clients bind `texture` themselves; only the library writes the fields.
 * Owned by the caller, who destroys it with kel_gles_destroy_texture.
 */
typedef struct kel_texture {
    kel_buffer* buffer; /* holds one reference; null when it shows nothing */
    EGLImageKHR image;  /* made of the buffer's pixmap; 0 when there is none */
    GLuint texture;     /* GL name; all ones until it is generated */
    EGLDisplay display; /* private: where `image` was made */
} kel_texture;

#if defined(__cplusplus) && UINTPTR_MAX == UINT32_MAX
static_assert(offsetof(kel_texture, buffer) == 0 && offsetof(kel_texture, image) == 4 &&
                  offsetof(kel_texture, texture) == 8,
              "layout");
#endif

/*
 * Initialises the display and gives the context a GLES 2 context on it: 8 bits of red, green, blue and alpha, a
 * depth buffer, without multisampling where that can be had. Returns 0 (also, changing nothing, when the context
 * has GLES state already), 12 (out of memory) or 22 (EGL refuses; null context). The display stays the client's.
 * Thread-safety: one thread at a time for each context.
 */
KEL_API int kel_gles_init(kel_context* context, EGLDisplay display);

/*
 * Makes nothing current on the calling thread and ends the context's GLES state; nothing when it has none.
 * Surfaces are the client's to destroy, before or after; textures too, whose GL names end here.
 * Thread-safety: while no other thread uses the GLES context.
 */
KEL_API void kel_gles_deinit(kel_context* context);

/* What kel_gles_init was given and has made; 0 without GLES state. Thread-safety: any thread. */
KEL_API EGLDisplay kel_gles_get_egl_display(const kel_context* context);
KEL_API EGLContext kel_gles_get_egl_context(const kel_context* context);
KEL_API EGLConfig kel_gles_get_egl_config(const kel_context* context);

/*
 * eglMakeCurrent with the surface for drawing and reading. EGL_FALSE, without any call, when the context, its
 * GLES state or the surface is null; otherwise EGL's result. Thread-safety: any thread; a GLES context is
 * current on one thread at a time.
 */
KEL_API EGLBoolean kel_gles_make_current(kel_context* context, EGLSurface surface);

/*
 * Compiles a shader of the type GL_VERTEX_SHADER or GL_FRAGMENT_SHADER from a NUL-terminated text. *status (may
 * be null) receives GL_COMPILE_STATUS. Returns the shader, compiled or not, for the caller to glDeleteShader, or
 * 0 with errno EINVAL when GL makes none. `context` is not looked at. Thread-safety: the thread of the GLES context.
 */
KEL_API GLuint kel_gles_create_shader(kel_context* context, GLenum type, const char* source, GLint* status);

/*
 * The same for the text of a file; 0 also when the file cannot be opened (errno as fopen left it), cannot be
 * measured (errno as left) or its text cannot be held in memory (ENOMEM).
 */
KEL_API GLuint kel_gles_create_shader_from_file(kel_context* context, GLenum type, const char* path,
                                                GLint* status);

/*
 * A surface that draws into the pool's window, or into the buffer's pixmap, and is left current on the calling
 * thread; the caller destroys it with eglDestroySurface. 0 when the context, its GLES state or the argument is
 * null, when the pool is not a window pool with a window (or the buffer not one of a pixmap pool, with a
 * pixmap), when EGL refuses, or when EGL or GL lack image textures; then no surface is left behind and, where
 * one was made on the way, nothing is current. The window or pixmap must outlive the drawing.
 * Thread-safety: any thread on which the GLES context may become current.
 */
KEL_API EGLSurface kel_gles_create_window_surface(kel_context* context, kel_buffer_pool* pool);
KEL_API EGLSurface kel_gles_create_pixmap_surface(kel_context* context, kel_buffer* buffer);

/*
 * A new texture that shows the slice's whole buffer and holds a reference on it, bound to GL_TEXTURE_2D, with
 * linear filters and clamped to its edge; row 0 of the buffer is at t = 0. Null: no buffer, a buffer without a
 * pixmap or of a planar format, no GLES state, out of memory, or no surface made yet in this process.
 * Thread-safety: the thread of the GLES context.
 */
KEL_API kel_texture* kel_gles_texture_from_slice(const kel_slice* slice);

/*
 * Makes the texture show the slice's buffer instead and binds it; nothing happens when it shows it already.
 * Returns 0, or 22: as kel_gles_texture_from_slice; the texture then shows nothing, has let go of its buffer and
 * keeps its GL name: it can be retargeted again. Thread-safety: the thread of the GLES context.
 */
KEL_API int kel_gles_retarget_texture(kel_texture* texture, const kel_slice* slice);

/*
 * Deletes the GL name, lets go of the buffer and sets *texture to null; nothing when *texture is null.
 * Thread-safety: the thread of the GLES context.
 */
KEL_API void kel_gles_destroy_texture(kel_texture** texture);

/* ------------------------------------------------------------------------------------------------------------
 * Video filters
 */

/* kel_video_filter_param.type */
#define KEL_PARAM_FLOAT 1   /* float, vec2, vec3, vec4 */
#define KEL_PARAM_INT 2     /* int, ivec2, ivec3, ivec4 */
#define KEL_PARAM_TEXTURE 3 /* a sampler, which the client sets */

/* kel_video_filter_param.precision; 0 when none was given */
#define KEL_PRECISION_LOW 1    /* lowp */
#define KEL_PRECISION_MEDIUM 2 /* mediump */
#define KEL_PRECISION_HIGH 3   /* highp */

/* The one type of filter that there is: GLSL text. */
#define KEL_VIDEO_FILTER_SHADER 1

/*
 * A piece of GLSL with a header comment that names it and declares its parameters. Loaded filters stay in the
 * process for good and never change; docs/filters.md describes the text.
 */
typedef struct kel_video_filter kel_video_filter;

/*
 * One parameter of a filter. The filter owns it. The bounds tell a user interface what makes sense; nothing here
 * clamps to them. Components beyond `count` mean nothing.
 */
typedef struct kel_video_filter_param {
    char* name;         /* as written in the text */
    int type;           /* KEL_PARAM_* */
    int count;          /* components, 1 to 4; 1 for a texture */
    int precision;      /* KEL_PRECISION_* or 0 */
    double min[4];      /* DBL_MIN, the smallest positive number, unless given */
    double max[4];      /* DBL_MAX unless given */
    double default_[4]; /* 0 unless given */
} kel_video_filter_param;

#if defined(__cplusplus) && UINTPTR_MAX == UINT32_MAX
static_assert(offsetof(kel_video_filter_param, name) == 0 && offsetof(kel_video_filter_param, type) == 4 &&
                  offsetof(kel_video_filter_param, count) == 8 &&
                  offsetof(kel_video_filter_param, precision) == 12 &&
                  offsetof(kel_video_filter_param, min) == 16 &&
                  offsetof(kel_video_filter_param, max) == 48 &&
                  offsetof(kel_video_filter_param, default_) == 80,
              "layout");
#endif

/*
 * Loads a filter from a NUL-terminated text and registers it; the text is copied. Null when the text is not a
 * filter (no header comment at its start, or none that names the filter) or memory runs out. Directives that
 * nobody knows are reported on standard error. Needs no GLES context. Thread-safety: any thread.
 */
KEL_API kel_video_filter* kel_load_video_filter_shader(const char* text);

/* The same for a file's contents; null also when it cannot be opened (errno as fopen left it), cannot be held in
 * memory (errno 12) or is empty. Thread-safety: any thread. */
KEL_API kel_video_filter* kel_load_video_filter_shader_from_file(const char* path);

/* The filter of exactly this name that was loaded last, or null. Thread-safety: any thread. */
KEL_API kel_video_filter* kel_find_video_filter(const char* name);

/* All filters, the one loaded last first; null at the end, and after null. Thread-safety: any thread. */
KEL_API kel_video_filter* kel_get_first_video_filter(void);
KEL_API kel_video_filter* kel_get_next_video_filter(const kel_video_filter* filter);

/*
 * What a filter says of itself; the strings and records are the filter's. A filter without a description has "".
 * Null and 0 for a null filter, null for an index out of range. Thread-safety: any thread.
 */
KEL_API const char* kel_get_video_filter_name(const kel_video_filter* filter);
KEL_API const char* kel_get_video_filter_description(const kel_video_filter* filter);
KEL_API int kel_get_video_filter_type(const kel_video_filter* filter);
KEL_API int kel_get_video_filter_num_params(const kel_video_filter* filter);
KEL_API const kel_video_filter_param* kel_get_video_filter_param(const kel_video_filter* filter, int index);

/* Index of the parameter of exactly this name, or -1. Thread-safety: any thread. */
KEL_API int kel_get_video_filter_param_index(const kel_video_filter* filter, const char* name);

/* ------------------------------------------------------------------------------------------------------------
 * Video filter chains
 */

/*
 * Filters in a row that become one fragment shader. Order of use, all on the thread of the GLES context: create,
 * set the preambles, add filters, finalise; then the client attaches a vertex shader to the chain's program, links
 * and uses it; then set parameters and load them as often as needed; destroy last. Parameter p of the instance with
 * index i is the uniform "filter<i>_<name>", cut at 126 characters, with "_" for whatever is no letter or digit.
 * Thread-safety of this section: one thread at a time for one chain; where GL is called, that of the GLES context.
 */
typedef struct kel_video_filter_chain kel_video_filter_chain;

/* One occurrence of a filter in a chain, with parameter values of its own. The chain owns it. */
typedef struct kel_video_filter_instance kel_video_filter_instance;

/*
 * An empty chain with a new GL program (0 when GL makes none), or null when out of memory. The context is kept,
 * not owned. The caller destroys it with kel_destroy_video_filter_chain.
 */
KEL_API kel_video_filter_chain* kel_create_video_filter_chain(kel_context* context);

/* Frees the chain, its instances, its shader and its program; filters stay. Sets *chain to null. */
KEL_API void kel_destroy_video_filter_chain(kel_video_filter_chain** chain);

/*
 * Texts at the very top of the shader and at the start of its main; null for none. Only the pointer is kept: the
 * text must live until the chain is finalised.
 */
KEL_API void kel_set_video_filter_chain_preamble(kel_video_filter_chain* chain, const char* text);
KEL_API void kel_set_video_filter_chain_main_preamble(kel_video_filter_chain* chain, const char* text);

/*
 * Appends an instance of the filter, its values at the defaults. Null, and nothing changed, when an argument is
 * null or memory runs out. After finalising, an added filter has no effect on the shader.
 */
KEL_API kel_video_filter_instance* kel_add_video_filter_to_chain(kel_video_filter_chain* chain,
                                                                 kel_video_filter* filter);

/*
 * Generates the shader, compiles it and attaches it to the program. Returns 0; 22 when it does not compile (it
 * stays stored, unattached) or the chain is finalised already; 12, with nothing changed, when out of memory.
 */
KEL_API int kel_finalize_video_filter_chain(kel_video_filter_chain* chain);

/* GL names, the chain's; the shader is 0 until finalised. 0 for null. */
KEL_API GLuint kel_get_video_filter_chain_shader_index(const kel_video_filter_chain* chain);
KEL_API GLuint kel_get_video_filter_chain_program_index(const kel_video_filter_chain* chain);

/* The instances in chain order; null at the end, and for null. */
KEL_API kel_video_filter_instance* kel_get_first_video_filter_instance(const kel_video_filter_chain* chain);
KEL_API kel_video_filter_instance* kel_get_next_video_filter_instance(
    const kel_video_filter_instance* instance);
KEL_API kel_video_filter* kel_get_video_filter_from_instance(const kel_video_filter_instance* instance);

/*
 * Sets one component of parameter number `param`; integers are truncated toward zero. The value reaches the uniform
 * with the next load. Returns 0, or 22 for a null instance, an index or component out of range or a texture
 * parameter (bind samplers yourself). No GL calls.
 */
KEL_API int kel_set_video_filter_param_value(kel_video_filter_instance* instance, int param, int component,
                                             double value);

/* Components 0 to n - 1; stops at the first error, and what came before it stays set. */
KEL_API int kel_set_video_filter_param_fv(kel_video_filter_instance* instance, int param, const float* values,
                                          int n);
KEL_API int kel_set_video_filter_param_iv(kel_video_filter_instance* instance, int param, const int* values,
                                          int n);

/*
 * Load all values, or those set since they were last loaded, into the uniforms of the chain's program, which must
 * be linked and in use: locations are looked up once, also those that are missing.
 */
KEL_API void kel_apply_video_filter_chain_params(kel_video_filter_chain* chain);
KEL_API void kel_apply_changed_video_filter_chain_params(kel_video_filter_chain* chain);

/* ------------------------------------------------------------------------------------------------------------
 * Fonts and text
 */

/* kel_text_style.halign: which part of the ink, as measured, lies at the given x; other values act as left. */
enum { KEL_TEXT_HALIGN_CENTER = 0, KEL_TEXT_HALIGN_LEFT = 1, KEL_TEXT_HALIGN_RIGHT = 2 };

/* kel_text_style.valign: what lies at the given y; other values act as baseline. */
enum {
    KEL_TEXT_VALIGN_BASELINE = 0,
    KEL_TEXT_VALIGN_BOTTOM = 1,
    KEL_TEXT_VALIGN_CENTER = 2,
    KEL_TEXT_VALIGN_TOP = 3
};

/* How text looks; owned by the caller and only read during a call. */
typedef struct kel_text_style {
    const char* font_path; /* file in a format that FreeType reads; the path as written is the key, copied */
    uint32_t color;        /* 0xAARRGGBB */
    int32_t size;          /* points, at 160 dots per inch */
    int32_t halign;        /* KEL_TEXT_HALIGN_* */
    int32_t valign;        /* KEL_TEXT_VALIGN_* */
} kel_text_style;

/* One of FreeType's error codes and its text. */
typedef struct kel_ft_error {
    int code;         /* FT_Error */
    const char* text; /* a static string */
} kel_ft_error;

/* FreeType's own error list, in its order, as of the version built against; the last entry's text is null. */
extern KEL_API const kel_ft_error ft_errors[];

/*
 * Gives the context a text state: FreeType and an empty list of fonts, which are loaded by the first call that
 * names them and stay until kel_text_deinit. Returns 0 (also when there is one already), 12 out of memory, or
 * 22: null context, or FreeType or a mutex cannot be made (logged at level 2).
 * Thread-safety: one thread at a time on one context.
 */
KEL_API int kel_text_init(kel_context* context);

/*
 * Ends the context's text state with all its fonts; nothing when it has none. kel_destroy_context does it too.
 * Thread-safety: while nobody uses the text state.
 */
KEL_API void kel_text_deinit(kel_context* context);

/*
 * Draws one line of UTF-8 (up to the first invalid sequence) into a frame of 4-byte pixels, stored blue, green,
 * red, alpha. `position` is the pen origin on the baseline, moved as the style's alignment says, in pixels from
 * the buffer's first pixel; the slice's width and height clip, its x and y are not applied. A pixel with
 * coverage v (1 to 255) is overwritten, not blended: by the colour, with alpha v * A / 255 (truncated); others
 * stay. `drawn` (may be null) receives the ink's rectangle, whether visible or not.
 * The context is that of the buffer's pool. Returns the number of glyphs drawn; glyphs outside the frame are
 * left out. 0 without a font (logged at level 2), and when FreeType cannot render a glyph (logged; those before
 * it stay in the frame and `drawn` is untouched).
 * Thread-safety: any thread, also with the same font; the caller owns the frame meanwhile.
 */
KEL_API int kel_text_draw(const kel_slice* slice, const char* utf8, const kel_point* position,
                          const kel_text_style* style, kel_rect* drawn);

/*
 * As kel_text_draw, but sized so that the text's ink fits into `box` (pixels) with its aspect ratio kept; the
 * style's size is not used. Where the box leaves room, the style's alignment places the text: horizontally when
 * the height limits, vertically when the width does. Text without ink draws nothing and gives 0; `drawn` is then
 * empty, at the box's corner.
 */
KEL_API int kel_text_draw_in_bb(const kel_slice* slice, const char* utf8, const kel_rect* box,
                                const kel_text_style* style, kel_rect* drawn);

/*
 * A new acquired RGBA8888 pixmap buffer in a pool of its own, as large as the text's ink and showing the text
 * (alignment is not applied). `usage`: SCREEN_USAGE_* bits. The caller gives it back with kel_release_buffer.
 * Null (logged at level 2) without a font, for text without ink, or when the pixmap cannot be made.
 * Thread-safety: any thread.
 */
KEL_API kel_buffer* kel_text_create(kel_context* context, const char* utf8, const kel_text_style* style,
                                    int usage);

/* ------------------------------------------------------------------------------------------------------------
 * Blits, fills and images
 */

/*
 * The largest size with the aspect ratio of width × height that fits into the box; it touches the box on one side at
 * least and may be larger than the size given. Results are truncated; a height of 0 gives 0 × 0.
 * Thread-safety: any thread.
 */
KEL_API void kel_scale_inside_bb(int width, int height, int box_width, int box_height, int* out_width,
                                 int* out_height);

/*
 * Queues a copy of src_rect of src, scaled, into dst_rect of dst: screen_blit on the Screen context that src's pool
 * was made against. A null rectangle means the slice's own; positions count from the buffer's first pixel.
 * global_alpha: 0 to 255; scale_quality: SCREEN_QUALITY_*; transparency: SCREEN_TRANSPARENCY_*. Nothing is drawn
 * before screen_flush_blits, which the caller calls when the result is needed; Screen holds the frames until then.
 * Returns 0, or -1 with errno (EINVAL: a slice without a buffer, or what Screen refuses).
 * Thread-safety: any thread, while both buffers are held.
 */
KEL_API int kel_blit_video(const kel_slice* src, const kel_slice* dst, const kel_rect* src_rect,
                           const kel_rect* dst_rect, int global_alpha, int scale_quality, int transparency);

/*
 * kel_blit_video of the whole src slice into the middle of dst, as large as fits with its aspect ratio kept. What dst
 * shows around it is left as it is; dst's x and y are not applied. Results and thread-safety as kel_blit_video.
 */
KEL_API int kel_blit_video_inside(const kel_slice* src, const kel_slice* dst, int global_alpha,
                                  int scale_quality, int transparency);

/*
 * Queues a fill of rect (null: the slice's own rectangle) with 0xAARRGGBB: screen_fill on the Screen context that the
 * slice's pool was made against. Results, flushing and thread-safety as kel_blit_video.
 */
KEL_API int kel_fill_video(const kel_slice* slice, unsigned colour, const kel_rect* rect);

/*
 * Describes a buffer of a video pool with 32-bit pixels as an image that the image library writes directly: all of
 * *img is set (flags 30, format 0x1520). The buffer stays the caller's. Thread-safety: any thread.
 */
KEL_API void kel_init_img_for_buffer(img_t* img, const kel_buffer* buffer);

/*
 * Decodes a picture, from a file or from where a stream stands, into a new RGBA8888 pixmap buffer with the given
 * usage (SCREEN_USAGE_* bits), scaled down to fit half the context's image limits when it is larger; alpha is not
 * premultiplied. Returns the buffer, acquired, in a pool of its own that the last kel_release_buffer destroys; or
 * null when the picture cannot be read or decoded (nothing is logged) or its pixmap cannot be made (logged at
 * level 2). ilib is the caller's use of the image library; the stream stays open.
 * Thread-safety: any thread; a stream from one thread at a time.
 */
KEL_API kel_buffer* kel_load_image_file(kel_context* ctx, img_lib_t ilib, const char* path, int usage);
KEL_API kel_buffer* kel_load_image(kel_context* ctx, img_lib_t ilib, io_stream_t* stream, int usage);

/* ------------------------------------------------------------------------------------------------------------
 * Colour conversion
 */

/*
 * Converts a frame of 32-bit pixels (bytes in memory: blue, green, red, alpha, which is ignored) into NV12: BT.601,
 * limited range, 13-bit fixed point, chroma averaged over 2 by 2 pixels and rounded down. The size is that of
 * dst's pool; src must be at least as large. dst holds `height` rows of luma and right after them the rows of
 * interleaved chroma, all `stride` bytes apart. An odd last column or row is not written.
 * Thread-safety: any thread, while both buffers are held.
 */
KEL_API void bgra8888_to_nv12(const kel_buffer* src, kel_buffer* dst);

/* ------------------------------------------------------------------------------------------------------------
 * Media-graph filters
 */

/*
 * The interface lists of the two filters, the callback tables that the framework finds in them, and the
 * memory allocator through which a graph takes its buffers from the library's pools. See <mm/mmf.h> for the
 * records.
 */
extern KEL_API const AOInterface_t kel_reader_interfaces[];
extern KEL_API const AOInterface_t kel_writer_interfaces[];
extern KEL_API const kel_allocator_interface kel_allocator;

/*
 * Registers both filters with the framework, once per process; further calls do nothing.
 * Thread-safety: once, before any filter is created.
 */
KEL_API void kel_init_mmedia_filters(void);

/*
 * A filter of a graph, or with a null graph one that the caller ends with MmDestroyFilter; null with errno as
 * MmCreateFilter left it. kel_init_mmedia_filters must have run. Configure it through its resources, above
 * all "KelContext". A reader ("kel_reader") is a source: put slices into the queues of its resources
 * "AudioQueue" and "VideoQueue". A writer ("kel_writer") is a sink: set "AudioChannelCount" and
 * "VideoChannelCount", connect its channels, and pull slices with kel_writer_read_slice. Thread-safety:
 * readers one at a time, writers any thread.
 */
KEL_API kel_filter* kel_create_reader_filter(mm_graph* graph);
KEL_API kel_filter* kel_create_writer_filter(mm_graph* graph);

/*
 * An input channel of a writer by its index among the audio or the video channels; null when the filter is
 * not a writer, the index is out of range, or the channels do not exist yet (the framework makes them when it
 * first iterates the inputs). The filter owns the channel. Thread-safety: any thread once the channels exist.
 */
KEL_API kel_channel* kel_writer_get_audio_channel(kel_filter* filter, int32_t index);
KEL_API kel_channel* kel_writer_get_video_channel(kel_filter* filter, int32_t index);

/* The channel's format record, valid while the filter lives; null when the channel's filter is not a writer.
 */
KEL_API kel_channel_format* kel_writer_get_format(kel_channel* channel);

/*
 * Pulls the next slice of a channel, in the caller's thread. Returns 0 with a slice, or with a slice whose
 * buffer is null when the channel was paused or flushed; 79 at the end of the stream or after an upstream
 * error; 11 when the channel is not playing; 22 when the channel's filter is not a writer. The slice's buffer
 * stays valid until a later call on the same channel finds its container used up; take a reference
 * (kel_ref_buffer) to keep it longer. Blocks only inside the upstream filter. Thread-safety: one thread per
 * channel.
 */
KEL_API int kel_writer_read_slice(kel_channel* channel, kel_slice* slice);

/* ------------------------------------------------------------------------------------------------------------
 * Entry points shared between the modules of the library; not for clients
 */

/* Sets the filter's next to the registry's newest and makes it the newest. Thread-safety: any thread. */
KEL_API void _kel_add_video_filter(kel_video_filter* filter);

/*
 * Appends the shader of the instances from `first` (sources: up to and including `last`) to *buffer, which grows
 * by doubling *capacity and keeps room for a NUL. Out of memory: *buffer is freed and null, both sizes are 0.
 */
KEL_API void _kel_build_shader(const kel_video_filter_chain* chain, const kel_video_filter_instance* first,
                               const kel_video_filter_instance* last, char** buffer, size_t* capacity,
                               size_t* length);

/* Writes a uniform's name, at most size - 2 characters and a NUL; returns its length. Thread-safety: any thread. */
KEL_API int _kel_gen_param_name(const kel_video_filter_instance* instance,
                                const kel_video_filter_param* param, char* buffer, size_t size);

/* Framework colour code of a FOURCC (variant: 0 to 2), or 0. Thread-safety: any thread. */
KEL_API uint32_t kel_fourcc_to_mmf_format(uint32_t fourcc, int32_t bits_per_pixel, uint32_t variant);

/* Screen pixel format of a framework colour code, or 0 (logged at level 3). Thread-safety: any thread. */
KEL_API int32_t kel_mmf_to_screen_format(uint32_t colour_code);

#ifdef __cplusplus
}
#endif
#endif
