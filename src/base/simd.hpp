// Kernels for the processor at hand. Each *_kernels.cpp file is compiled once per level, into a namespace of that
// level's name, and gives one table of functions there; the best level that the processor has is chosen at run time.
//
// What a kernel file calls must be its own (unnamed namespace, or intrinsics): an inline function shared with other
// files could reach them compiled for a processor that they must not count on.
#pragma once

#include <cstdint>

// Before a loop: no iteration uses what another one wrote, so it may be vectorised. An output may still be an input
// of the same loop, index by index.
#if defined(__clang__)
#define KEL_INDEPENDENT_ITERATIONS _Pragma("clang loop vectorize(assume_safety)")
#else
#define KEL_INDEPENDENT_ITERATIONS _Pragma("GCC ivdep")
#endif

namespace kel {

enum class simd_level : uint8_t {
    baseline,  // what every processor of the architecture has; on ARM also NEON where built for it
    avx2,
    avx512,  // F, BW, DQ, VL, VNNI and VBMI
};

// The best level of this processor and operating system. Thread-safety: any thread.
simd_level detected_simd_level();

#if defined(__x86_64__)
// Declares `Type name` at every level: KEL_SIMD_VARIANTS(mixer_kernels, mixer_table).
#define KEL_SIMD_VARIANTS(Type, name) \
    namespace baseline {              \
    extern const Type name;           \
    }                                 \
    namespace avx2 {                  \
    extern const Type name;           \
    }                                 \
    namespace avx512 {                \
    extern const Type name;           \
    }

// The one of them to use here.
#define KEL_SIMD_BEST(name)                                                          \
    (::kel::detected_simd_level() == ::kel::simd_level::avx512 ? ::kel::avx512::name \
     : ::kel::detected_simd_level() == ::kel::simd_level::avx2 ? ::kel::avx2::name   \
                                                               : ::kel::baseline::name)
#else
#define KEL_SIMD_VARIANTS(Type, name) \
    namespace baseline {              \
    extern const Type name;           \
    }
#define KEL_SIMD_BEST(name) (::kel::baseline::name)
#endif

}  // namespace kel
