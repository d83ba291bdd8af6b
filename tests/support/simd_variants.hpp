// The variants of a kernel table that this processor can run, for tests that hold each against plain loops.
#pragma once

#include <vector>

#include "base/simd.hpp"

#if defined(__x86_64__)
#define KEL_TEST_SIMD_VARIANTS(name)                       \
    ::kel_test::runnable<decltype(::kel::baseline::name)>( \
        {&::kel::baseline::name, &::kel::avx2::name, &::kel::avx512::name})
#else
#define KEL_TEST_SIMD_VARIANTS(name) \
    ::kel_test::runnable<decltype(::kel::baseline::name)>({&::kel::baseline::name})
#endif

namespace kel_test {

// `variants` in the order of kel::simd_level.
template <typename Table>
std::vector<Table*> runnable(std::vector<Table*> variants) {
    const auto levels = static_cast<size_t>(kel::detected_simd_level()) + 1;
    if (levels < variants.size()) variants.resize(levels);
    return variants;
}

}  // namespace kel_test
