/*
 * The multimedia framework: filters with channels, the containers (MRAs) that travel between them, memory
 * pools, and graphs that connect filters and run in the threads of whoever pulls them.
 *
 * A filter is an interface list registered with AoAddStatic. The framework calls the callbacks of a table by
 * their position. Records whose byte offsets are stated are shared between the framework and the filters; on
 * 64-bit machines they keep the order of their fields with natural alignment.
 */
#ifndef MM_MMF_H
#define MM_MMF_H

#include <stddef.h>
#include <stdint.h>

#include <aoi/aoi.h>
#include <platform_export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Status of filters and channels, and what NextBuffer gives. */
enum {
    MM_STATUS_ERROR = 1,
    MM_STATUS_END_OF_STREAM = 4,
    MM_STATUS_FLUSHED = 8, /* the upstream was stopped underneath: the reader of the channel stops */
    MM_STATUS_STOPPED = 16,
    MM_STATUS_PAUSE_PENDING = 32,
    MM_STATUS_PAUSED = 64,
    MM_STATUS_PLAYING = 256
};

/* Event types. */
enum { MM_EV_ERR = 1 };

/* Media types of a channel format. */
enum { MM_MEDIA_VIDEO = 2, MM_MEDIA_AUDIO = 4 };

/* Element types of an MRA. */
enum { MM_ELEMENT_BUFFER = 1, MM_ELEMENT_PROPERTY = 2 };

/* Property types: a pts is its low 32 bits and the next 16; sizes and offsets are two numbers. */
enum {
    MM_PROPERTY_DISCONTINUITY = 3, /* pts */
    MM_PROPERTY_PTS = 11,          /* pts in microseconds */
    MM_PROPERTY_VIDEO_PTS = 14,    /* pts in microseconds */
    MM_PROPERTY_AUDIO_PTS = 15,    /* pts in microseconds */
    MM_PROPERTY_SIZE = 31,         /* width, height in pixels */
    MM_PROPERTY_OFFSET = 35        /* x, y in pixels */
};

/* Result codes beside errno values. */
enum {
    MM_FORMAT_ACCEPTED = 80, /* an input's IterateFormats */
    MM_FORMAT_REFUSED = 100  /* an output's VerifyFormat */
};

typedef struct kel_filter kel_filter;
typedef struct kel_channel kel_channel;
typedef struct kel_mmf_pool kel_mmf_pool;
typedef struct kel_mmf_buffer kel_mmf_buffer;
typedef struct mmf_mra mmf_mra;               /* a container of property and buffer elements; opaque */
typedef struct mmf_mra_pool mmf_mra_pool;     /* opaque */
typedef struct mmf_connection mmf_connection; /* two channels joined; opaque */
typedef struct mm_graph mm_graph;             /* opaque */
struct kel_buffer;
struct kel_buffer_pool;

/* What travels on a channel. 1120 bytes, all of 32-bit words, the same on every machine. */
typedef struct kel_channel_format {
    uint32_t media_type; /* MM_MEDIA_* */
    uint32_t fourcc;
    union {
        struct {
            int32_t width;  /* pixels */
            int32_t height; /* pixels */
            int32_t bits_per_pixel;
            int32_t frame_rate; /* frames per second */
        } video;
        struct {
            int32_t channels;
            int32_t bits_per_sample;
            int32_t rate; /* frames per second */
            int32_t reserved;
        } audio;
    };
    uint32_t reserved_18[252];
    int32_t buffer_size; /* 0x408: bytes */
    uint32_t word_40c;   /* 2 at a reader's creation */
    uint32_t word_410;   /* 2 or 1 at a reader's creation */
    uint32_t word_414;   /* 768 at a reader's creation */
    uint32_t word_418;   /* 0x80000 at a reader's creation */
    uint32_t reserved_41c[5];
    uint32_t capabilities; /* 0x430: what the input can do; bit 3: rows at the buffer's own stride */
    uint32_t flags;        /* 0x434: bit 3: rows at the destination buffer's own stride */
    uint32_t reserved_438[2];
    uint32_t bit_rate; /* 0x440: bits per second, audio */
    uint32_t variant;  /* 0x444: which of the colour codes of a FOURCC */
    uint32_t word_448;
    uint32_t reserved_44c[5];
} kel_channel_format;

