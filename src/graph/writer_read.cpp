// Pulling slices from a writer: each container of the upstream filter is taken apart, element by element.
#include <cerrno>

#include "base/lock.hpp"
#include "base/log.hpp"
#include "graph/writer.hpp"

namespace {

constexpr int end_of_data = 79;
constexpr int not_playing = 11;

void take_property(kel_writer_state& state, kel_writer_channel& own, int index) {
    int type = 0;
    uint32_t value = 0;
    uint16_t value16 = 0;
    if (MmfGetMraPropertyElement(own.mra, index, &type, &value, &value16) != 0) return;
    switch (type) {
        case MM_PROPERTY_PTS:
        case MM_PROPERTY_VIDEO_PTS:
        case MM_PROPERTY_AUDIO_PTS: {
            kel::lock_guard lock(state.mutex);
            own.base_pts = value + (uint64_t{value16} << 32);
            own.samples = 0;
            break;
        }
        case MM_PROPERTY_SIZE:
            own.width = value;
            own.height = value16;
            break;
        case MM_PROPERTY_OFFSET:
            own.x = value;
            own.y = value16;
            break;
        default:
            break;
    }
}

void view_audio(kel_writer_channel& own, const kel_audio_format& format, void* data, uint32_t size,
                kel_slice& slice) {
    const uint32_t frames = size / static_cast<uint32_t>(kel_get_audio_sample_size(&format));
    const int64_t elapsed = kel_get_audio_pts_from_nsamples(format.rate, static_cast<int64_t>(own.samples));
    slice.pts = own.base_pts + static_cast<uint64_t>(elapsed);
    slice.spec.audio.samples_start = data;
    slice.spec.audio.nsamples = frames;
    own.samples += frames;
}

void view_video(const kel_writer_channel& own, kel_slice& slice) {
    slice.pts = own.base_pts;
    auto& video = slice.spec.video;
    video.x = static_cast<int32_t>(own.x);
    video.y = own.y;
    video.width = video.frame_width = static_cast<int32_t>(own.width);
    video.height = video.frame_height = own.height;
}

// The slice for a buffer element; false when there is none to see.
bool take_buffer(kel_writer_state& state, kel_writer_channel& own, int index, kel_slice& slice) {
    kel_mmf_buffer* record = nullptr;
    void* data = nullptr;
    uint32_t size = 0;
    if (MmfGetMraBufferElement(own.mra, index, &record, &data, &size) != 0 || !record || !record->buffer)
        return false;
    slice.buffer = record->buffer;
    const kel_buffer_format& format = *kel_get_buffer_format(record->buffer);
    kel::lock_guard lock(state.mutex);  // a seek changes the time base in another thread
    if (format.type == KEL_BUFFER_AUDIO)
        view_audio(own, format.audio, data, size, slice);
    else if (format.type == KEL_BUFFER_VIDEO)
        view_video(own, slice);
    return true;
}

// Reads on in the current container until a buffer; a container without any left is released.
bool next_slice(kel_writer_state& state, kel_writer_channel& own, kel_slice& slice) {
    if (!own.mra) return false;
    int type = 0;
    while (MmfGetMraElementType(own.mra, own.element, &type) == 0) {
        const int index = own.element++;
        if (type == MM_ELEMENT_BUFFER) {
            if (take_buffer(state, own, index, slice)) return true;
        } else {
            take_property(state, own, index);
        }
    }
    MmfReleaseMra(own.mra);
    own.mra = nullptr;
    return false;
}

bool ends(int32_t result) {
    return result == MM_STATUS_ERROR || result == MM_STATUS_END_OF_STREAM || result == MM_STATUS_FLUSHED;
}

void set_ended(kel_writer_state& state, kel_writer_channel& own, int32_t status) {
    kel::lock_guard lock(state.mutex);
    if (kel::read_unlocked(own.status) != MM_STATUS_FLUSHED) kel::write_for_unlocked(own.status, status);
}

}  // namespace

int kel_writer_read_slice(kel_channel* channel, kel_slice* slice) {
    if (!channel || !slice || !kel::is_writer(channel->filter)) return EINVAL;
    kel_writer_state& state = kel::writer_state(*channel->filter);
    kel_writer_channel& own = kel::writer_channel(*channel);
    for (;;) {
        const int32_t status = kel::read_unlocked(own.status);
        switch (status) {
            case MM_STATUS_FLUSHED:
                slice->buffer = nullptr;
                kel::write_for_unlocked<int32_t>(own.status, MM_STATUS_STOPPED);
                return 0;
            case MM_STATUS_PAUSE_PENDING:
                slice->buffer = nullptr;
                kel::write_for_unlocked<int32_t>(own.status, MM_STATUS_PAUSED);
                return 0;
            case MM_STATUS_END_OF_STREAM:
                slice->buffer = nullptr;
                return end_of_data;
            default:
                break;
        }
        int32_t result = status;
        if (status == MM_STATUS_PLAYING) {
            if (!own.mra) {
                if (!own.upstream) return EINVAL;
                own.element = 0;
                result = own.upstream->next_buffer(channel->peer, &own.mra);
            }
            if (next_slice(state, own, *slice)) return 0;
        }
        slice->buffer = nullptr;
        if (ends(result)) {
            set_ended(state, own, result);
            return end_of_data;
        }
        if (kel::read_unlocked(own.status) != MM_STATUS_PLAYING) return not_playing;
    }
}
