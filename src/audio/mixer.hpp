// The mixer's records, and what the mixer does for its tracks.
#pragma once

#include <kel.h>

#include <cstddef>
#include <cstdint>

// The mixer's additions at the ends of both records say when a converter has its buffers: from then on the commonest
// conversions are done in one pass with the mixing, with the same samples, results and messages.

struct kel_audio_mixer {
    kel_audio_mixer_track* tracks;  // the newest first
    float global_gain;
    kel_buffer_pool* pool;
    int32_t* mix_buffer;  // frames_per_buffer frames of `format`, of which the first `fill` hold the mix
    int32_t mix_bytes;
    int32_t frames_per_buffer;
    int32_t fill;  // the most frames that a track has put in since the last emission
    kel_audio_format format;
    kel_slice pending;               // emitted and not yet taken
    kel_audio_converter* converter;  // from `format` to the pool's; null when they are the same
    uint64_t samples;                // frames emitted so far
    bool converter_has_buffers;
};

struct kel_audio_mixer_track {
    kel_audio_mixer* mixer;  // null when it is destroyed
    kel_audio_mixer_track* prev;
    kel_audio_mixer_track* next;
    int32_t mixed;  // frames in the current mix buffer
    uint64_t pts_in_samples;
    kel_audio_format format;         // of the slices last fed
    kel_audio_converter* converter;  // from `format` to the mixer's; null when there is none or no need
    uint8_t* conversion_buffer;
    int32_t conversion_capacity;  // bytes
    int32_t conversion_failed;    // there is no converter from `format`
    int32_t converted_frames;     // the largest block that the converter had to have buffers for
};

namespace kel {

// Emits the mix if all tracks are full, nothing is pending and the pool has a buffer within timeout_ms.
void mixer_flush(kel_audio_mixer& mixer, int32_t timeout_ms);

inline size_t mixer_values(const kel_audio_mixer& mixer, int32_t frames) {
    return static_cast<size_t>(frames) * static_cast<size_t>(mixer.format.channels);
}

}  // namespace kel
