/*
 * Sine and cosine with the same bits on every machine: they use only operations that IEEE 754 rounds in one way.
 * (The C library's differ in the last bit from one processor to the next.)
 */
#ifndef EXACTMATH_H
#define EXACTMATH_H

#include <platform_export.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Sine and cosine of x radians, |x| at most 2^26; not a number for anything else. The error is below 0.8 units in
 * the last place. Thread-safety: any thread.
 */
PLATFORM_API double platform_sin(double x);
PLATFORM_API double platform_cos(double x);

#ifdef __cplusplus
}
#endif
#endif
