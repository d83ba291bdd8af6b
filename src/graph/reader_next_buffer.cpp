// The reader's NextBuffer: one queued slice becomes one container of the downstream graph, copied once.
#include <cerrno>
#include <cinttypes>
#include <cstring>

#include "base/guard.hpp"
#include "base/lock.hpp"
#include "base/log.hpp"
#include "graph/pixel_formats.hpp"
#include "graph/reader.hpp"

namespace {

constexpr int32_t dequeue_timeout_ms = 100;

// One delivery under way: the container, its destination buffer and the slice that fills it.
struct delivery {
    kel_channel& channel;
    kel_reader_state& state;
    kel_reader_channel& own;
    mmf_mra* mra;
    kel_mmf_buffer* record;
    const kel_slice* slice;
    int index;  // of the next element

    void add_property(int type, uint32_t value, uint16_t value16) {
        MmfSetMraPropertyElement(mra, index++, type, value, value16);
    }
    void add_pts(int type) {
        add_property(type, static_cast<uint32_t>(slice->pts), static_cast<uint16_t>(slice->pts >> 32));
    }
};

bool is_audio(const kel_channel& channel) {
    return channel.format.media_type == MM_MEDIA_AUDIO;
}

void add_discontinuity(delivery& to) {
    kel::lock_guard lock(to.own.mutex);
    if (!to.own.discontinuity_pending) return;
    KEL_LOG_TRACE("kel_reader: Adding a data discontinuity, pts: %" PRIu64, to.slice->pts);
    to.add_pts(MM_PROPERTY_DISCONTINUITY);
    to.own.discontinuity_pending = 0;
}

bool deliver_audio(delivery& to) {
    to.add_pts(MM_PROPERTY_AUDIO_PTS);
    const auto& audio = to.slice->spec.audio;
    const bool has_samples = to.slice->buffer && audio.samples_start;
    if (!to.record->data || !has_samples) {
        KEL_LOG_ERROR(
            "kel_reader: -> NextBuffer() audio: returning MM_STATUS_ERROR: data: 0x%p, "
            "qslice->spec.audio.samples_start: 0x%p",
            to.record->data, has_samples ? audio.samples_start : nullptr);
        return false;
    }
    const kel_buffer_format& format = *kel_get_buffer_format(to.slice->buffer);
    if (format.type != KEL_BUFFER_AUDIO) return false;
    const uint64_t bytes =
        uint64_t{audio.nsamples} * static_cast<uint32_t>(kel_get_audio_sample_size(&format.audio));
    if (bytes > to.record->size) return false;
    memcpy(to.record->data, audio.samples_start, static_cast<size_t>(bytes));
    KEL_LOG_TRACE("kel_reader: -> NextBuffer() audio, pts: %" PRIu64 ", data: 0x%p, size: %d", to.slice->pts,
                  to.record->data, static_cast<int>(bytes));
    return MmfSetMraBufferElement(to.mra, to.index, to.record, to.record->data,
                                  static_cast<uint32_t>(bytes)) == 0;
}

// Whether `rows` rows of `row_bytes`, `stride` apart, lie within `size` bytes.
bool rows_fit(int64_t rows, int64_t row_bytes, int64_t stride, uint64_t size) {
    if (rows < 1 || row_bytes < 1) return true;
    return stride >= row_bytes && static_cast<uint64_t>((rows - 1) * stride + row_bytes) <= size;
}

// What the functions below give when the frame does not fit; else the bytes that the container describes.
constexpr int64_t refused = -1;

// Luma rows and then, on both sides where these ended, the interleaved chroma rows.
int64_t copy_nv12(const delivery& to) {
    const int64_t width = to.state.video_width, height = to.state.video_height;
    const int64_t size = 3 * width * height / 2;
    if (width < 0 || height < 0 || size > to.record->size) return refused;
    const kel_buffer& source = *to.slice->buffer;
    const int64_t slice_width = to.slice->spec.video.width;
    const int64_t row_bytes = slice_width < width ? slice_width : width;
    const int64_t rows = height + height / 2;
    const int64_t stride = to.own.use_destination_stride ? to.record->buffer->stride : width;
    if (row_bytes < 0 || !rows_fit(rows, row_bytes, source.stride, source.size) ||
        !rows_fit(rows, row_bytes, stride, to.record->size))
        return refused;
    auto* from = static_cast<const char*>(source.ptr);
    auto* into = static_cast<char*>(to.record->data);
    for (int64_t row = 0; row < rows; ++row, from += source.stride, into += stride)
        memcpy(into, from, static_cast<size_t>(row_bytes));
    return size;
}

int64_t blit_rgba(const delivery& to) {
    const kel_buffer& source = *to.slice->buffer;
    if (source.size > to.record->size) return refused;
    const int whole[] = {SCREEN_BLIT_END};
    screen_context_t context = source.pool->context->screen_context;
    if (screen_blit(context, to.record->buffer->screen_buffer, source.screen_buffer, whole) != 0)
        return refused;
    if (screen_flush_blits(context, 1) != 0) return refused;
    return source.size;
}

int64_t convert_to_nv12(const delivery& to) {
    kel_buffer& target = *to.record->buffer;
    const kel_video_format from = kel_get_buffer_format(to.slice->buffer)->video;
    const kel_buffer_format& into = *kel_get_buffer_format(&target);
    const int64_t size = 3 * int64_t{to.state.video_width} * to.state.video_height / 2;
    if (into.type != KEL_BUFFER_VIDEO || into.video.format != SCREEN_FORMAT_NV12) return refused;
    if (from.width < into.video.width || from.height < into.video.height) return refused;
    if (to.state.video_width < 0 || to.state.video_height < 0 || size > to.record->size) return refused;
    kel_invalidate_cache(to.slice->buffer);
    bgra8888_to_nv12(to.slice->buffer, &target);
    return size;
}

bool deliver_video(delivery& to) {
    const auto& video = to.slice->spec.video;
    to.add_pts(MM_PROPERTY_VIDEO_PTS);
    to.add_property(MM_PROPERTY_OFFSET, 0, 0);
    to.add_property(MM_PROPERTY_SIZE, static_cast<uint32_t>(video.width),
                    static_cast<uint16_t>(video.height));

    kel_buffer* source = to.slice->buffer;
    const kel_buffer_format* pool_format = source ? kel_get_buffer_format(source) : nullptr;
    const bool is_video = pool_format && pool_format->type == KEL_BUFFER_VIDEO;
    const int32_t format = is_video ? pool_format->video.format : 0;
    const uint32_t fourcc = to.channel.format.fourcc;
    KEL_LOG_TRACE("kel_reader: -> NextBuffer() video, pts: %" PRIu64 ", data: 0x%p, format: 0x%x",
                  to.slice->pts, to.record->data, static_cast<unsigned>(format));
    if (!to.record->data || !source || !source->ptr) {
        KEL_LOG_ERROR(
            "kel_reader: -> NextBuffer() video: returning MM_STATUS_ERROR: data: 0x%p, qslice->buffer->ptr: "
            "0x%p",
            to.record->data, source ? source->ptr : nullptr);
        return false;
    }

    int64_t size;
    if (format == SCREEN_FORMAT_NV12 && kel::is_nv12(fourcc)) {
        size = copy_nv12(to);
    } else if (format == SCREEN_FORMAT_RGBA8888 && fourcc == kel::fourcc_rgba) {
        size = blit_rgba(to);
    } else if (format == SCREEN_FORMAT_RGBA8888 && kel::is_nv12(fourcc)) {
        size = convert_to_nv12(to);
    } else {
        KEL_LOG_ERROR(
            "kel_reader: Can not output buffer with screen format 0x%x on channel with FOURCC 0x%x (%s).",
            static_cast<unsigned>(format), fourcc, to.state.video_fourcc);
        return false;
    }
    if (size == refused) return false;
    const int error =
        MmfSetMraBufferElement(to.mra, to.index, to.record, to.record->data, static_cast<uint32_t>(size));
    if (error != 0)
        KEL_LOG_ERROR("kel_reader: Error MmfSetMraBufferElement() failed err = %d index = %d", error,
                      to.index);
    return error == 0;
}

// Marks the channel's end; the filter has ended when every channel has.
void end_channel(kel_channel& channel, kel_reader_state& state) {
    {
        kel_reader_channel& own = kel::reader_channel(channel);
        kel::lock_guard lock(own.mutex);
        own.end_of_stream = 1;
    }
    for (int i = 0; i < state.channel_count; ++i) {
        kel_reader_channel& other = kel::reader_channel(channel.filter->outputs[i]);
        kel::lock_guard lock(other.mutex);
        if (!other.end_of_stream) return;
    }
    kel::lock_guard lock(state.status_mutex);
    kel::write_for_unlocked<int32_t>(state.status, MM_STATUS_END_OF_STREAM);
}

// Waits for a slice while the status allows it. Null with *result set when there is none.
kel_slice* next_slice(kel_channel& channel, kel_reader_state& state, kel_queue* queue, int* result) {
    int32_t status;
    while ((status = kel::read_unlocked(state.status)) & kel::dequeuing_statuses) {
        void* data = nullptr;
        if (kel_queue_dequeue_with_timeout(queue, &data, dequeue_timeout_ms))
            return static_cast<kel_slice*>(data);
        const bool closed = kel_queue_is_closed(queue);
        const uint32_t size = kel_queue_get_size(queue);
        KEL_LOG_NOTICE("kel_reader: Dequeue timed out, status: %d, closed: %s, size: %d", status,
                       closed ? "yes" : "no", static_cast<int>(size));
        if (closed && size == 0) {
            end_channel(channel, state);
            *result = MM_STATUS_END_OF_STREAM;
            return nullptr;
        }
    }
    *result = status;
    return nullptr;
}

}  // namespace

