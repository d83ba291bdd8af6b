/*
 * Screen, the compositor: contexts, displays, windows, pixmaps and their buffers.
 *
 * Every function returns 0, or -1 with errno set: EINVAL (null argument, stale or foreign handle, unknown
 * property, bad value or size), ENOMEM, ENOTSUP (an unknown pixel format), EBUSY (the object has buffers, so
 * its format, usage and buffer size stay and it gets no others), ENOENT (it has no buffer). On failure
 * nothing changed. A handle is good from its creation until the destruction of the object; afterwards it is
 * refused, never followed. Thread-safety: any function from any thread.
 */
#ifndef SCREEN_SCREEN_H
#define SCREEN_SCREEN_H

#include <stdint.h>

#include <platform_export.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct screen_context* screen_context_t;
typedef struct screen_display* screen_display_t;
typedef struct screen_window* screen_window_t;
typedef struct screen_pixmap* screen_pixmap_t;
typedef struct screen_buffer* screen_buffer_t;

enum { SCREEN_APPLICATION_CONTEXT = 0 };

/* Window types. */
enum { SCREEN_APPLICATION_WINDOW = 0, SCREEN_CHILD_WINDOW = 1, SCREEN_EMBEDDED_WINDOW = 2 };

/* Pixel formats; bytes in memory order. The planar ones lie in one block: luma rows first. */
enum {
    SCREEN_FORMAT_RGB565 = 6,
    SCREEN_FORMAT_RGBA8888 = 8, /* blue, green, red, alpha */
    SCREEN_FORMAT_RGBX8888 = 9, /* blue, green, red, unused */
    SCREEN_FORMAT_YVU9 = 10,    /* Y, then V and U at a quarter of the size in both directions */
    SCREEN_FORMAT_YUV420 = 11,  /* Y, then U, then V at half size in both directions */
    SCREEN_FORMAT_NV12 = 12,    /* Y, then interleaved U and V at half size in both directions */
    SCREEN_FORMAT_YV12 = 13,    /* Y, then V, then U at half size in both directions */
    SCREEN_FORMAT_UYVY = 14,    /* packed 4:2:2 */
    SCREEN_FORMAT_YUY2 = 15,    /* packed 4:2:2 */
    SCREEN_FORMAT_YVYU = 16,    /* packed 4:2:2 */
    SCREEN_FORMAT_V422 = 17     /* packed 4:2:2, V Y U Y */
};

/* Usage bits. */
enum {
    SCREEN_USAGE_DISPLAY = 0x001,
    SCREEN_USAGE_READ = 0x002,
    SCREEN_USAGE_WRITE = 0x004,
    SCREEN_USAGE_NATIVE = 0x008,
    SCREEN_USAGE_OPENGL_ES1 = 0x010,
    SCREEN_USAGE_OPENGL_ES2 = 0x020,
    SCREEN_USAGE_OPENVG = 0x040,
    SCREEN_USAGE_VIDEO = 0x080,
    SCREEN_USAGE_CAPTURE = 0x100,
    SCREEN_USAGE_ROTATION = 0x200
};

