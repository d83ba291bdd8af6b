// BGRA to NV12, two rows at a time.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/simd.hpp"

namespace kel {

// Two rows of BGRA pixels and the rows that they become.
struct nv12_row_pair {
    const uint8_t* upper;  // 8 bytes for each block
    const uint8_t* lower;
    uint8_t* upper_luma;  // 2 bytes for each block
    uint8_t* lower_luma;
    uint8_t* chroma;  // 2 bytes for each block: U, V
    size_t blocks;    // of 2 by 2 pixels
    size_t
        next_distance;  // bytes from these source rows to the pair that follows, fetched ahead; 0: none follows
};

struct nv12_kernels {
    void (*convert)(const nv12_row_pair& rows);
};

KEL_SIMD_VARIANTS(nv12_kernels, nv12_table)

inline const nv12_kernels& best_nv12_kernels() {
    return KEL_SIMD_BEST(nv12_table);
}

}  // namespace kel