/* Channel flags. */
enum { MM_CHANNEL_ACQUIRED = 1, MM_CHANNEL_INPUT_SET = 2, MM_CHANNEL_OUTPUT_SET = 8 };

/* One channel of a filter, in an array that the filter owns. 1160 bytes on 32-bit. */
struct kel_channel {
    uint32_t word_0;    /* 4, set at creation */
    char* name;         /* owned by the filter */
    uint32_t direction; /* 1 input, 2 output */
    uint32_t flags;     /* MM_CHANNEL_* */
    kel_channel_format format;
    kel_filter* filter; /* the owning filter */
    uint32_t reserved_474;
    mmf_connection* connection; /* set by the framework while the channel is connected */
    kel_channel* peer;          /* the channel at the other end, handed to its filter's callbacks */
    uint32_t reserved_480;
    void* private_channel; /* the filter's own record of the channel */
};

/* What a filter's Create returns and every callback receives. 32 bytes on 32-bit. */
struct kel_filter {
    uint32_t tag;         /* always 2 */
    char* name;           /* owned by the filter */
    kel_channel* inputs;  /* owned by the filter; null without inputs */
    kel_channel* outputs; /* owned by the filter; null without outputs */
    void* state;          /* the filter's own state, owned by it */
    uint32_t reserved[3];
};

/* What a memory pool is asked for. Ten words. */
typedef struct kel_mmf_pool_attributes {
    int32_t buffer_size;  /* bytes, at least 1 */
    int32_t buffer_count; /* at least 1 */
    uint32_t reserved_8[2];
    uint32_t flags;
    uint32_t word_14;
    uint32_t word_18;
    uint32_t word_1c;
    uint32_t reserved_20[2];
} kel_mmf_pool_attributes;

/* A memory pool, as an allocator made it. 64 bytes on 32-bit. */
struct kel_mmf_pool {
    uint32_t reserved_0;
    uint32_t buffer_size; /* bytes of the first buffer */
    kel_channel* channel; /* the channel that it was made for */
    uint32_t reserved_c;
    kel_mmf_pool_attributes attributes;
    struct kel_buffer_pool* buffer_pool; /* owned */
    kel_mmf_buffer* buffers;             /* owned; one record for each buffer, in pool order */
};

/* One buffer of a memory pool. 32 bytes on 32-bit. */
struct kel_mmf_buffer {
    kel_mmf_pool* pool;
    void* data;
    uint32_t size; /* bytes */
    uint32_t reserved_c;
    uint64_t paddr;            /* physical address; 0 for audio */
    struct kel_buffer* buffer; /* the buffer behind the record */
    uint32_t refcount;         /* 0 while free, 1 when acquired */
};

/* "MediaMemoryAllocator", version 121: errno-style results. */
typedef struct kel_allocator_interface {
    int (*allocate_memory_pool)(kel_mmf_pool** pool, kel_channel* channel,
                                const kel_mmf_pool_attributes* attributes);
    int (*free_memory_pool)(kel_mmf_pool* pool);
    int (*get_memory_pool_buffers)(kel_mmf_pool* pool, int* count, int* size, kel_mmf_buffer** buffers);
    int (*acquire_buffer)(kel_mmf_pool* pool, kel_mmf_buffer** buffer, int do_not_wait);
    int (*increment_ref_count)(kel_mmf_buffer* buffer);
    int (*decrement_ref_count)(kel_mmf_buffer* buffer);
    int (*release_buffer)(kel_mmf_buffer* buffer);
    void* (*get_memory_pool_attributes)(void* pool);
    int (*not_supported)(void);
} kel_allocator_interface;

/* "MediaFilter", version 110. */
typedef struct mmf_filter_interface {
    kel_filter* (*create)(void);
    int (*destroy)(kel_filter* filter);
} mmf_filter_interface;

