// The writer's input channels: their making, negotiation and connection.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/guard.hpp"
#include "base/log.hpp"
#include "graph/pixel_formats.hpp"
#include "graph/writer.hpp"

namespace {

constexpr uint32_t input_capabilities = 12;
constexpr int32_t proposed_frames = 1024;
constexpr int display_formats_room = 19;
constexpr int probe_usage = 0x84;

// Results of the input callbacks beside errno values.
constexpr int no_buffer_size = 4005;
constexpr int already_acquired = 4008;
constexpr int not_acquired = 4009;
constexpr int released_twice = 4010;
constexpr int format_already_set = 4011;
constexpr int not_connected = 4012;
constexpr int unsupported = 48;

bool make_channel(kel_channel& channel, kel_filter* filter, uint32_t media_type, int32_t number) {
    auto own = kel::make_record<kel_writer_channel>();
    if (!own) return false;
    char name[32];
    snprintf(name, sizeof name, media_type == MM_MEDIA_AUDIO ? "KELOutAudio%d" : "KELOutVideo%d", number);
    channel.name = strdup(name);
    if (!channel.name) return false;
    channel.word_0 = 4;
    channel.direction = 1;
    channel.filter = filter;
    channel.format.media_type = media_type;
    channel.format.capabilities = input_capabilities;
    channel.private_channel = own.release();
    return true;
}

void free_channels(kel_channel* channels, int32_t count) {
    for (int32_t i = 0; i < count; ++i) {
        free(channels[i].private_channel);
        free(channels[i].name);
    }
    free(channels);
}

// All channels or none; the next iteration tries again.
void create_channels(kel_filter* filter, kel_writer_state& state) {
    const int32_t audio = state.audio_count, total = audio + state.video_count;
    if (total == 0) return;
    auto channels = kel::make_records<kel_channel>(static_cast<std::size_t>(total));
    if (!channels) return;
    for (int32_t i = 0; i < total; ++i) {
        const bool made = i < audio ? make_channel(channels[i], filter, MM_MEDIA_AUDIO, i)
                                    : make_channel(channels[i], filter, MM_MEDIA_VIDEO, i - audio);
        if (!made) {
            free_channels(channels.release(), total);
            return;
        }
    }
    filter->inputs = channels.release();
    state.created_audio = audio;
    state.created_video = total - audio;
    state.channels_created = 1;
}

kel_channel* iterate_inputs(kel_filter* filter, int* cursor) {
    if (!filter || !cursor) return nullptr;
    kel_writer_state& state = kel::writer_state(*filter);
    if (!state.channels_created) create_channels(filter, state);
    if (*cursor < 0 || *cursor >= kel::writer_channel_total(state)) return nullptr;
    return &filter->inputs[(*cursor)++];
}

int acquire_input(kel_channel* channel) {
    if (!channel) return EINVAL;
    if (channel->flags & MM_CHANNEL_ACQUIRED) return already_acquired;
    channel->flags |= MM_CHANNEL_ACQUIRED;
    return 0;
}

int release_input(kel_channel* channel) {
    if (!channel || !channel->filter) return EINVAL;
    KEL_LOG_INFO("kel_writer: ReleaseInputChannel.");
    kel_writer_channel& own = kel::writer_channel(*channel);
    if (own.mra) {
        KEL_LOG_INFO("kel_writer: ReleaseInputChannel: MmfReleaseMra");
        MmfReleaseMra(own.mra);
        own.mra = nullptr;
    }
    if (!(channel->flags & MM_CHANNEL_ACQUIRED)) return released_twice;
    channel->flags &= ~static_cast<uint32_t>(MM_CHANNEL_ACQUIRED);
    return 0;
}

// Asks a window for the formats of its display. False when no window of the frame writer's kind can be had.
bool probe_display(const kel_context& context, int32_t screen_format) {
    screen_window_t window = nullptr;
    if (const int error = screen_create_window_type(&window, context.screen_context, SCREEN_CHILD_WINDOW)) {
        KEL_LOG_ERROR("frame_writer:  screen_window_create failed (err = %d)", error);
        return false;
    }
    kel::scope_exit destroy([&] { screen_destroy_window(window); });
    if (const int error = screen_set_window_property_iv(window, SCREEN_PROPERTY_USAGE, &probe_usage)) {
        KEL_LOG_ERROR(
            "frame_writer:  screen_set_window_property_iv(SCREEN_PROPERTY_USAGE) to %08X failed (err = %d)",
            static_cast<unsigned>(probe_usage), error);
        return false;
    }
    void* display = nullptr;
    int count = 0;
    int formats[display_formats_room];
    if (screen_get_window_property_pv(window, SCREEN_PROPERTY_DISPLAY, &display) != 0) return true;
    auto* handle = static_cast<screen_display_t>(display);
    if (screen_get_display_property_iv(handle, SCREEN_PROPERTY_FORMAT_COUNT, &count) != 0) return true;
    if (count > display_formats_room) return true;
    if (screen_get_display_property_iv(handle, SCREEN_PROPERTY_FORMATS, formats) != 0) return true;
    KEL_LOG_INFO("frame_writer: Looking for format %d.  Window supports %d formats", screen_format, count);
    return true;
}

int negotiate_audio(kel_channel_format& format, int complete) {
    if (complete && format.buffer_size <= 0)
        format.buffer_size = format.audio.channels * (format.audio.bits_per_sample / 8) * proposed_frames;
    return MM_FORMAT_ACCEPTED;
}

int negotiate_video(const kel_channel_format& format, const kel_context& context) {
    const kel::fourcc_text text(format.fourcc);
    KEL_LOG_INFO("kel_writer given a FOURCC of '%-4.4s'.", text.characters);
    KEL_LOG_INFO("Translating FOURCC '%-4.4s'", text.characters);
    const uint32_t code =
        kel_fourcc_to_mmf_format(format.fourcc, format.video.bits_per_pixel, format.variant);
    if (code == 0) return 0;
    const int32_t screen_format = kel_mmf_to_screen_format(code);
    if (!probe_display(context, screen_format)) return 0;
    const bool accepted = screen_format == SCREEN_FORMAT_YVYU || screen_format == SCREEN_FORMAT_UYVY ||
                          screen_format == SCREEN_FORMAT_NV12;
    return accepted ? MM_FORMAT_ACCEPTED : 0;
}

int iterate_formats(kel_channel* channel, kel_channel_format* format, int complete, int* cursor) {
    if (!channel || !format || !cursor || *cursor > 0) return 0;
    ++*cursor;
    if (format->media_type != channel->format.media_type) return 0;
    const kel_context* context = kel::writer_state(*channel->filter).head.context;
    if (!context) {
        KEL_LOG_ERROR("kel_writer: no kel_context set");
        return 0;
    }
    format->capabilities = input_capabilities;
    return format->media_type == MM_MEDIA_AUDIO ? negotiate_audio(*format, complete)
                                                : negotiate_video(*format, *context);
}

int set_format(kel_channel* channel, const kel_channel_format* format) {
    if (!channel || !format) return EINVAL;
    if (!(channel->flags & MM_CHANNEL_ACQUIRED)) return not_acquired;
    if (channel->flags & MM_CHANNEL_INPUT_SET) return format_already_set;
    if (format->buffer_size < 1) return no_buffer_size;
    if (format->audio.rate < 0) return unsupported;
    channel->flags |= MM_CHANNEL_INPUT_SET;
    channel->format = *format;
    return 0;
}

int connect_output(kel_channel* channel, const mmf_output_interface* upstream) {
    if (!channel || !upstream) return EINVAL;
    channel->flags |= MM_CHANNEL_INPUT_SET;
    kel::writer_channel(*channel).upstream = upstream;
    return 0;
}

int set_memory_pool(kel_channel* channel, const kel_allocator_interface* allocator, kel_mmf_pool* pool) {
    if (!channel || !channel->filter || !allocator || !pool) return EINVAL;
    if (!(channel->flags & MM_CHANNEL_ACQUIRED)) return not_acquired;
    if (!(channel->flags & MM_CHANNEL_INPUT_SET)) return not_connected;
    kel_writer_channel& own = kel::writer_channel(*channel);
    own.allocator = allocator;
    own.pool = pool;
    return 0;
}

kel_channel* input_channel(kel_filter* filter, int32_t index, int32_t first, int32_t count) {
    if (!filter->inputs || index < 0 || index >= count) return nullptr;
    return &filter->inputs[first + index];
}

}  // namespace

namespace kel {

const mmf_input_interface writer_input_table = {iterate_inputs,  acquire_input, release_input,
                                                iterate_formats, set_format,    connect_output,
                                                set_memory_pool};

}  // namespace kel

kel_channel* kel_writer_get_audio_channel(kel_filter* filter, int32_t index) {
    if (!kel::is_writer(filter)) return nullptr;
    return input_channel(filter, index, 0, kel::writer_state(*filter).created_audio);
}

kel_channel* kel_writer_get_video_channel(kel_filter* filter, int32_t index) {
    if (!kel::is_writer(filter)) return nullptr;
    const kel_writer_state& state = kel::writer_state(*filter);
    return input_channel(filter, index, state.created_audio, state.created_video);
}

kel_channel_format* kel_writer_get_format(kel_channel* channel) {
    return channel && kel::is_writer(channel->filter) ? &channel->format : nullptr;
}
