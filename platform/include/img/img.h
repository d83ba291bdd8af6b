/*
 * The image library: pictures decoded from files and streams, scaled on the way into the caller's memory.
 * Reads PNG, JPEG (turned upright as its EXIF data says), BMP, GIF (first frame) and WebP (still pictures).
 *
 * Results are IMG_ERR_*. A picture that is damaged or incomplete is refused, not delivered in part.
 * Thread-safety: any function from any thread; one stream from one thread at a time.
 */
#ifndef IMG_IMG_H
#define IMG_IMG_H

#include <stddef.h>
#include <stdint.h>

#include <platform_export.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    IMG_ERR_OK = 0,
    IMG_ERR_PARM = 1,    /* a null or stale argument, or an image record without what it must have */
    IMG_ERR_FILE = 2,    /* the file cannot be opened or read; errno says why */
    IMG_ERR_FORMAT = 3,  /* none of the formats that can be read */
    IMG_ERR_CORRUPT = 4, /* damaged or incomplete */
    IMG_ERR_LIMIT =
        5,           /* larger than 64 Mi pixels or 128 MiB of file, or more pixels than its file can hold */
    IMG_ERR_MEM = 6, /* out of memory; what a callout returns when it fails */
    IMG_ERR_ABORTED = 7 /* a callout refused */
};

/* Pixel formats. */
typedef uint32_t img_format_t;
#define IMG_FMT_ARGB8888 0x1520u /* four bytes: blue, green, red, alpha (not premultiplied) */

/* img_t.flags: which fields count. */
#define IMG_FORMAT 2u
#define IMG_W 4u
#define IMG_H 8u
#define IMG_DIRECT 16u /* access.direct */

typedef struct img {
    union {
        struct {
            void* data;      /* first row */
            unsigned stride; /* bytes from one row to the next */
        } direct;
    } access;
    unsigned w, h; /* pixels */
    img_format_t format;
    unsigned flags;
} img_t;

/*
 * Called while a picture is decoded, in this order, each where it is not null.
 * choose_format: *img has the picture's own size and format; the callout sets the size (1 by 1 at least) and the
 *   format, one of the `count` offered ones, in which it wants it, and gives it memory (IMG_DIRECT). It returns
 *   `count`, or IMG_ERR_MEM, which ends the decoding.
 * frame: the picture is complete.
 */
typedef struct img_decode_callouts {
    unsigned (*choose_format)(void* data, img_t* img, const img_format_t* formats, unsigned count);
    void (*frame)(void* data, img_t* img);
    void* data; /* handed to the callouts */
} img_decode_callouts_t;

/* A use of the library. */
typedef struct img_lib* img_lib_t;
PLATFORM_API int img_lib_attach(img_lib_t* ilib);
PLATFORM_API int img_lib_detach(img_lib_t ilib);

/* A source of bytes, read from where it stands to its end. Null, with errno, when it cannot be opened. */
typedef struct io_stream io_stream_t;
PLATFORM_API io_stream_t* io_open_file(const char* path);
PLATFORM_API io_stream_t* io_open_memory(const void* bytes,
                                         size_t size); /* not copied: must stay until io_close */
PLATFORM_API void io_close(io_stream_t* stream);

/*
 * Decodes the one picture in the stream or file, scales it to the size in *img and writes it to the memory there:
 * exactly h rows of w pixels, nothing between them. choose_format fills *img; without callouts, or without that
 * one, *img comes with all four flags set. On failure nothing, or a part, of the rows has been written.
 */
PLATFORM_API int img_load_resize(img_lib_t ilib, io_stream_t* stream, const img_decode_callouts_t* callouts,
                                 img_t* img);
PLATFORM_API int img_load_resize_file(img_lib_t ilib, const char* path, const img_decode_callouts_t* callouts,
                                      img_t* img);

#ifdef __cplusplus
}
#endif
#endif