/* "MediaControl", version 101. */
typedef struct mmf_control_interface {
    int (*start)(kel_filter* filter);
    int (*stop)(kel_filter* filter);
    int (*pause)(kel_filter* filter);
    int (*resume)(kel_filter* filter);
    int (*get_status)(kel_filter* filter);
} mmf_control_interface;

/* "MediaSeeker", version 102. Slot 0 tells the filter's unit of positions; every one here counts
 * microseconds. */
typedef struct mmf_seeker_interface {
    int (*get_unit)(kel_filter* filter);
    int (*seek)(kel_filter* filter, uint32_t unit, uint64_t position);
} mmf_seeker_interface;

/* "MediaTimeConverter", version 100: 0 or 22. */
typedef struct mmf_time_converter_interface {
    int (*to_media_time)(kel_filter* filter, uint64_t time, uint64_t* media_time);
    int (*from_media_time)(kel_filter* filter, uint64_t media_time, uint64_t* time);
} mmf_time_converter_interface;

/* "MediaOutput", version 101. NextBuffer gives a MM_STATUS_*; with PLAYING an MRA that the caller releases.
 */
typedef struct mmf_output_interface {
    kel_channel* (*iterate_outputs)(kel_filter* filter, int* cursor);
    int (*acquire_output)(kel_channel* channel);
    int (*release_output)(kel_channel* channel);
    int (*iterate_formats)(kel_channel* channel, kel_channel_format* format, int* cursor);
    int (*verify_format)(kel_channel* channel, const kel_channel_format* a, const kel_channel_format* b);
    int (*set_format)(kel_channel* channel, const kel_channel_format* format);
    int (*next_buffer)(kel_channel* channel, mmf_mra** mra);
    int (*set_memory_pool)(kel_channel* channel, const kel_allocator_interface* allocator,
                           kel_mmf_pool* pool);
} mmf_output_interface;

/* "MediaInput", version 101. IterateFormats accepts with MM_FORMAT_ACCEPTED and may complete the format. */
typedef struct mmf_input_interface {
    kel_channel* (*iterate_inputs)(kel_filter* filter, int* cursor);
    int (*acquire_input)(kel_channel* channel);
    int (*release_input)(kel_channel* channel);
    int (*iterate_formats)(kel_channel* channel, kel_channel_format* format, int complete, int* cursor);
    int (*set_format)(kel_channel* channel, const kel_channel_format* format);
    int (*connect_output)(kel_channel* channel, const mmf_output_interface* upstream);
    int (*set_memory_pool)(kel_channel* channel, const kel_allocator_interface* allocator,
                           kel_mmf_pool* pool);
} mmf_input_interface;

/* Receives an event that a filter posts. */
typedef void (*mmf_event_poster)(kel_filter* filter, int type, const char* text);

/* "MediaEventProducer", version 100. */
typedef struct mmf_event_interface {
    int (*iterate_events)(kel_filter* filter, int* type, int* cursor);
    int (*set_event_poster)(kel_filter* filter, mmf_event_poster poster);
    int (*enable_event)(kel_filter* filter, int type);
} mmf_event_interface;

/* Kinds and rights of a resource, in its type code. */
enum {
    MM_RESOURCE_INTEGER = 1, /* the value is an int32_t */
    MM_RESOURCE_STRING = 4,
    MM_RESOURCE_POINTER = 7,
    MM_RESOURCE_KIND_MASK = 0xff,
    MM_RESOURCE_READABLE = 0x10000000,
    MM_RESOURCE_WRITABLE = 0x20000000
};

typedef struct mmf_integer_range {
    int32_t minimum, maximum, step;
} mmf_integer_range;

typedef struct mmf_string_range {
    int32_t length; /* characters */
} mmf_string_range;

/* One resource; a table ends with an entry whose name is null. */
typedef struct mmf_resource {
    const char* name;
    const char* description;
    void* value;       /* address of the field in a filter's own table; its offset in a static one */
    const void* range; /* mmf_integer_range, mmf_string_range, or null */
    uint32_t type;     /* MM_RESOURCE_* */
} mmf_resource;

