// How libswscale is asked for the same bits on every processor.
#pragma once

extern "C" {
#include <libswscale/swscale.h>
}

namespace platform {

inline constexpr int exact_scaling = SWS_ACCURATE_RND | SWS_BITEXACT | SWS_FULL_CHR_H_INP;

// A filter that changes nothing, except that libswscale keeps to its general path: the short cuts that it has for YUV
// of equal sizes round differently from processor to processor.
inline SwsFilter* no_short_cuts() {
    static double coefficients[] = {0, 1, 0};
    static SwsVector identity = {coefficients, 3};
    static SwsFilter filter = {&identity, nullptr, nullptr, nullptr};
    return &filter;
}

}  // namespace platform
