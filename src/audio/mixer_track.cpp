// Tracks: how slices of any format come into the mix.
#include <kel.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "audio/mixer.hpp"
#include "audio/mixer_kernels.hpp"
#include "base/arith.hpp"
#include "base/guard.hpp"
#include "base/log.hpp"

namespace kel {
namespace {

// What a feed offers: frames from the start on, in a format, and the most frames that it may add.
struct offer {
    const uint8_t* samples;
    int32_t frames;
    int32_t most_added;
};

// What came of it: frames of the slice, frames of the mix.
struct outcome {
    int32_t taken;
    int32_t added;
};

// A converter's buffers take four times the block, at up to four bytes a value, mono perhaps as stereo, and are counted
// in 31 bits: of a slice beyond that, a part is offered.
constexpr int32_t conversion_bytes_per_value = 4 * 4 * 2;

int32_t room_of(const kel_audio_mixer_track& track) {
    return track.mixer->frames_per_buffer - track.mixed;
}

int32_t* mix_position(const kel_audio_mixer& mixer, int32_t frame) {
    return mixer.mix_buffer + mixer_values(mixer, frame);
}

const kel_audio_format* audio_format_of(const kel_slice* slice) {
    if (!slice || !slice->buffer) return nullptr;
    const kel_buffer_format* format = kel_get_buffer_format(slice->buffer);
    return format->type == KEL_BUFFER_AUDIO ? &format->audio : nullptr;
}

// Makes the track ready for slices of that format. A format without a converter is tried once, not at every feed.
void follow_format(kel_audio_mixer_track& track, const kel_audio_format& format) {
    if (!kel_audio_formats_differ(&format, &track.format)) return;
    kel_destroy_audio_converter(&track.converter);
    track.converted_frames = 0;
    track.conversion_failed = 0;
    if (kel_audio_formats_differ(&format, &track.mixer->format)) {
        track.converter = kel_create_audio_converter(&format, &track.mixer->format);
        track.conversion_failed = track.converter == nullptr;
    }
    track.format = format;
}

bool has_conversion_buffer(kel_audio_mixer_track& track, int32_t need) {
    if (track.conversion_buffer && track.conversion_capacity >= need) return true;
    free(track.conversion_buffer);  // nothing in it is needed any more
    track.conversion_buffer = nullptr;
    track.conversion_capacity = 0;
    int32_t capacity;
    if (multiply(need, 2, capacity)) {
        KEL_LOG_INFO("mix: Allocating %d bytes", capacity);
        track.conversion_buffer = static_cast<uint8_t*>(malloc(static_cast<size_t>(std::max(capacity, 1))));
    }
    if (!track.conversion_buffer) {
        KEL_LOG_ERROR("kel:   Unable to allocate audio track conversion buffer.");
        return false;
    }
    track.conversion_capacity = capacity;
    return true;
}

// Mixes frames in from where the track stands: behind the fill there is nothing to add to.
void mix_in(const kel_audio_mixer_track& track, const mixer_input& input, const uint8_t* samples,
            size_t value_bytes, int32_t frames) {
    const kel_audio_mixer& mixer = *track.mixer;
    const int32_t added = std::clamp(mixer.fill - track.mixed, 0, frames);
    const size_t values = mixer_values(mixer, added);
    input.add(mix_position(mixer, track.mixed), samples, values);
    input.put(mix_position(mixer, track.mixed + added), samples + values * value_bytes,
              mixer_values(mixer, frames - added));
}

// For samples of a type that the kernels take as they are, at the mixer's rate and channels.
outcome mix_directly(const kel_audio_mixer_track& track, const mixer_input& input, const offer& offered,
                     size_t value_bytes) {
    const int32_t frames = std::min({offered.frames, offered.most_added, room_of(track)});
    mix_in(track, input, offered.samples, value_bytes, frames);
    return {frames, frames};
}

bool is_s16_of(const kel_audio_format& format, const kel_audio_format& working) {
    return format.type == KEL_AUDIO_TYPE_S16LE && format.rate == working.rate &&
           format.channels == working.channels;
}

// Returns 0 or an errno value.
int mix_converted(kel_audio_mixer_track& track, const offer& offered, outcome& result) {
    const kel_audio_mixer& mixer = *track.mixer;
    const int32_t room = room_of(track);
    const int32_t need = room * kel_get_audio_sample_size(&mixer.format);
    if (!has_conversion_buffer(track, need)) return ENOMEM;
    const int32_t block = std::max(offered.frames, std::min(room, offered.most_added));
    if (block <= track.converted_frames && is_s16_of(track.format, mixer.format)) {
        result = mix_directly(track, best_mixer_kernels().s16, offered, sizeof(int16_t));
        return 0;
    }
    kel_audio_conversion conversion;
    kel_init_audio_conversion(&conversion, offered.samples,
                              offered.frames * kel_get_audio_sample_size(&track.format),
                              track.conversion_buffer, need);
    conversion.output_limit = offered.most_added;
    const int error = kel_convert_audio(track.converter, &conversion);
    if (error) return error;
    track.converted_frames = std::max(track.converted_frames, block);
    mix_in(track, best_mixer_kernels().s24_8, track.conversion_buffer, sizeof(int32_t),
           conversion.produced_frames);
    result = {conversion.consumed_frames, conversion.produced_frames};
    return 0;
}

// Moves the track on over frames that are in the mix now.
void advance(kel_audio_mixer_track& track, int32_t frames) {
    kel_audio_mixer& mixer = *track.mixer;
    track.mixed += frames;
    track.pts_in_samples += static_cast<uint64_t>(frames);
    mixer.fill = std::max(mixer.fill, track.mixed);
    if (track.mixed >= mixer.frames_per_buffer) mixer_flush(mixer, 0);
}

int32_t refuse(int error) {
    errno = error;
    return -1;
}

// Logs and gives false for a track that cannot be asked.
bool can_query(const kel_audio_mixer_track* track) {
    if (!track) {
        KEL_LOG_ERROR("kel:   Attempt to query nonexistent track.");
    } else if (!track->mixer) {
        KEL_LOG_ERROR("kel:   Attempt to query track with destroyed mixer.");
    }
    return track && track->mixer;
}

}  // namespace
}  // namespace kel