/* Properties, by number. */
enum {
    SCREEN_PROPERTY_BUFFER_SIZE = 5,            /* iv 2: width, height in pixels; below 1: no buffers */
    SCREEN_PROPERTY_DISPLAY = 11,               /* pv: the display of a window */
    SCREEN_PROPERTY_FORMAT = 14,                /* iv 1: SCREEN_FORMAT_* */
    SCREEN_PROPERTY_PHYSICALLY_CONTIGUOUS = 32, /* iv 1: 0 or 1 */
    SCREEN_PROPERTY_POINTER = 34,               /* pv: address of a buffer's first row */
    SCREEN_PROPERTY_POSITION = 35,              /* iv 2: x, y */
    SCREEN_PROPERTY_RENDER_BUFFERS = 37,        /* pv n: all buffers, the next one to render into first */
    SCREEN_PROPERTY_SENSITIVITY = 39,           /* iv 1 */
    SCREEN_PROPERTY_SIZE = 40,                  /* iv 2: width, height */
    SCREEN_PROPERTY_SOURCE_SIZE = 42,           /* iv 2: width, height */
    SCREEN_PROPERTY_STRIDE = 44,                /* iv 1: bytes from one row to the next */
    SCREEN_PROPERTY_TRANSPARENCY = 46,          /* iv 1: SCREEN_TRANSPARENCY_* */
    SCREEN_PROPERTY_USAGE = 48,                 /* iv 1: SCREEN_USAGE_* */
    SCREEN_PROPERTY_ZORDER = 54,                /* iv 1 */
    SCREEN_PROPERTY_PHYSICAL_ADDRESS = 55,      /* llv 1: never 0 */
    SCREEN_PROPERTY_RENDER_BUFFER_COUNT = 69,   /* iv 1 */
    SCREEN_PROPERTY_FORMAT_COUNT = 70,          /* iv 1: number of formats of a display */
    SCREEN_PROPERTY_FORMATS = 71                /* iv n: the formats of a display */
};

enum {
    SCREEN_TRANSPARENCY_SOURCE = 0,
    SCREEN_TRANSPARENCY_TEST = 1,
    SCREEN_TRANSPARENCY_SOURCE_COLOR = 2,
    SCREEN_TRANSPARENCY_SOURCE_OVER = 3,
    SCREEN_TRANSPARENCY_NONE = 4,
    SCREEN_TRANSPARENCY_DISCARD = 5
};

enum { SCREEN_SENSITIVITY_TEST = 0, SCREEN_SENSITIVITY_ALWAYS = 1, SCREEN_SENSITIVITY_NEVER = 2 };

/* How a blit samples its source when it scales. */
enum {
    SCREEN_QUALITY_NORMAL = 0,  /* smooth: between the four nearest pixels */
    SCREEN_QUALITY_FASTEST = 1, /* the nearest pixel */
    SCREEN_QUALITY_NICEST = 2   /* as NORMAL */
};

/* Attributes of blits and fills: a list of keys, each followed by its value, closed by SCREEN_BLIT_END. */
enum {
    SCREEN_BLIT_END = 0,
    SCREEN_BLIT_SOURCE_X = 1, /* source rectangle in pixels; the whole buffer where nothing is said */
    SCREEN_BLIT_SOURCE_Y = 2,
    SCREEN_BLIT_SOURCE_WIDTH = 3,
    SCREEN_BLIT_SOURCE_HEIGHT = 4,
    SCREEN_BLIT_DESTINATION_X = 5, /* destination rectangle in pixels; the whole buffer likewise */
    SCREEN_BLIT_DESTINATION_Y = 6,
    SCREEN_BLIT_DESTINATION_WIDTH = 7,
    SCREEN_BLIT_DESTINATION_HEIGHT = 8,
    SCREEN_BLIT_GLOBAL_ALPHA = 9,   /* 0 to 255; 255 where nothing is said */
    SCREEN_BLIT_TRANSPARENCY = 10,  /* SCREEN_TRANSPARENCY_*; SOURCE where nothing is said */
    SCREEN_BLIT_SCALE_QUALITY = 11, /* SCREEN_QUALITY_*; NORMAL where nothing is said */
    SCREEN_BLIT_COLOR = 12          /* 0xAARRGGBB: a fill's colour, or the one that SOURCE_COLOR leaves out */
};

/* A connection to the compositor. Destroying it destroys the windows and pixmaps still made against it. */
PLATFORM_API int screen_create_context(screen_context_t* context, int type);
PLATFORM_API int screen_destroy_context(screen_context_t context);

/* `type`: SCREEN_*_WINDOW. The window has no buffers until they are created. */
PLATFORM_API int screen_create_window_type(screen_window_t* window, screen_context_t context, int type);
PLATFORM_API int screen_destroy_window(screen_window_t window); /* with the buffers it still has */
PLATFORM_API int screen_set_window_property_iv(screen_window_t window, int property, const int* values);
PLATFORM_API int screen_get_window_property_iv(screen_window_t window, int property, int* values);
PLATFORM_API int screen_get_window_property_pv(screen_window_t window, int property, void** values);
PLATFORM_API int screen_create_window_buffers(screen_window_t window, int count); /* zero-filled */
PLATFORM_API int screen_destroy_window_buffers(screen_window_t window);

