// A frame of BGRA pixels into an NV12 frame.
#include <kel.h>

#include "image/nv12_kernels.hpp"

void bgra8888_to_nv12(const kel_buffer* src, kel_buffer* dst) {
    const kel_video_format& format = kel_get_buffer_format(dst)->video;
    if (format.width < 2 || format.height < 2) return;
    const auto source_stride = static_cast<ptrdiff_t>(src->stride);
    const auto stride = static_cast<ptrdiff_t>(dst->stride);
    const auto* pixels = static_cast<const uint8_t*>(src->ptr);
    auto* luma = static_cast<uint8_t*>(dst->ptr);
    uint8_t* chroma = luma + format.height * stride;
    const auto convert = kel::best_nv12_kernels().convert;
    for (int32_t left = format.height / 2; left > 0; --left) {
        const size_t next = left > 1 ? static_cast<size_t>(2 * source_stride) : 0;
        convert({pixels, pixels + source_stride, luma, luma + stride, chroma,
                 static_cast<size_t>(format.width / 2), next});
        pixels += 2 * source_stride;
        luma += 2 * stride;
        chroma += stride;
    }
}
