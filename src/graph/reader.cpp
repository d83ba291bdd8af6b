// The reader: a source filter whose channels carry what the client has queued.
#include "graph/reader.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/guard.hpp"
#include "base/lock.hpp"
#include "base/log.hpp"

namespace {

constexpr uint8_t output_count = 2;
constexpr uint32_t audio_queue_limit = 20;
constexpr uint32_t video_queue_limit = 5;
constexpr int32_t reader_usage = 0x10E;
constexpr uint32_t audio_fourcc = 0x52415741;
constexpr int mras_per_channel = 50;
constexpr uint32_t seek_unit = 4;

// Results of the output callbacks beside errno values.
constexpr int already_acquired = 4013;
constexpr int not_acquired = 4014;
constexpr int released_twice = 4015;
constexpr int format_already_set = 4016;
constexpr int format_not_set = 4017;

struct output_row {
    const char* name;
    uint32_t media_type;
    uint32_t fourcc;
    uint32_t word_410;
};

constexpr output_row outputs[output_count] = {
    {"RawAudioOut", MM_MEDIA_AUDIO, audio_fourcc, 2},
    {"RawVideoOut", MM_MEDIA_VIDEO, 0, 1},
};

// Number of the next reader's name.
int next_number;

void init_channel(kel_channel& channel, const output_row& row, kel_filter* filter) {
    channel.word_0 = 4;
    channel.direction = 2;
    channel.filter = filter;
    kel_channel_format& format = channel.format;
    format.media_type = row.media_type;
    format.fourcc = row.fourcc;
    format.word_40c = 2;
    format.word_410 = row.word_410;
    format.word_414 = 768;
    format.word_418 = 0x80000;
    format.flags = 1;
    format.word_448 = 0;
}

bool make_channel(kel_channel& channel, const output_row& row, kel_filter* filter) {
    auto own = kel::make_record<kel_reader_channel>();
    if (!own) return false;
    if (const int error = pthread_mutex_init(&own->mutex, nullptr)) {
        KEL_LOG_ERROR("kel_reader: Unable to create channel mutex. (err = %d)", error);
        return false;
    }
    channel.private_channel = own.release();
    channel.name = strdup(row.name);
    init_channel(channel, row, filter);
    return channel.name != nullptr;
}

void destroy_channel(kel_channel& channel) {
    free(channel.name);
    auto* own = static_cast<kel_reader_channel*>(channel.private_channel);
    if (!own) return;
    pthread_mutex_destroy(&own->mutex);
    free(own);
}

// Releases whatever of a reader exists.
void destroy_parts(kel_filter* filter) {
    if (auto* state = static_cast<kel_reader_state*>(filter->state)) {
        pthread_mutex_destroy(&state->status_mutex);
        for (int i = 0; filter->outputs && i < state->channel_count; ++i) destroy_channel(filter->outputs[i]);
        free(filter->outputs);
        free(state->resources);
        kel_queue_destroy(state->audio_queue);
        kel_queue_destroy(state->video_queue);
        free(state);
    }
    free(filter->name);
    free(filter);
}

kel_reader_state* make_state() {
    auto state = kel::make_record<kel_reader_state>();
    if (!state) return nullptr;
    state->head.usage = reader_usage;
    if (const int error = pthread_mutex_init(&state->status_mutex, nullptr)) {
        KEL_LOG_ERROR("kel_reader: Unable to create status mutex. (err = %d)", error);
        return nullptr;
    }
    state->channel_count = output_count;
    state->status = MM_STATUS_STOPPED;
    return state.release();
}

kel_filter* create() {
    auto record = kel::make_record<kel_filter>();
    if (!record) return nullptr;
    kel_filter* filter = record.release();
    kel::scope_exit destroy([&] { destroy_parts(filter); });

    filter->tag = kel::filter_tag;
    char name[32];
    snprintf(name, sizeof name, "KEL_READER%d", next_number++);
    filter->name = strdup(name);
    if (!filter->name) return nullptr;

    filter->state = make_state();
    if (!filter->state) return nullptr;
    kel_reader_state& state = kel::reader_state(*filter);

    filter->outputs = kel::make_records<kel_channel>(output_count).release();
    if (!filter->outputs) return nullptr;
    for (int i = 0; i < output_count; ++i)
        if (!make_channel(filter->outputs[i], outputs[i], filter)) return nullptr;

    state.audio_queue = kel_queue_create_with_limit(audio_queue_limit);
    state.video_queue = kel_queue_create_with_limit(video_queue_limit);
    if (!state.audio_queue || !state.video_queue) return nullptr;

    state.resources = kel::make_reader_resources(&state).release();
    if (!state.resources) return nullptr;
    destroy.dismiss();
    return filter;
}

int destroy(kel_filter* filter) {
    if (!filter) return EINVAL;
    destroy_parts(filter);
    return 0;
}

kel_channel* iterate_outputs(kel_filter* filter, int* cursor) {
    if (!filter || !cursor || *cursor < 0 || *cursor >= kel::reader_state(*filter).channel_count)
        return nullptr;
    return &filter->outputs[(*cursor)++];
}

int acquire_output(kel_channel* channel) {
    if (!channel) return EINVAL;
    if (channel->flags & MM_CHANNEL_ACQUIRED) return already_acquired;
    channel->flags |= MM_CHANNEL_ACQUIRED;
    return 0;
}

int release_output(kel_channel* channel) {
    if (!channel) return EINVAL;
    if (!(channel->flags & MM_CHANNEL_ACQUIRED)) return released_twice;
    channel->flags &= ~static_cast<uint32_t>(MM_CHANNEL_ACQUIRED);
    return 0;
}

int propose_audio(const kel_channel& channel, kel_channel_format* format, int* cursor) {
    if (*cursor > 0) return 0;
    ++*cursor;
    const kel_reader_state& state = kel::reader_state(*channel.filter);
    *format = channel.format;
    format->audio.rate = state.audio_rate;
    format->audio.bits_per_sample = state.audio_bits;
    format->audio.channels = state.audio_channels;
    format->bit_rate = static_cast<uint32_t>(state.audio_rate) * static_cast<uint32_t>(state.audio_bits) *
                       static_cast<uint32_t>(state.audio_channels);
    format->buffer_size = static_cast<int32_t>(format->bit_rate) >> 4;  // half a second in bytes
    return 1;
}

// First with the rows one after the other, then at the buffer's own stride, then as the channel has it.
int propose_video(const kel_channel& channel, kel_channel_format* format, int* cursor) {
    if (*cursor > 2) return 0;
    const int proposal = (*cursor)++;
    *format = channel.format;
    format->buffer_size = static_cast<int32_t>(static_cast<uint32_t>(format->video.height) << 12);
    if (proposal == 0) format->flags &= ~kel::own_stride_flag;
    if (proposal == 1) format->flags |= kel::own_stride_flag;
    return 1;
}

int iterate_formats(kel_channel* channel, kel_channel_format* format, int* cursor) {
    if (!channel || !format || !cursor) return 0;
    switch (channel->format.media_type) {
        case MM_MEDIA_AUDIO:
            return propose_audio(*channel, format, cursor);
        case MM_MEDIA_VIDEO:
            return propose_video(*channel, format, cursor);
        default:
            return 0;
    }
}

int verify_format(kel_channel* channel, const kel_channel_format* a, const kel_channel_format* b) {
    if (!channel || !a || !b) return MM_FORMAT_REFUSED;
    if (b->media_type == MM_MEDIA_AUDIO && !(b->flags & kel::own_stride_flag)) return MM_FORMAT_REFUSED;
    if ((b->flags & kel::own_stride_flag) && !kel::reader_state(*channel->filter).head.context) {
        KEL_LOG_ERROR("kel_reader: No kel_context set!");
        return 0;
    }
    const bool differ = (a->capabilities ^ b->flags) & kel::own_stride_flag;
    return differ ? MM_FORMAT_REFUSED : 0;
}

int set_format(kel_channel* channel, const kel_channel_format* format) {
    if (!channel || !format) return EINVAL;
    if (!(channel->flags & MM_CHANNEL_ACQUIRED)) return not_acquired;
    if (channel->flags & MM_CHANNEL_OUTPUT_SET) return format_already_set;
    channel->format = *format;
    channel->flags |= MM_CHANNEL_OUTPUT_SET;
    kel_reader_channel& own = kel::reader_channel(*channel);
    own.buffer_size = format->buffer_size;
    own.use_destination_stride = (format->flags & kel::own_stride_flag) != 0;
    return 0;
}

int set_memory_pool(kel_channel* channel, const kel_allocator_interface* allocator, kel_mmf_pool* pool) {
    if (!channel || !channel->filter || !channel->private_channel || !allocator || !pool) return EINVAL;
    kel_reader_channel& own = kel::reader_channel(*channel);
    if (!own.buffer_size) return EINVAL;
    if (!(channel->flags & MM_CHANNEL_ACQUIRED)) return not_acquired;
    if (!(channel->flags & MM_CHANNEL_OUTPUT_SET)) return format_not_set;
    own.allocator = allocator;
    own.pool = pool;
    return MmfAllocateMraPool(&own.mra_pool, channel, mras_per_channel, channel);
}

int set_status(kel_filter* filter, int32_t status) {
    kel_reader_state& state = kel::reader_state(*filter);
    kel::lock_guard lock(state.status_mutex);
    kel::write_for_unlocked(state.status, status);
    return 0;
}

int start(kel_filter* filter) {
    return filter ? set_status(filter, MM_STATUS_PAUSED) : EINVAL;
}

int pause(kel_filter* filter) {
    return filter ? set_status(filter, MM_STATUS_PAUSED) : EINVAL;
}

int resume(kel_filter* filter) {
    if (!filter) return EINVAL;
    kel_reader_state& state = kel::reader_state(*filter);
    kel::lock_guard lock(state.status_mutex);
    if (state.status == MM_STATUS_PAUSED) kel::write_for_unlocked<int32_t>(state.status, MM_STATUS_PLAYING);
    return 0;
}

void clear_queues(kel_reader_state& state) {
    kel_queue_clear(state.audio_queue);
    kel_queue_clear(state.video_queue);
}

int stop(kel_filter* filter) {
    if (!filter) return EINVAL;
    set_status(filter, MM_STATUS_STOPPED);
    clear_queues(kel::reader_state(*filter));
    return 0;
}

int get_status(kel_filter* filter) {
    if (!filter) return MM_STATUS_STOPPED;
    kel_reader_state& state = kel::reader_state(*filter);
    kel::lock_guard lock(state.status_mutex);
    switch (state.status) {
        case MM_STATUS_END_OF_STREAM:
        case MM_STATUS_PAUSED:
        case MM_STATUS_PLAYING:
            return state.status;
        default:
            return MM_STATUS_STOPPED;
    }
}

int get_seek_unit(kel_filter*) {
    return seek_unit;
}

int seek(kel_filter* filter, uint32_t, uint64_t) {
    if (!filter) return EINVAL;
    kel_reader_state& state = kel::reader_state(*filter);
    clear_queues(state);
    for (int i = 0; i < state.channel_count; ++i) {
        kel_reader_channel& own = kel::reader_channel(filter->outputs[i]);
        kel::lock_guard lock(own.mutex);
        own.end_of_stream = 0;
        own.discontinuity_pending = 1;
    }
    return 0;
}

int copy_time(kel_filter* filter, uint64_t time, uint64_t* out) {
    if (!filter || !out) return EINVAL;
    *out = time;
    return 0;
}

}  // namespace

namespace kel {

const mmf_filter_interface reader_filter_table = {create, destroy};
const mmf_output_interface reader_output_table = {iterate_outputs,    acquire_output, release_output,
                                                  iterate_formats,    verify_format,  set_format,
                                                  reader_next_buffer, set_memory_pool};
const mmf_control_interface reader_control_table = {start, stop, pause, resume, get_status};
const mmf_seeker_interface reader_seeker_table = {get_seek_unit, seek};
const mmf_time_converter_interface reader_time_converter_table = {copy_time, copy_time};

}  // namespace kel