/*
 * "AOResourceAccess", version 100. The value is an int32_t's address, the string, or the pointer. Results: 0,
 * 1 (not writable), 22 or 4032 (no such resource).
 */
typedef struct mmf_resource_interface {
    mmf_resource* (*get_resources)(kel_filter* filter);
    int (*set_resource)(kel_filter* filter, const char* name, const void* value);
} mmf_resource_interface;

/*
 * "MediaSink", version 100, of filters that consume: takes one container from an input's upstream and uses it
 * up. Gives MM_STATUS_PLAYING after progress, MM_STATUS_END_OF_STREAM when every input has ended (what was
 * taken is complete then), MM_STATUS_ERROR (see the filter's "Error" resource), or the upstream's status.
 */
typedef struct mmf_sink_interface {
    int (*process)(kel_filter* filter);
} mmf_sink_interface;

/* ---- Containers. Results are 0 or an errno value: EINVAL, ENOMEM, EAGAIN (every MRA is out), ENOENT (no
 * such element). Thread-safety: any thread for pools; one thread at a time for one MRA.
 */

/*
 * Makes `count` containers for a channel; the framework frees them when the channel is disconnected or its
 * filter destroyed. `owner` is the channel whose connection's allocator takes the buffers back.
 */
PLATFORM_API int MmfAllocateMraPool(mmf_mra_pool** pool, kel_channel* channel, int count, kel_channel* owner);
PLATFORM_API int MmfAcquireMra(mmf_mra_pool* pool, mmf_mra** mra, int do_not_wait);

/* Empties the container and gives it back; the buffer's reference goes back through its allocator. */
PLATFORM_API int MmfReleaseMra(mmf_mra* mra);

/* Elements are set in index order from 0. A buffer element takes over the caller's reference of the record.
 */
PLATFORM_API int MmfSetMraPropertyElement(mmf_mra* mra, int index, int type, uint32_t value,
                                          uint16_t value16);
PLATFORM_API int MmfSetMraBufferElement(mmf_mra* mra, int index, kel_mmf_buffer* record, void* data,
                                        uint32_t size);
PLATFORM_API int MmfGetMraElementType(const mmf_mra* mra, int index, int* type); /* MM_ELEMENT_* */
PLATFORM_API int MmfGetMraPropertyElement(const mmf_mra* mra, int index, int* type, uint32_t* value,
                                          uint16_t* value16);
PLATFORM_API int MmfGetMraBufferElement(const mmf_mra* mra, int index, kel_mmf_buffer** record, void** data,
                                        uint32_t* size);

/* ---- Filters and graphs. Control calls may come from any thread, one at a time per graph; containers are
 * pulled in the threads of the clients and of MmProcess meanwhile.
 */

/* A graph that owns the filters made for it, or null (ENOMEM). */
PLATFORM_API mm_graph* MmCreateGraph(void);

/* Stops the graph, disconnects and destroys its filters. 0, or EINVAL. Nobody may be pulling. */
PLATFORM_API int MmDestroyGraph(mm_graph* graph);

/*
 * A filter made from a registered interface list, or null with errno. With a graph it belongs to the graph;
 * without one the caller ends it with MmDestroyFilter.
 */
PLATFORM_API kel_filter* MmCreateFilter(mm_graph* graph, const AOHandle_t* handle);
PLATFORM_API int MmDestroyFilter(kel_filter* filter);

/* An interface table of a filter by name, or null with errno (EINVAL, ESRCH). */
PLATFORM_API const void* MmGetFilterInterface(const kel_filter* filter, const char* name);

/* Sets a resource: 0, 1, 22 or 4032 as the filter answers; 22 when it has no resources. */
PLATFORM_API int MmSetResource(kel_filter* filter, const char* name, const void* value);

/* The entry of a resource in the filter's own table, or null. */
PLATFORM_API const mmf_resource* MmFindResource(kel_filter* filter, const char* name);

