/* Atomic operations on plain words. */
#ifndef ATOMIC_H
#define ATOMIC_H

#include <platform_export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Adds `value` to `*word` and returns what it held before. Thread-safety: any thread. */
PLATFORM_API unsigned atomic_add_value(volatile unsigned* word, unsigned value);

#ifdef __cplusplus
}
#endif
#endif
