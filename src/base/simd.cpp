// Which instructions the processor has and the operating system saves.
#include "base/simd.hpp"

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace kel {
namespace {

#if defined(__x86_64__)

constexpr uint64_t avx_state = 0x06;     // XCR0: SSE and AVX registers
constexpr uint64_t avx512_state = 0xe6;  // and the mask and wide registers

uint64_t saved_register_state() {
    unsigned eax, ebx, ecx, edx;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx) || !(ecx & bit_OSXSAVE)) return 0;
    uint32_t low, high;
    __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return static_cast<uint64_t>(high) << 32 | low;
}

simd_level detect() {
    constexpr unsigned avx512_features = bit_AVX512F | bit_AVX512BW | bit_AVX512DQ | bit_AVX512VL;
    const uint64_t state = saved_register_state();
    unsigned eax, ebx, ecx, edx;
    if ((state & avx_state) != avx_state || !__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx)) {
        return simd_level::baseline;
    }
    if ((state & avx512_state) == avx512_state && (ebx & avx512_features) == avx512_features &&
        (ecx & (bit_AVX512VNNI | bit_AVX512VBMI)) == (bit_AVX512VNNI | bit_AVX512VBMI)) {
        return simd_level::avx512;
    }
    return ebx & bit_AVX2 ? simd_level::avx2 : simd_level::baseline;
}

#else

simd_level detect() {
    return simd_level::baseline;
}

#endif

constexpr uint8_t undetected = 0xff;
uint8_t level = undetected;  // every thread that finds it undetected stores the same value

}  // namespace

simd_level detected_simd_level() {
    uint8_t known = __atomic_load_n(&level, __ATOMIC_RELAXED);
    if (known == undetected) {
        known = static_cast<uint8_t>(detect());
        __atomic_store_n(&level, known, __ATOMIC_RELAXED);
    }
    return static_cast<simd_level>(known);
}

}  // namespace kel
