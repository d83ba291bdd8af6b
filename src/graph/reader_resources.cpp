// The reader's resources. Audio and video parameters take effect in the channel formats at once.
#include <cerrno>
#include <cstring>
#include <limits>

#include "graph/reader.hpp"

namespace {

constexpr int32_t most = std::numeric_limits<int32_t>::max();
constexpr mmf_integer_range buffer_minima = {0, 64, 0};
constexpr mmf_integer_range rates = {0, most, 1};
constexpr mmf_integer_range depths = {1, 32, 1};
constexpr mmf_integer_range audio_channels = {0, 10, 1};
constexpr mmf_integer_range dimensions = {-most, most, 1};
constexpr mmf_string_range fourcc_length = {4};

#define FIELD(name) offsetof(kel_reader_state, name)
constexpr kel::resource_row resources[] = {
    {"AudioQueue", "Pointer to audio queue", FIELD(audio_queue), nullptr, kel::read_only_pointer},
    {"VideoQueue", "Pointer to video queue", FIELD(video_queue), nullptr, kel::read_only_pointer},
    {"KelContext", "The KEL context to use", FIELD(head.context), nullptr, kel::read_write_pointer},
    {"MinAudioBuffers", "Minimum number of buffers to allocate for audio", FIELD(head.min_audio_buffers),
     &buffer_minima, kel::read_write_integer},
    {"MinVideoBuffers", "Minimum number of buffers to allocate for video", FIELD(head.min_video_buffers),
     &buffer_minima, kel::read_write_integer},
    {"AudioSampleRate", "Audio sample rate (samples/second)", FIELD(audio_rate), &rates,
     kel::read_write_integer},
    {"AudioBitDepth", "Audio bit depth", FIELD(audio_bits), &depths, kel::read_write_integer},
    {"AudioChannels", "Number of audio channels", FIELD(audio_channels), &audio_channels,
     kel::read_write_integer},
    {"VideoWidth", "Video width in pixels", FIELD(video_width), &dimensions, kel::read_write_integer},
    {"VideoHeight", "Video height in pixels", FIELD(video_height), &dimensions, kel::read_write_integer},
    {"VideoFrameRate", "Video frame rate (frames/second)", FIELD(video_frame_rate), &rates,
     kel::read_write_integer},
    {"VideoFormat", "Desired video output format as a FourCC string", FIELD(video_fourcc), &fourcc_length,
     kel::read_write_string},
    {"VideoColorDepth", "Video color depth in bits", FIELD(video_depth), &depths, kel::read_write_integer},
};
#undef FIELD

// Where an integer resource takes effect in the formats of the two channels, or null.
int32_t* described_word(kel_filter& filter, const void* field) {
    const kel_reader_state& state = kel::reader_state(filter);
    auto& audio = filter.outputs[0].format.audio;
    auto& video = filter.outputs[1].format.video;
    if (field == &state.audio_rate) return &audio.rate;
    if (field == &state.audio_bits) return &audio.bits_per_sample;
    if (field == &state.audio_channels) return &audio.channels;
    if (field == &state.video_width) return &video.width;
    if (field == &state.video_height) return &video.height;
    if (field == &state.video_frame_rate) return &video.frame_rate;
    if (field == &state.video_depth) return &video.bits_per_pixel;
    return nullptr;
}

// A text shorter than four characters is padded with zeros.
void set_fourcc(kel_filter& filter, const char* text) {
    auto& field = kel::reader_state(filter).video_fourcc;
    memset(field, 0, sizeof field);
    memcpy(field, text, strnlen(text, sizeof field - 1));
    uint32_t packed = 0;
    for (int i = 0; i < 4; ++i) packed = packed << 8 | static_cast<unsigned char>(field[i]);
    filter.outputs[1].format.fourcc = packed;
}

mmf_resource* get_resources(kel_filter* filter) {
    if (!filter || filter->tag != kel::filter_tag) return nullptr;
    return kel::reader_state(*filter).resources;
}

int set_resource(kel_filter* filter, const char* name, const void* value) {
    if (!filter || !name) return EINVAL;
    if (filter->tag != kel::filter_tag) return kel::resource_unknown;
    const kel::resource_row* row = kel::find_resource(resources, name);
    if (!row) return kel::resource_unknown;
    if (!(row->type & MM_RESOURCE_WRITABLE)) return kel::resource_not_writable;
    switch (row->type & MM_RESOURCE_KIND_MASK) {
        case MM_RESOURCE_STRING:
            if (!value) return EINVAL;
            set_fourcc(*filter, static_cast<const char*>(value));
            return 0;
        case MM_RESOURCE_POINTER:
            *kel::resource_field<const void*>(*row, filter->state) = value;
            return 0;
        case MM_RESOURCE_INTEGER: {
            if (!value) return EINVAL;
            auto* field = kel::resource_field<int32_t>(*row, filter->state);
            *field = *static_cast<const int32_t*>(value);
            if (int32_t* word = described_word(*filter, field)) *word = *field;
            return 0;
        }
        default:
            return EINVAL;
    }
}

}  // namespace

namespace kel {

owned<mmf_resource> make_reader_resources(kel_reader_state* state) {
    return make_resource_table(::resources, state);
}

const mmf_resource_interface reader_resource_table = {get_resources, set_resource};

}  // namespace kel