/*
 * Joins two channels: acquires both, negotiates a format, sets it at both ends, makes a memory pool with the
 * downstream filter's allocator (or else the upstream's, or else of plain memory) and hands it to both. 0, or an
 * errno value with nothing left acquired: EINVAL, EBUSY (a channel is connected), ENOTSUP (no common format), ENOMEM.
 */
PLATFORM_API int MmConnect(mm_graph* graph, kel_channel* output, kel_channel* input);

/* Control of every filter of the graph: 0, or the first error. */
PLATFORM_API int MmStart(mm_graph* graph);
PLATFORM_API int MmResume(mm_graph* graph);
PLATFORM_API int MmPause(mm_graph* graph);
PLATFORM_API int MmStop(mm_graph* graph);
PLATFORM_API int MmSeek(mm_graph* graph, uint64_t pts); /* microseconds */
PLATFORM_API int MmGetStatus(mm_graph* graph);          /* MM_STATUS_* */

/*
 * Lets every sink of the graph take one container, in the caller's thread. MM_STATUS_PLAYING after progress,
 * END_OF_STREAM when all sinks have ended, ERROR, or a filter's status.
 */
PLATFORM_API int MmProcess(mm_graph* graph);

/* Takes the oldest event that a filter of the graph posted: 0, or ENOENT. `text` is cut to the room. */
PLATFORM_API int MmNextEvent(mm_graph* graph, kel_filter** filter, int* type, char* text, size_t room);

/* ---- The framework's own filters, registered on first use.
 *
 * File source: resources "Path" (string; set before the outputs are iterated), "AudioBitDepth" (integer: 8,
 * 16 or 32), "Duration" (pointer to int64_t microseconds), "Error" (string: the last failure in words).
 * Outputs: audio as PCM and video as NV12, as far as the file has them. File sink: resources "Path", "Error"
 * and the codecs' settings. Inputs: one audio, one video; the connected ones are written.
 */
PLATFORM_API const AOHandle_t* MmFileSource(void);
PLATFORM_API const AOHandle_t* MmFileSink(void);

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
#define MMF_ASSERT(condition) static_assert(condition, #condition)
#else
#define MMF_ASSERT(condition) _Static_assert(condition, #condition)
#endif
MMF_ASSERT(sizeof(kel_channel_format) == 1120);
MMF_ASSERT(offsetof(kel_channel_format, buffer_size) == 0x408);
MMF_ASSERT(offsetof(kel_channel_format, capabilities) == 0x430);
MMF_ASSERT(offsetof(kel_channel_format, bit_rate) == 0x440);
MMF_ASSERT(offsetof(kel_channel_format, word_448) == 0x448);
MMF_ASSERT(sizeof(kel_mmf_pool_attributes) == 40);
#if UINTPTR_MAX == 0xffffffffu
MMF_ASSERT(sizeof(kel_channel) == 1160);
MMF_ASSERT(offsetof(kel_channel, format) == 16);
MMF_ASSERT(offsetof(kel_channel, filter) == 0x470);
MMF_ASSERT(offsetof(kel_channel, connection) == 0x478);
MMF_ASSERT(offsetof(kel_channel, peer) == 0x47c);
MMF_ASSERT(offsetof(kel_channel, private_channel) == 0x484);
MMF_ASSERT(sizeof(kel_filter) == 32);
MMF_ASSERT(offsetof(kel_filter, state) == 16);
MMF_ASSERT(sizeof(kel_mmf_pool) == 64);
MMF_ASSERT(offsetof(kel_mmf_pool, attributes) == 16);
MMF_ASSERT(offsetof(kel_mmf_pool, buffer_pool) == 56);
MMF_ASSERT(offsetof(kel_mmf_pool, buffers) == 60);
MMF_ASSERT(sizeof(kel_mmf_buffer) == 32);
MMF_ASSERT(offsetof(kel_mmf_buffer, paddr) == 16);
MMF_ASSERT(offsetof(kel_mmf_buffer, buffer) == 24);
MMF_ASSERT(offsetof(kel_mmf_buffer, refcount) == 28);
MMF_ASSERT(sizeof(mmf_resource) == 20);
#endif
#undef MMF_ASSERT
#endif
