/* Add-on interfaces: registration of interface lists and the one log call of the system. */
#ifndef AOI_AOI_H
#define AOI_AOI_H

#include <stdarg.h>

#include <platform_export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* One named, versioned interface of an add-on; a list ends with an entry whose name is null. */
typedef struct AOInterface {
    const char* name;
    int version;
    const void* table; /* callback table; for "Name" the add-on's name string; may be null */
} AOInterface_t;

/* A registered interface list. */
typedef struct AOHandle AOHandle_t;

/*
 * Registers an interface list for the life of the process; the list is not copied and must stay valid.
 * Returns its handle, or null with errno set: EINVAL (null list, or no "Name" entry), ENOMEM.
 * Thread-safety: any thread.
 */
PLATFORM_API AOHandle_t* AoAddStatic(const AOInterface_t* interfaces);

/*
 * Looks an interface up by name. Returns its entry, or null with errno EINVAL (null or foreign handle, null
 * name) or ESRCH (no such interface). Thread-safety: any thread.
 */
PLATFORM_API const AOInterface_t* AoGetInterface(const AOHandle_t* handle, const char* name);

/* Number of lists registered so far. Thread-safety: any thread. */
PLATFORM_API unsigned AoCountStatic(void);

/*
 * Writes one message. Levels: 2 errors, 3 non-fatal problems, 5 and 6 information, 7 tracing; a message whose
 * level is above the threshold is dropped before it is formatted. The message carries no line end. errno is
 * kept. Thread-safety: any thread.
 */
PLATFORM_API void AoLog(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));
PLATFORM_API void AoLogV(int level, const char* format, va_list arguments)
    __attribute__((format(printf, 2, 0)));

/* Sets the highest level that is written (3 at start) and returns the one before. Thread-safety: any thread.
 */
PLATFORM_API int AoLogSetThreshold(int level);

/*
 * Sends messages to `sink` instead of standard error; null restores standard error. The sink receives whole
 * formatted messages, one at a time, and must not log itself. The call returns when no thread is inside the
 * previous sink any more. Thread-safety: any thread.
 */
typedef void (*AoLogSink)(void* argument, int level, const char* message);
PLATFORM_API void AoLogSetSink(AoLogSink sink, void* argument);

#ifdef __cplusplus
}
#endif
#endif
