// The file source: a filter whose outputs carry a media file's audio as PCM and its video as NV12.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <new>
#include <thread>
#include <utility>

#include "aoi/ffmpeg_log.hpp"
#include "mm/file_filters.hpp"
#include "mm/frame_stream.hpp"
#include "mm/pcm_stream.hpp"
#include "mm/source_formats.hpp"

namespace platform::mmf {
namespace {

constexpr int mras_per_channel = 50;
constexpr int most_channels = 2;

// One output and the stream behind it.
struct source_channel {
    std::mutex mutex;  // guards the streams and the discontinuity
    std::unique_ptr<pcm_stream> audio;
    std::unique_ptr<picture_stream> video;
    const kel_allocator_interface* allocator = nullptr;
    kel_mmf_pool* pool = nullptr;
    mmf_mra_pool* mra_pool = nullptr;
    bool discontinuity = false;
    std::atomic<bool> ended{false};  // written under the lock, read by the other channel without it
};

struct source_state {
    char* path = nullptr;  // resource fields: what the framework reads
    char* error = nullptr;
    int32_t audio_bits = 16;
    int32_t threads = 0;
    int64_t* duration_address = &duration;
    int64_t duration = 0;
    std::string path_text, error_text;
    std::mutex mutex;  // guards the texts
    std::atomic<int> status{MM_STATUS_STOPPED};
    std::vector<std::unique_ptr<source_channel>> channels;
    std::atomic<mmf_event_poster> poster{nullptr};
    mmf_resource resources[6] = {};
};

constexpr mmf_integer_range bit_depths = {8, 32, 8};
constexpr mmf_integer_range thread_counts = {0, 64, 1};

// How often a channel that waits for a free buffer looks whether it was stopped.
constexpr auto waiting_step = std::chrono::milliseconds(1);
constexpr int steps_per_warning = 10000;

source_state& state_of(const kel_filter* filter) {
    return *static_cast<source_state*>(filter->state);
}

source_channel& channel_of(const kel_channel* channel) {
    return *static_cast<source_channel*>(channel->private_channel);
}

// Keeps the failure in words, for the "Error" resource, and posts it as an event.
void report(kel_filter* filter, const std::string& text) {
    source_state& state = state_of(filter);
    {
        std::lock_guard lock(state.mutex);
        state.error_text = text;
        state.error = state.error_text.data();
    }
    AoLog(3, "file_source: %s", text.c_str());
    if (mmf_event_poster poster = state.poster) poster(filter, MM_EV_ERR, text.c_str());
}

kel_filter* create() {
    take_over_ffmpeg_log();
    auto* filter = new (std::nothrow) kel_filter{};
    auto* state = new (std::nothrow) source_state;
    if (!filter || !state) {
        delete filter;
        delete state;
        return nullptr;
    }
    constexpr uint32_t readable = MM_RESOURCE_READABLE, writable = readable | MM_RESOURCE_WRITABLE;
    const mmf_resource resources[] = {
        {"Path", "The file to read", &state->path, nullptr, writable | MM_RESOURCE_STRING},
        {"AudioBitDepth", "Bits of an audio value: 8, 16 or 32", &state->audio_bits, &bit_depths,
         writable | MM_RESOURCE_INTEGER},
        {"Threads", "Threads of each decoder; 0: one per processor", &state->threads, &thread_counts,
         writable | MM_RESOURCE_INTEGER},
        {"Duration", "Pointer to the duration in microseconds", &state->duration_address, nullptr,
         readable | MM_RESOURCE_POINTER},
        {"Error", "The last failure in words", &state->error, nullptr, readable | MM_RESOURCE_STRING},
    };
    std::copy(std::begin(resources), std::end(resources), state->resources);
    static char name[] = "FileSource";
    *filter = {2, name, nullptr, nullptr, state, {}};
    return filter;
}

int destroy(kel_filter* filter) {
    if (!filter) return EINVAL;
    delete[] filter->outputs;
    delete &state_of(filter);
    delete filter;
    return 0;
}

// Opens the file anew for each stream; the outputs are those that can be decoded.
int open_file(kel_filter* filter) {
    source_state& state = state_of(filter);
    if (filter->outputs) return EBUSY;
    std::string error;
    std::vector<std::unique_ptr<source_channel>> channels;
    if (auto decoder =
            stream_decoder::open(state.path_text, stream_decoder::kind::audio, state.threads, error)) {
        state.duration = decoder->duration();
        auto channel = std::make_unique<source_channel>();
        channel->audio = pcm_stream::open(std::move(decoder), state.audio_bits, most_channels, error);
        if (channel->audio) channels.push_back(std::move(channel));
    }
    if (auto decoder =
            stream_decoder::open(state.path_text, stream_decoder::kind::video, state.threads, error)) {
        state.duration = std::max(state.duration, decoder->duration());
        auto channel = std::make_unique<source_channel>();
        channel->video = picture_stream::open(std::move(decoder), error);
        if (channel->video) channels.push_back(std::move(channel));
    }
    if (channels.empty()) {
        report(filter, state.path_text + ": " + (error.empty() ? "no audio or video in it" : error));
        return EINVAL;
    }
    if (!error.empty()) report(filter, state.path_text + ": a stream is left out: " + error);
    auto* outputs = new (std::nothrow) kel_channel[channels.size()]{};
    if (!outputs) return ENOMEM;
    static char audio_name[] = "FileAudioOut", video_name[] = "FileVideoOut";
    for (size_t i = 0; i < channels.size(); ++i) {
        kel_channel& output = outputs[i];
        output.word_0 = 4;
        output.direction = 2;
        output.name = channels[i]->audio ? audio_name : video_name;
        output.filter = filter;
        output.private_channel = channels[i].get();
        if (channels[i]->audio)
            add_audio(output.format, channels[i]->audio->format());
        else
            add_video(output.format, *channels[i]->video);
    }
    filter->outputs = outputs;
    state.channels = std::move(channels);
    return 0;
}

mmf_resource* get_resources(kel_filter* filter) {
    return filter ? state_of(filter).resources : nullptr;
}

int set_resource(kel_filter* filter, const char* name, const void* value) {
    if (!filter || !name) return EINVAL;
    source_state& state = state_of(filter);
    if (std::strcmp(name, "Path") == 0) {
        if (!value) return EINVAL;
        if (filter->outputs) return resource_not_writable;
        state.path_text = static_cast<const char*>(value);
        state.path = state.path_text.data();
        return no_throw(ENOMEM, [&] { return open_file(filter); });
    }
    if (std::strcmp(name, "AudioBitDepth") == 0) {
        const int bits = value ? *static_cast<const int32_t*>(value) : 0;
        if (bits != 8 && bits != 16 && bits != 32) return EINVAL;
        if (filter->outputs) return resource_not_writable;
        state.audio_bits = bits;
        return 0;
    }
    if (std::strcmp(name, "Threads") == 0) {
        if (!value) return EINVAL;
        if (filter->outputs) return resource_not_writable;
        const auto& range = thread_counts;
        state.threads = std::clamp(*static_cast<const int32_t*>(value), range.minimum, range.maximum);
        return 0;
    }
    const bool known = std::strcmp(name, "Duration") == 0 || std::strcmp(name, "Error") == 0;
    return known ? resource_not_writable : resource_unknown;
}

kel_channel* iterate_outputs(kel_filter* filter, int* cursor) {
    if (!filter || !cursor || *cursor < 0) return nullptr;
    if (*cursor >= static_cast<int>(state_of(filter).channels.size())) return nullptr;
    return &filter->outputs[(*cursor)++];
}

int acquire_output(kel_channel* channel) {
    if (!channel) return EINVAL;
    if (channel->flags & MM_CHANNEL_ACQUIRED) return EBUSY;
    channel->flags |= MM_CHANNEL_ACQUIRED;
    return 0;
}

int release_output(kel_channel* channel) {
    if (!channel || !(channel->flags & MM_CHANNEL_ACQUIRED)) return EINVAL;
    channel->flags &= ~static_cast<uint32_t>(MM_CHANNEL_ACQUIRED);
    return 0;
}

int iterate_formats(kel_channel* channel, kel_channel_format* format, int* cursor) {
    if (!channel || !format || !cursor || *cursor != 0) return 0;
    *cursor = 1;
    *format = channel->format;
    return 1;
}

int verify_format(kel_channel* channel, const kel_channel_format* a, const kel_channel_format* b) {
    if (!channel || !a || !b || b->media_type != channel->format.media_type) return MM_FORMAT_REFUSED;
    return 0;
}

int set_format(kel_channel* channel, const kel_channel_format* format) {
    if (!channel || !format) return EINVAL;
    channel->format = *format;
    channel->flags |= MM_CHANNEL_OUTPUT_SET;
    return 0;
}

int set_memory_pool(kel_channel* channel, const kel_allocator_interface* allocator, kel_mmf_pool* pool) {
    if (!channel || !allocator || !pool) return EINVAL;
    source_channel& own = channel_of(channel);
    own.allocator = allocator;
    own.pool = pool;
    return MmfAllocateMraPool(&own.mra_pool, channel, mras_per_channel, channel);
}

// Fills a buffer; its bytes, 0 at the end.
uint32_t fill(source_channel& own, const kel_channel_format& format, const kel_mmf_buffer& record,
              int64_t& pts) {
    if (own.audio) {
        const int frame_bytes = own.audio->format().frame_bytes();
        const int frames = own.audio->read(record.data, static_cast<int>(record.size) / frame_bytes, pts);
        return static_cast<uint32_t>(frames * frame_bytes);
    }
    const int height = format.video.height;
    // An NV12 buffer has three half-heights of rows.
    const int stride = static_cast<int>(int64_t{record.size} * 2 / (3 * int64_t{height}));
    if (stride < format.video.width || !own.video->read(record.data, stride, pts)) return 0;
    return record.size;
}

void add_property(mmf_mra* mra, int& index, int type, uint32_t value, uint16_t value16) {
    MmfSetMraPropertyElement(mra, index++, type, value, value16);
}

void describe(mmf_mra* mra, int& index, source_channel& own, const kel_channel_format& format, int64_t pts) {
    const auto low = static_cast<uint32_t>(pts);
    const auto high = static_cast<uint16_t>(pts >> 32);
    if (own.discontinuity) add_property(mra, index, MM_PROPERTY_DISCONTINUITY, low, high);
    own.discontinuity = false;
    if (own.audio) {
        add_property(mra, index, MM_PROPERTY_AUDIO_PTS, low, high);
        return;
    }
    add_property(mra, index, MM_PROPERTY_VIDEO_PTS, low, high);
    add_property(mra, index, MM_PROPERTY_OFFSET, 0, 0);
    add_property(mra, index, MM_PROPERTY_SIZE, static_cast<uint32_t>(format.video.width),
                 static_cast<uint16_t>(format.video.height));
}

void end_channel(kel_filter* filter, source_channel& own) {
    own.ended = true;
    const std::string& damage = own.audio ? own.audio->decoder().damage() : own.video->decoder().damage();
    if (!damage.empty()) report(filter, state_of(filter).path_text + ": " + damage);
    for (const auto& other : state_of(filter).channels)
        if (other.get() != &own && other->mra_pool && !other->ended) return;
    int status = state_of(filter).status;
    while (status != MM_STATUS_STOPPED &&
           !state_of(filter).status.compare_exchange_weak(status, MM_STATUS_END_OF_STREAM)) {
    }
}

// A free buffer, waited for until the filter is stopped: then null.
kel_mmf_buffer* wait_for_buffer(const kel_filter* filter, const source_channel& own) {
    for (int step = 1; state_of(filter).status != MM_STATUS_STOPPED; ++step) {
        kel_mmf_buffer* record = nullptr;
        if (own.allocator->acquire_buffer(own.pool, &record, 1) == 0) return record;
        if (step % steps_per_warning == 0) AoLog(3, "file_source: no free buffer for 10 seconds");
        std::this_thread::sleep_for(waiting_step);
    }
    return nullptr;
}

// Whether the channel has more to give. The caller holds its lock.
int outlook(const kel_channel* channel) {
    if (state_of(channel->filter).status == MM_STATUS_STOPPED) return MM_STATUS_FLUSHED;
    return channel_of(channel).ended ? MM_STATUS_END_OF_STREAM : MM_STATUS_PLAYING;
}

// A container and a buffer on their way; they go back when they are not handed over.
struct delivery {
    const source_channel& own;
    mmf_mra* mra = nullptr;
    kel_mmf_buffer* record = nullptr;