/* A pixmap has one buffer at most. */
PLATFORM_API int screen_create_pixmap(screen_pixmap_t* pixmap, screen_context_t context);
PLATFORM_API int screen_destroy_pixmap(screen_pixmap_t pixmap); /* with the buffer it still has */
PLATFORM_API int screen_set_pixmap_property_iv(screen_pixmap_t pixmap, int property, const int* values);
PLATFORM_API int screen_get_pixmap_property_iv(screen_pixmap_t pixmap, int property, int* values);
PLATFORM_API int screen_get_pixmap_property_pv(screen_pixmap_t pixmap, int property, void** values);
PLATFORM_API int screen_create_pixmap_buffer(screen_pixmap_t pixmap); /* zero-filled */
PLATFORM_API int screen_destroy_pixmap_buffer(screen_pixmap_t pixmap);

/* Buffers: POINTER (pv); STRIDE, FORMAT, BUFFER_SIZE, PHYSICALLY_CONTIGUOUS (iv); PHYSICAL_ADDRESS (llv). */
PLATFORM_API int screen_get_buffer_property_iv(screen_buffer_t buffer, int property, int* values);
PLATFORM_API int screen_get_buffer_property_pv(screen_buffer_t buffer, int property, void** values);
PLATFORM_API int screen_get_buffer_property_llv(screen_buffer_t buffer, int property, long long* values);

/*
 * Queues a copy of the source's rectangle, scaled, into the destination's; screen_flush_blits does it. Both
 * buffers' memory is held until then. `attributes` null means an empty list.
 *  - Rectangles may reach beyond their buffers: what lies outside is neither read nor written, and the rest stays
 *    where it would be otherwise. Positions lie between -16384 and 16384, sizes between 1 and 16384. In a
 *    destination whose pixels share colour, the rectangle's edges move up and left to whole groups of pixels.
 *  - Alpha is straight, not premultiplied. Transparency: SOURCE and NONE replace the destination, alpha included;
 *    TEST leaves out pixels with alpha 0 and SOURCE_COLOR those of the given colour, the others count as opaque;
 *    SOURCE_OVER blends by the source's alpha; DISCARD draws nothing. A global alpha below 255 makes what is
 *    drawn that much more transparent, and blends.
 *  - YUV is BT.601 in its limited range. A buffer may be blitted to itself.
 * Refused with EINVAL: handles, rectangles, values or keys that are not good.
 */
PLATFORM_API int screen_blit(screen_context_t context, screen_buffer_t destination, screen_buffer_t source,
                             const int* attributes);

/* Queues a fill of the DESTINATION rectangle with COLOR (0 where nothing is said); nothing is blended. */
PLATFORM_API int screen_fill(screen_context_t context, screen_buffer_t destination, const int* attributes);

/*
 * Does what is queued on the context, in order; when it returns, the memory holds the result. `flags`: 0 or
 * SCREEN_WAIT_IDLE, which mean the same here. ENOMEM: something could not be done, and was dropped. A queue that
 * has grown to 64 operations is flushed by the call that adds the last one; the end of the context drops it.
 */
enum { SCREEN_WAIT_IDLE = 1 };
PLATFORM_API int screen_flush_blits(screen_context_t context, int flags);

/* Displays: FORMAT_COUNT, FORMATS, SIZE (iv). */
PLATFORM_API int screen_get_display_property_iv(screen_display_t display, int property, int* values);

/* Objects that exist at this moment in the process, for tests. */
typedef struct screen_live_counts {
    int contexts, windows, pixmaps, buffers;
    int frames; /* memory blocks: those of buffers, and those still held for others after their buffer's end
                 */
} screen_live_counts_t;
PLATFORM_API void screen_get_live_counts(screen_live_counts_t* counts);

#ifdef __cplusplus
}
#endif
#endif
