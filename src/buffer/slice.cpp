// Slices: plain views of buffers.
#include <kel.h>

#include "base/guard.hpp"

void kel_init_buffer_slice(kel_slice* slice, kel_buffer* buffer) {
    if (!buffer) {
        *slice = kel_slice{};
        return;
    }
    const kel_buffer_format& format = *kel_get_buffer_format(buffer);
    if (format.type == KEL_BUFFER_VIDEO) {
        const int32_t width = format.video.width;
        const int32_t height = format.video.height;
        slice->spec.video = {
            .x = 0, .y = 0, .width = width, .height = height, .frame_width = width, .frame_height = height};
    } else if (format.type == KEL_BUFFER_AUDIO) {
        slice->spec.audio = {.nsamples = format.nsamples, .samples_start = buffer->ptr};
    }
    slice->buffer = buffer;
    slice->pts = 0;
}

kel_slice kel_slice_for_buffer(kel_buffer* buffer) {
    kel_slice slice{};
    kel_init_buffer_slice(&slice, buffer);
    return slice;
}

kel_slice* kel_create_slice_for_buffer(kel_buffer* buffer) {
    auto slice = kel::make_record<kel_slice>();
    if (slice) kel_init_buffer_slice(slice.get(), buffer);
    return slice.release();
}

kel_video_format kel_get_video_slice_format(const kel_slice* slice) {
    if (!slice->buffer) return {};
    kel_video_format format = kel_get_buffer_format(slice->buffer)->video;
    format.width = slice->spec.video.width;
    format.height = slice->spec.video.height;
    return format;
}
