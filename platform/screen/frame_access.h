/*
 * For the platform's own libraries: the pixels behind a Screen handle, held for as long as they are needed.
 * Results are as in screen.h: 0, or -1 with errno (EINVAL: stale or foreign handle or null; ENOENT: the
 * object has no buffer now). Thread-safety: any thread.
 */
#ifndef PLATFORM_SCREEN_FRAME_ACCESS_H
#define PLATFORM_SCREEN_FRAME_ACCESS_H

#include <screen/screen.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct platform_screen_frame {
    void* hold;    /* the share of the memory that platform_screen_release_frame gives back; null for none */
    void* pointer; /* first row */
    int format;    /* SCREEN_FORMAT_* */
    int width, height; /* pixels */
    int stride;        /* bytes from one row to the next */
    size_t size;       /* bytes, all planes */
} platform_screen_frame;

/*
 * Fills *frame with the pixmap's buffer, the window's buffer to render into next, or the buffer itself, and
 * holds its memory: it stays valid and at its place after the object is destroyed.
 */
PLATFORM_API int platform_screen_hold_pixmap(screen_pixmap_t pixmap, platform_screen_frame* frame);
PLATFORM_API int platform_screen_hold_window(screen_window_t window, platform_screen_frame* frame);
PLATFORM_API int platform_screen_hold_buffer(screen_buffer_t buffer, platform_screen_frame* frame);

/* Gives the hold back and empties *frame; nothing for an empty one. */
PLATFORM_API void platform_screen_release_frame(platform_screen_frame* frame);

/* Shows the window's first render buffer: it goes to the end of the list and the next one comes first. */
PLATFORM_API int platform_screen_advance_window(screen_window_t window);

#ifdef __cplusplus
}
#endif
#endif