int kel::reader_next_buffer(kel_channel* channel, mmf_mra** out) {
    if (!channel || !out || !channel->private_channel) return MM_STATUS_ERROR;
    kel_reader_channel& own = reader_channel(*channel);
    kel_reader_state& state = reader_state(*channel->filter);
    {
        lock_guard lock(own.mutex);
        if (own.end_of_stream) return MM_STATUS_END_OF_STREAM;
    }
    const uint32_t media_type = channel->format.media_type;
    if (media_type != MM_MEDIA_AUDIO && media_type != MM_MEDIA_VIDEO) return MM_STATUS_ERROR;

    mmf_mra* mra = nullptr;
    if (MmfAcquireMra(own.mra_pool, &mra, 1) != 0) {
        KEL_LOG_ERROR("kel_reader: Failed to acquire an MRA.");
        return MM_STATUS_ERROR;
    }
    scope_exit release_mra([&] { MmfReleaseMra(mra); });
    kel_mmf_buffer* record = nullptr;
    if (own.allocator->acquire_buffer(own.pool, &record, 1) != 0) {
        release_mra.dismiss();
        MmfReleaseMra(mra);
        KEL_LOG_ERROR("kel_reader: Failed to acquire a buffer.");
        return MM_STATUS_ERROR;
    }
    scope_exit release_record([&] { own.allocator->release_buffer(record); });

    kel_queue* queue = is_audio(*channel) ? state.audio_queue : state.video_queue;
    int result = MM_STATUS_ERROR;
    kel_slice* slice = next_slice(*channel, state, queue, &result);
    if (!slice) return result;

    delivery to = {*channel, state, own, mra, record, slice, 0};
    add_discontinuity(to);
    const bool delivered = is_audio(*channel) ? deliver_audio(to) : deliver_video(to);
    if (kel_queue_node_destructor dispose = kel_queue_get_node_destructor(queue)) dispose(slice);
    if (!delivered) {
        KEL_LOG_ERROR("kel_reader: Setting MRA data failed.");
        return MM_STATUS_ERROR;
    }
    release_record.dismiss();
    release_mra.dismiss();
    *out = mra;
    return MM_STATUS_PLAYING;
}