kel_audio_mixer_track* kel_acquire_audio_mixer_track(kel_audio_mixer* mixer) {
    if (!mixer) {
        KEL_LOG_ERROR("kel:   Cannot create a mixing track for nonexistant mixer.");
        errno = EINVAL;
        return nullptr;
    }
    kel_audio_mixer_track* track = kel::make_record<kel_audio_mixer_track>().release();
    if (!track) {
        KEL_LOG_ERROR("kel:   Cannot allocate audio mixer track internal structure.");
        errno = ENOMEM;
        return nullptr;
    }
    track->mixer = mixer;
    track->pts_in_samples = mixer->samples;
    track->format = mixer->format;
    track->next = mixer->tracks;
    if (track->next) track->next->prev = track;
    mixer->tracks = track;
    return track;
}

int kel_release_audio_mixer_track(kel_audio_mixer_track* track) {
    if (!track) {
        KEL_LOG_ERROR("kel:   Cannot release inexistent audio mixer track.");
        return EINVAL;
    }
    kel_audio_mixer* mixer = track->mixer;
    if (mixer) {
        (track->prev ? track->prev->next : mixer->tracks) = track->next;
        if (track->next) track->next->prev = track->prev;
    }
    kel_destroy_audio_converter(&track->converter);
    free(track->conversion_buffer);
    free(track);
    if (mixer) kel::mixer_flush(*mixer, 0);
    return 0;
}

int32_t kel_feed_audio_mixer_track(kel_audio_mixer_track* track, const kel_slice* slice, int32_t start,
                                   int32_t max_frames) {
    if (!track || !track->mixer) return kel::refuse(EINVAL);
    const kel_audio_format* format = kel::audio_format_of(slice);
    if (!format) {
        KEL_LOG_ERROR("kel:   Cannot feed non-audio data into audio mixer track.");
        return kel::refuse(EINVAL);
    }
    const uint32_t nsamples = slice->spec.audio.nsamples;
    if (start < 0 || max_frames < 0 || static_cast<uint32_t>(start) > nsamples) return kel::refuse(EINVAL);
    kel::follow_format(*track, *format);
    if (track->conversion_failed) {
        KEL_LOG_ERROR("kel:   Cannot convert audio for mixing.");
        return kel::refuse(EINVAL);
    }

    const int32_t frame_bytes = kel_get_audio_sample_size(format);
    const auto most_frames =
        static_cast<uint32_t>(INT32_MAX / kel::conversion_bytes_per_value / format->channels);
    const kel::offer offered = {
        .samples = static_cast<const uint8_t*>(slice->spec.audio.samples_start) +
                   static_cast<size_t>(start) * static_cast<size_t>(frame_bytes),
        .frames = static_cast<int32_t>(std::min(nsamples - static_cast<uint32_t>(start), most_frames)),
        .most_added = max_frames,
    };
    kel::outcome result = {};
    if (!track->converter) {
        result = kel::mix_directly(*track, kel::best_mixer_kernels().s24_8, offered, sizeof(int32_t));
    } else if (const int error = kel::mix_converted(*track, offered, result)) {
        return kel::refuse(error);
    }
    kel::advance(*track, result.added);
    return result.taken;
}

int32_t kel_feed_audio_mixer_track_silence(kel_audio_mixer_track* track, int32_t frames) {
    if (!track) {
        KEL_LOG_ERROR("kel:   Attempt to feed silence to nonexistent track.");
        return EINVAL;
    }
    if (!track->mixer) {
        KEL_LOG_ERROR("kel:   Attempt to feed silence to track with destroyed mixer.");
        return EINVAL;
    }
    frames = std::min(frames, kel::room_of(*track));
    if (frames < 1) return frames;
    const int32_t filled = std::clamp(track->mixer->fill - track->mixed, 0, frames);
    memset(kel::mix_position(*track->mixer, track->mixed + filled), 0,
           kel::mixer_values(*track->mixer, frames - filled) * sizeof(int32_t));
    kel::advance(*track, frames);
    return frames;
}

int32_t kel_get_audio_mixer_track_num_samples_mixed(kel_audio_mixer_track* track) {
    return kel::can_query(track) ? track->mixed : EINVAL;
}

int32_t kel_get_audio_mixer_track_num_samples_left(kel_audio_mixer_track* track) {
    return kel::can_query(track) ? kel::room_of(*track) : EINVAL;
}

uint64_t kel_get_audio_mixer_track_pts_in_samples(const kel_audio_mixer_track* track) {
    return track ? track->pts_in_samples : 0;
}