    explicit delivery(const source_channel& channel) : own(channel) {}
    ~delivery() {
        if (record) own.allocator->release_buffer(record);
        if (mra) MmfReleaseMra(mra);
    }
    delivery(const delivery&) = delete;
    delivery& operator=(const delivery&) = delete;
};

// Fills the container with the next buffer. The caller holds the channel's lock.
int fill_container(kel_channel* channel, delivery& next) {
    source_channel& own = channel_of(channel);
    if (const int status = outlook(channel); status != MM_STATUS_PLAYING) return status;
    int64_t pts = 0;
    const uint32_t bytes = fill(own, channel->format, *next.record, pts);
    if (bytes == 0) {
        end_channel(channel->filter, own);
        return MM_STATUS_END_OF_STREAM;
    }
    int index = 0;
    describe(next.mra, index, own, channel->format, pts);
    if (MmfSetMraBufferElement(next.mra, index, next.record, next.record->data, bytes) != 0) {
        report(channel->filter, "a container does not take its buffer");
        return MM_STATUS_ERROR;
    }
    next.record = nullptr;  // the container's from now on
    return MM_STATUS_PLAYING;
}

int deliver(kel_channel* channel, mmf_mra** out) {
    source_channel& own = channel_of(channel);
    {
        std::lock_guard lock(own.mutex);
        if (const int status = outlook(channel); status != MM_STATUS_PLAYING) return status;
    }
    delivery next(own);
    if (!own.mra_pool || MmfAcquireMra(own.mra_pool, &next.mra, 1) != 0) {
        report(channel->filter, "every container of the channel is out");
        return MM_STATUS_ERROR;
    }
    next.record = wait_for_buffer(channel->filter, own);
    if (!next.record) return MM_STATUS_FLUSHED;
    std::lock_guard lock(own.mutex);
    const int status = fill_container(channel, next);
    if (status == MM_STATUS_PLAYING) *out = std::exchange(next.mra, nullptr);
    return status;
}

int next_buffer(kel_channel* channel, mmf_mra** out) {
    if (!channel || !out) return MM_STATUS_ERROR;
    return no_throw<int>(MM_STATUS_ERROR, [&] { return deliver(channel, out); });
}

int set_status(kel_filter* filter, int status) {
    if (!filter) return EINVAL;
    state_of(filter).status = status;
    return 0;
}

int start(kel_filter* filter) {
    return set_status(filter, MM_STATUS_PAUSED);
}
int stop(kel_filter* filter) {
    return set_status(filter, MM_STATUS_STOPPED);
}
int pause(kel_filter* filter) {
    return set_status(filter, MM_STATUS_PAUSED);
}

int resume(kel_filter* filter) {
    if (!filter) return EINVAL;
    int paused = MM_STATUS_PAUSED;
    state_of(filter).status.compare_exchange_strong(paused, MM_STATUS_PLAYING);
    return 0;
}

int get_status(kel_filter* filter) {
    return filter ? state_of(filter).status.load() : static_cast<int>(MM_STATUS_STOPPED);
}

int get_unit(kel_filter*) {
    return 2;
}

int seek_channels(kel_filter* filter, uint64_t position) {
    source_state& state = state_of(filter);
    int result = 0;
    for (const auto& own : state.channels) {
        std::lock_guard lock(own->mutex);
        const auto target = static_cast<int64_t>(position);
        if (own->audio ? own->audio->seek(target) : own->video->seek(target)) {
            own->discontinuity = true;
            own->ended = false;
        } else {
            result = EIO;
        }
    }
    if (result != 0) report(filter, state.path_text + ": it cannot be positioned");
    int ended = MM_STATUS_END_OF_STREAM;
    state.status.compare_exchange_strong(ended, MM_STATUS_PLAYING);
    return result;
}

int seek(kel_filter* filter, uint32_t, uint64_t position) {
    return filter ? no_throw(ENOMEM, [&] { return seek_channels(filter, position); }) : EINVAL;
}

int set_event_poster(kel_filter* filter, mmf_event_poster poster) {
    if (!filter) return EINVAL;
    state_of(filter).poster = poster;
    return 0;
}

constexpr mmf_filter_interface filter_table = {create, destroy};
constexpr mmf_output_interface output_table = {iterate_outputs, acquire_output, release_output,
                                               iterate_formats, verify_format,  set_format,
                                               next_buffer,     set_memory_pool};
constexpr mmf_control_interface control_table = {start, stop, pause, resume, get_status};
constexpr mmf_seeker_interface seeker_table = {get_unit, seek};
constexpr mmf_resource_interface resource_table = {get_resources, set_resource};
constexpr mmf_event_interface event_table = {iterate_events, set_event_poster, enable_event};

constexpr AOInterface_t interfaces[] = {
    {"Name", 1, "file_source"},
    {"Version", 100, nullptr},
    {"MediaFilter", 110, &filter_table},
    {"MediaOutput", 101, &output_table},
    {"MediaControl", 101, &control_table},
    {"MediaSeeker", 102, &seeker_table},
    {"AOResourceAccess", 100, &resource_table},
    {"MediaEventProducer", 100, &event_table},
    {nullptr, 0, nullptr},
};

}  // namespace
}  // namespace platform::mmf

const AOHandle_t* MmFileSource() {
    static const AOHandle_t* const handle = AoAddStatic(platform::mmf::interfaces);
    return handle;
}
