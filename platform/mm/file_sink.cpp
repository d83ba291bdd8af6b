// The file sink: a filter that writes the audio and the video that reach its inputs into a media file.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>

#include "aoi/ffmpeg_log.hpp"
#include "mm/file_filters.hpp"
#include "mm/stream_encoder.hpp"

namespace platform::mmf {
namespace {

constexpr uint32_t input_capabilities = 12;
constexpr uint32_t nv12_values[] = {0x3231564e, 0x4e563132};
constexpr int input_count = 2;
constexpr int frames_per_buffer = 1024;
constexpr int usual_quality = 60;

// One input: the first is audio, the second video.
struct sink_channel {
    const mmf_output_interface* upstream = nullptr;
    std::unique_ptr<stream_encoder> encoder;
    int64_t position = 0;  // microseconds: where the next buffer is expected, in the file's time
    int64_t shift = 0;     // from the stream's time to the file's
    bool started = false;
    bool ended = false;
};

struct text_resource {
    const char* name;
    const char* description;
    bool writable;
    std::string text;
    char* value = nullptr;  // what the framework reads

    void set(const std::string& new_text) {
        text = new_text;
        value = text.data();
    }
};

struct integer_resource {
    const char* name;
    const char* description;
    mmf_integer_range range;
    int32_t value;
};

struct sink_state {
    enum { path, error, audio_codec, video_codec, video_options };
    enum { quality, threads, frame_rate };
    static constexpr int text_count = 5, integer_count = 3;
    text_resource texts[text_count] = {
        {"Path", "The file to write", true, {}},
        {"Error", "The last failure in words", false, {}},
        {"AudioCodec", "Name of the audio encoder; empty: the usual one", true, {}},
        {"VideoCodec", "Name of the video encoder; empty: the usual one", true, {}},
        {"VideoOptions", "Options of the video encoder: name=value:name=value", true, {}},
    };
    integer_resource integers[integer_count] = {
        {"VideoQuality", "Quality of the video, 100 being the best", {0, 100, 1}, usual_quality},
        {"Threads", "Threads of each encoder; 0: one per processor", {0, 64, 1}, 0},
        {"FrameRate", "Frames per second; 0: as the input says", {0, 1000, 1}, 0},
    };
    mmf_resource resources[text_count + integer_count + 1] = {};
    std::mutex mutex;  // guards the texts, the file and the channels' records
    std::atomic<int> status{MM_STATUS_STOPPED};
    std::atomic<mmf_event_poster> poster{nullptr};
    std::unique_ptr<output_file> file;
    sink_channel channels[input_count];
};

sink_state& state_of(const kel_filter* filter) {
    return *static_cast<sink_state*>(filter->state);
}

sink_channel& channel_of(const kel_channel* channel) {
    return *static_cast<sink_channel*>(channel->private_channel);
}

// Ends the file as it is, keeps the failure in words and posts it. The caller holds the lock.
int fail(kel_filter* filter, const std::string& text) {
    sink_state& state = state_of(filter);
    for (sink_channel& channel : state.channels) channel.encoder.reset();
    state.file.reset();
    state.status = MM_STATUS_ERROR;
    state.texts[sink_state::error].set(state.texts[sink_state::path].text + ": " + text);
    const std::string& whole = state.texts[sink_state::error].text;
    AoLog(2, "file_sink: %s", whole.c_str());
    if (mmf_event_poster poster = state.poster) poster(filter, MM_EV_ERR, whole.c_str());
    return MM_STATUS_ERROR;
}

void fill_resources(sink_state& state) {
    constexpr uint32_t readable = MM_RESOURCE_READABLE;
    mmf_resource* entry = state.resources;
    for (text_resource& row : state.texts) {
        row.set({});
        const uint32_t rights = row.writable ? readable | MM_RESOURCE_WRITABLE : readable;
        *entry++ = {row.name, row.description, &row.value, nullptr, rights | MM_RESOURCE_STRING};
    }
    for (integer_resource& row : state.integers)
        *entry++ = {row.name, row.description, &row.value, &row.range,
                    readable | MM_RESOURCE_WRITABLE | MM_RESOURCE_INTEGER};
}

kel_filter* create() {
    take_over_ffmpeg_log();
    auto* filter = new (std::nothrow) kel_filter{};
    auto* state = new (std::nothrow) sink_state;
    auto* inputs = new (std::nothrow) kel_channel[input_count]{};
    if (!filter || !state || !inputs) {
        delete filter;
        delete state;
        delete[] inputs;
        return nullptr;
    }
    fill_resources(*state);
    static char name[] = "FileSink", audio_name[] = "FileAudioIn", video_name[] = "FileVideoIn";
    *filter = {2, name, inputs, nullptr, state, {}};
    for (int i = 0; i < input_count; ++i) {
        inputs[i].word_0 = 4;
        inputs[i].direction = 1;
        inputs[i].name = i == 0 ? audio_name : video_name;
        inputs[i].format.media_type = i == 0 ? MM_MEDIA_AUDIO : MM_MEDIA_VIDEO;
        inputs[i].format.capabilities = input_capabilities;
        inputs[i].filter = filter;
        inputs[i].private_channel = &state->channels[i];
    }
    return filter;
}

// Brings the file to its end. False after a failure. The caller holds the lock.
bool finish(kel_filter* filter) {
    sink_state& state = state_of(filter);
    if (!state.file) return true;
    std::string error;
    for (sink_channel& channel : state.channels)
        if (channel.encoder && !channel.ended && !channel.encoder->drain(error))
            return fail(filter, error), false;
    for (sink_channel& channel : state.channels) channel.encoder.reset();
    if (!state.file->finish(error)) return fail(filter, error), false;
    state.file.reset();
    return true;
}

int destroy(kel_filter* filter) {
    if (!filter) return EINVAL;
    state_of(filter).poster = nullptr;
    no_throw(false, [&] { return finish(filter); });
    delete[] filter->inputs;
    delete &state_of(filter);
    delete filter;
    return 0;
}

mmf_resource* get_resources(kel_filter* filter) {
    return filter ? state_of(filter).resources : nullptr;
}

int set_resource(kel_filter* filter, const char* name, const void* value) {
    if (!filter || !name) return EINVAL;
    sink_state& state = state_of(filter);
    std::lock_guard lock(state.mutex);
    for (text_resource& row : state.texts)
        if (std::strcmp(row.name, name) == 0) {
            if (!row.writable || state.file) return resource_not_writable;
            if (!value) return EINVAL;
            return no_throw(ENOMEM, [&] { return row.set(static_cast<const char*>(value)), 0; });
        }
    for (integer_resource& row : state.integers)
        if (std::strcmp(row.name, name) == 0) {
            if (state.file) return resource_not_writable;
            if (!value) return EINVAL;
            row.value = std::clamp(*static_cast<const int32_t*>(value), row.range.minimum, row.range.maximum);
            return 0;
        }
    return resource_unknown;
}

kel_channel* iterate_inputs(kel_filter* filter, int* cursor) {
    if (!filter || !cursor || *cursor < 0 || *cursor >= input_count) return nullptr;
    return &filter->inputs[(*cursor)++];
}

int acquire_input(kel_channel* channel) {
    if (!channel) return EINVAL;
    if (channel->flags & MM_CHANNEL_ACQUIRED) return EBUSY;
    channel->flags |= MM_CHANNEL_ACQUIRED;
    return 0;
}

int release_input(kel_channel* channel) {
    if (!channel || !(channel->flags & MM_CHANNEL_ACQUIRED)) return EINVAL;
    channel->flags &= ~static_cast<uint32_t>(MM_CHANNEL_ACQUIRED);
    std::lock_guard lock(state_of(channel->filter).mutex);
    channel_of(channel).upstream = nullptr;
    return 0;
}

bool is_supported_audio(const kel_channel_format& format) {
    const int bits = format.audio.bits_per_sample;
    return (bits == 8 || bits == 16 || bits == 32) && format.audio.channels > 0 && format.audio.rate > 0;
}

bool is_supported_video(const kel_channel_format& format) {
    return (format.fourcc == nv12_values[0] || format.fourcc == nv12_values[1]) && format.video.width > 1 &&
           format.video.height > 1;
}

int iterate_formats(kel_channel* channel, kel_channel_format* format, int complete, int* cursor) {
    if (!channel || !format || !cursor || *cursor > 0) return 0;
    ++*cursor;
    if (format->media_type != channel->format.media_type) return 0;
    const bool audio = format->media_type == MM_MEDIA_AUDIO;
    if (!(audio ? is_supported_audio(*format) : is_supported_video(*format))) return 0;
    format->capabilities = input_capabilities;
    if (audio && complete && format->buffer_size <= 0)
        format->buffer_size =
            format->audio.channels * (format->audio.bits_per_sample / 8) * frames_per_buffer;
    return MM_FORMAT_ACCEPTED;
}

int set_format(kel_channel* channel, const kel_channel_format* format) {
    if (!channel || !format) return EINVAL;
    channel->format = *format;
    channel->flags |= MM_CHANNEL_INPUT_SET;
    return 0;
}

int connect_output(kel_channel* channel, const mmf_output_interface* upstream) {
    if (!channel || !upstream) return EINVAL;
    std::lock_guard lock(state_of(channel->filter).mutex);
    channel_of(channel).upstream = upstream;
    channel->flags |= MM_CHANNEL_INPUT_SET;
    return 0;
}

int set_memory_pool(kel_channel* channel, const kel_allocator_interface* allocator, kel_mmf_pool* pool) {
    return channel && allocator && pool ? 0 : EINVAL;
}

// The encoder for a connected input.
std::unique_ptr<stream_encoder> open_encoder(sink_state& state, const kel_channel_format& format,
                                             std::string& error) {
    const auto text = [&](int which) { return state.texts[which].text; };
    const auto number = [&](int which) { return state.integers[which].value; };
    if (format.media_type == MM_MEDIA_AUDIO)
        return audio_encoder::open(
            *state.file, {format.audio.rate, format.audio.channels, format.audio.bits_per_sample},
            {text(sink_state::audio_codec), {}, 0, number(sink_state::threads)}, error);
    const int rate = number(sink_state::frame_rate);
    return video_encoder::open(*state.file, format.video.width, format.video.height,
                               rate > 0 ? rate : format.video.frame_rate,
                               {text(sink_state::video_codec), text(sink_state::video_options),
                                number(sink_state::quality), number(sink_state::threads)},
                               error);
}

// Makes the file with a stream for every connected input. The caller holds the lock.
bool open_file(kel_filter* filter) {
    sink_state& state = state_of(filter);
    std::string error;
    state.file = output_file::create(state.texts[sink_state::path].text, error);
    for (int i = 0; i < input_count && state.file && error.empty(); ++i)
        if (state.channels[i].upstream)
            state.channels[i].encoder = open_encoder(state, filter->inputs[i].format, error);
    if (!error.empty() || !state.file->start(error)) return fail(filter, error), false;
    return true;
}

// Moves the stream's time to the file's: after a discontinuity it goes on where it was.
int64_t file_time(sink_channel& own, int64_t pts, bool discontinuity) {
    if (discontinuity && own.started) own.shift = own.position - pts;
    own.started = true;
    return pts + own.shift;
}

int64_t duration_of(const kel_channel_format& format, uint32_t bytes) {
    if (format.media_type == MM_MEDIA_VIDEO) return 1000000 / std::max(format.video.frame_rate, 1);
    const int frame_bytes = format.audio.channels * format.audio.bits_per_sample / 8;
    return int64_t{bytes} / frame_bytes * 1000000 / format.audio.rate;
}

// Writes what a container holds. The caller holds the lock.
bool consume(kel_channel& channel, mmf_mra* mra, std::string& error) {
    sink_channel& own = channel_of(&channel);
    int64_t pts = own.position - own.shift;
    bool discontinuity = false;
    int type = 0, property = 0;
    uint32_t value = 0;
    uint16_t value16 = 0;
    for (int index = 0; MmfGetMraElementType(mra, index, &type) == 0; ++index) {
        if (type == MM_ELEMENT_PROPERTY) {
            if (MmfGetMraPropertyElement(mra, index, &property, &value, &value16) != 0) continue;
            if (property == MM_PROPERTY_DISCONTINUITY) discontinuity = true;
            if (property == MM_PROPERTY_PTS || property == MM_PROPERTY_VIDEO_PTS ||
                property == MM_PROPERTY_AUDIO_PTS)
                pts = static_cast<int64_t>(value) + (int64_t{value16} << 32);
            continue;
        }
        kel_mmf_buffer* record = nullptr;
        void* data = nullptr;
        uint32_t size = 0;
        if (MmfGetMraBufferElement(mra, index, &record, &data, &size) != 0) continue;
        const int64_t time = file_time(own, pts, discontinuity);
        discontinuity = false;
        const bool is_video = channel.format.media_type == MM_MEDIA_VIDEO;
        if (!own.encoder->write(data, is_video ? record->size : size, time, error)) return false;
        own.position = time + duration_of(channel.format, size);
        pts = own.position - own.shift;
    }
    return true;
}

// The input that is behind, or null when all have ended.
kel_channel* next_input(kel_filter* filter) {
    kel_channel* behind = nullptr;
    for (int i = 0; i < input_count; ++i) {
        const sink_channel& own = channel_of(&filter->inputs[i]);
        if (!own.upstream || own.ended) continue;
        if (!behind || own.position < channel_of(behind).position) behind = &filter->inputs[i];
    }
    return behind;
}

int end_input(kel_filter* filter, sink_channel& own) {
    std::string error;
    if (own.encoder && !own.encoder->drain(error)) return fail(filter, error);
    own.ended = true;
    if (next_input(filter)) return MM_STATUS_PLAYING;
    if (!finish(filter)) return MM_STATUS_ERROR;
    state_of(filter).status = MM_STATUS_END_OF_STREAM;
    return MM_STATUS_END_OF_STREAM;
}

// Uses up what the upstream gave. The caller holds the lock.
int take(kel_filter* filter, kel_channel& channel, int given, mmf_mra* mra) {
    sink_state& state = state_of(filter);
    // What arrives after a stop belongs to no file.
    if (state.status == MM_STATUS_STOPPED || state.status == MM_STATUS_ERROR) return state.status;
    if (mra) {
        std::string error;
        if (!state.file && !open_file(filter)) return MM_STATUS_ERROR;
        if (!consume(channel, mra, error)) return fail(filter, error);
    }
    if (given == MM_STATUS_ERROR) return fail(filter, "the source failed");
    return given == MM_STATUS_END_OF_STREAM ? end_input(filter, channel_of(&channel)) : given;
}

// Pulls without the lock, so that control calls get through while the upstream waits.
int process(kel_filter* filter) {
    if (!filter) return MM_STATUS_ERROR;
    sink_state& state = state_of(filter);
    kel_channel* channel = nullptr;
    const mmf_output_interface* upstream = nullptr;
    {
        std::lock_guard lock(state.mutex);
        if (state.status != MM_STATUS_PLAYING) return state.status;
        channel = next_input(filter);
        if (!channel)
            return no_throw<int>(MM_STATUS_ERROR, [&] { return fail(filter, "nothing is connected"); });
        upstream = channel_of(channel).upstream;
    }
    mmf_mra* mra = nullptr;
    const int given = upstream->next_buffer(channel->peer, &mra);
    std::lock_guard lock(state.mutex);
    const int result = no_throw<int>(MM_STATUS_ERROR, [&] { return take(filter, *channel, given, mra); });
    if (mra) MmfReleaseMra(mra);
    return result;
}

int start(kel_filter* filter) {
    if (!filter) return EINVAL;
    sink_state& state = state_of(filter);
    std::lock_guard lock(state.mutex);
    if (!state.file)
        for (sink_channel& own : state.channels) {
            const mmf_output_interface* upstream = own.upstream;
            own = {};
            own.upstream = upstream;
        }
    state.status = MM_STATUS_PAUSED;
    return 0;
}

int stop(kel_filter* filter) {
    if (!filter) return EINVAL;
    sink_state& state = state_of(filter);
    std::lock_guard lock(state.mutex);
    const bool whole = no_throw(false, [&] { return finish(filter); });
    state.status = MM_STATUS_STOPPED;
    return whole ? 0 : EIO;
}

int change_status(kel_filter* filter, int from, int to) {
    if (!filter) return EINVAL;
    state_of(filter).status.compare_exchange_strong(from, to);
    return 0;
}

int pause(kel_filter* filter) {
    return change_status(filter, MM_STATUS_PLAYING, MM_STATUS_PAUSED);
}
int resume(kel_filter* filter) {
    return change_status(filter, MM_STATUS_PAUSED, MM_STATUS_PLAYING);
}

int get_status(kel_filter* filter) {
    return filter ? state_of(filter).status.load() : static_cast<int>(MM_STATUS_STOPPED);
}

int set_event_poster(kel_filter* filter, mmf_event_poster poster) {
    if (!filter) return EINVAL;
    state_of(filter).poster = poster;
    return 0;
}

constexpr mmf_filter_interface filter_table = {create, destroy};
constexpr mmf_input_interface input_table = {iterate_inputs, acquire_input,  release_input,  iterate_formats,
                                             set_format,     connect_output, set_memory_pool};
constexpr mmf_control_interface control_table = {start, stop, pause, resume, get_status};
constexpr mmf_resource_interface resource_table = {get_resources, set_resource};
constexpr mmf_event_interface event_table = {iterate_events, set_event_poster, enable_event};
constexpr mmf_sink_interface sink_table = {process};

constexpr AOInterface_t interfaces[] = {
    {"Name", 1, "file_sink"},
    {"Version", 100, nullptr},
    {"MediaFilter", 110, &filter_table},
    {"MediaInput", 101, &input_table},
    {"MediaControl", 101, &control_table},
    {"AOResourceAccess", 100, &resource_table},
    {"MediaEventProducer", 100, &event_table},
    {"MediaSink", 100, &sink_table},
    {nullptr, 0, nullptr},
};

}  // namespace
}  // namespace platform::mmf

const AOHandle_t* MmFileSink() {
    static const AOHandle_t* const handle = AoAddStatic(platform::mmf::interfaces);
    return handle;
}
