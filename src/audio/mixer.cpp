// The mixer: emission of full buffers, gain, timing.
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

const kel_audio_format& pool_format(const kel_audio_mixer& mixer) {
    return mixer.pool->format.audio;
}

bool is_complete(const kel_audio_mixer& mixer) {
    if (!mixer.tracks) return mixer.fill != 0;
    for (const kel_audio_mixer_track* track = mixer.tracks; track; track = track->next) {
        if (track->mixed < mixer.frames_per_buffer) return false;
    }
    return true;
}

// The mix with the gain applied, in the pool's format.
void write_mix(kel_audio_mixer& mixer, kel_buffer& buffer) {
    const int32_t gain = std::max(truncate_to_int32(mixer.global_gain * 256.0), 0);
    const size_t count = mixer_values(mixer, mixer.fill);
    const mixer_kernels& kernels = best_mixer_kernels();
    if (!mixer.converter) {
        if (gain == unity_gain) {
            memcpy(buffer.ptr, mixer.mix_buffer, count * sizeof *mixer.mix_buffer);
        } else {
            kernels.scale(buffer.ptr, mixer.mix_buffer, count, gain);
        }
        return;
    }
    if (pool_format(mixer).type == KEL_AUDIO_TYPE_S16LE && mixer.converter_has_buffers) {
        kernels.scale_to_s16(buffer.ptr, mixer.mix_buffer, count, gain);
        return;
    }
    if (gain != unity_gain) kernels.scale(mixer.mix_buffer, mixer.mix_buffer, count, gain);
    kel_audio_conversion conversion;
    kel_init_audio_conversion(&conversion, mixer.mix_buffer, mixer.mix_bytes, buffer.ptr,
                              static_cast<int32_t>(buffer.size));
    conversion.input_limit = mixer.fill;
    mixer.converter_has_buffers = kel_convert_audio(mixer.converter, &conversion) == 0;
}

}  // namespace

void mixer_flush(kel_audio_mixer& mixer, int32_t timeout_ms) {
    if (!is_complete(mixer) || mixer.pending.buffer) return;
    kel_buffer* buffer = kel_acquire_buffer_wait(mixer.pool, timeout_ms);
    if (!buffer) return;
    write_mix(mixer, *buffer);
    kel_init_buffer_slice(&mixer.pending, buffer);
    mixer.pending.spec.audio.nsamples = static_cast<uint32_t>(mixer.fill);
    mixer.pending.pts = kel_get_audio_mixer_pts(&mixer);
    mixer.samples += static_cast<uint64_t>(mixer.fill);
    mixer.fill = 0;
    for (kel_audio_mixer_track* track = mixer.tracks; track; track = track->next) track->mixed = 0;
}

}  // namespace kel

kel_audio_mixer* kel_create_audio_mixer(kel_buffer_pool* pool) {
    if (!pool || pool->format.type != KEL_BUFFER_AUDIO) {
        KEL_LOG_ERROR("kel:   Cannot create audio mixer for non-audio buffer pool.");
        errno = EINVAL;
        return nullptr;
    }
    auto mixer = kel::make_record<kel_audio_mixer>();
    if (!mixer) {
        KEL_LOG_ERROR("kel:   Cannot allocate audio mixer internal structure.");
        errno = ENOMEM;
        return nullptr;
    }
    const kel_audio_format& output = pool->format.audio;
    mixer->pool = pool;
    mixer->global_gain = 1.0f;
    mixer->format = {output.rate, output.channels, KEL_AUDIO_TYPE_S24_8LE};
    mixer->frames_per_buffer = static_cast<int32_t>(pool->format.nsamples);
    kel::owned<int32_t> mix_buffer;
    if (mixer->frames_per_buffer >= 0 &&
        kel::multiply(mixer->frames_per_buffer, kel_get_audio_sample_size(&mixer->format),
                      mixer->mix_bytes)) {
        mix_buffer = kel::make_records<int32_t>(kel::mixer_values(*mixer, mixer->frames_per_buffer));
    }
    if (!mix_buffer) {
        KEL_LOG_ERROR("kel:   Cannot allocate audio mixer internal buffer.");
        errno = ENOMEM;
        return nullptr;
    }
    if (kel_audio_formats_differ(&output, &mixer->format)) {
        mixer->converter = kel_create_audio_converter(&mixer->format, &output);
        if (!mixer->converter) {
            KEL_LOG_ERROR("kel:   Cannot convert mixed audio.");
            errno = EINVAL;
            return nullptr;
        }
    }
    mixer->mix_buffer = mix_buffer.release();
    return mixer.release();
}

int kel_destroy_audio_mixer(kel_audio_mixer** mixer) {
    if (!mixer || !*mixer) return EINVAL;
    kel_audio_mixer* doomed = *mixer;
    for (kel_audio_mixer_track* track = doomed->tracks; track; track = track->next) track->mixer = nullptr;
    kel_destroy_audio_converter(&doomed->converter);
    if (doomed->pending.buffer) kel_release_buffer(doomed->pending.buffer);
    free(doomed->mix_buffer);
    free(doomed);
    *mixer = nullptr;
    return 0;
}

int kel_wait_for_audio_mixer(kel_audio_mixer* mixer, int32_t timeout_ms) {
    if (!mixer) {
        KEL_LOG_ERROR("kel:   Attempt to wait for nonexistent mixer.");
        return EINVAL;
    }
    kel::mixer_flush(*mixer, timeout_ms);
    return mixer->pending.buffer ? 0 : EAGAIN;
}

int kel_audio_mixer_has_buffer(kel_audio_mixer* mixer) {
    if (!mixer) {
        KEL_LOG_ERROR("kel:   Attempt to query buffer from nonexistent mixer.");
        errno = EINVAL;
        return 0;
    }
    kel::mixer_flush(*mixer, 0);
    return mixer->pending.buffer ? 1 : 0;
}

int kel_get_audio_mixer_slice(kel_audio_mixer* mixer, kel_slice* slice) {
    if (!mixer) {
        KEL_LOG_ERROR("kel:   Attempt to get buffer from nonexistent mixer.");
        return EINVAL;
    }
    if (!slice) return EINVAL;
    kel::mixer_flush(*mixer, 0);
    if (!mixer->pending.buffer) return EAGAIN;
    *slice = mixer->pending;
    mixer->pending.buffer = nullptr;
    return 0;
}

const kel_audio_format* kel_get_audio_mixer_format(const kel_audio_mixer* mixer) {
    return mixer ? &mixer->format : nullptr;
}

float kel_get_audio_mixer_global_gain(const kel_audio_mixer* mixer) {
    return mixer ? mixer->global_gain : 0.0f;
}

void kel_set_audio_mixer_global_gain(kel_audio_mixer* mixer, float gain) {
    if (mixer) mixer->global_gain = gain;
}

int32_t kel_get_audio_mixer_buffer_fill(const kel_audio_mixer* mixer) {
    return mixer ? mixer->fill : 0;
}

uint64_t kel_get_audio_mixer_pts_in_samples(const kel_audio_mixer* mixer) {
    return mixer ? mixer->samples : 0;
}

void kel_set_audio_mixer_pts_in_samples(kel_audio_mixer* mixer, uint64_t samples) {
    if (!mixer) return;
    mixer->samples = samples;
    for (kel_audio_mixer_track* track = mixer->tracks; track; track = track->next) {
        track->pts_in_samples = samples + static_cast<uint64_t>(track->mixed);
    }
}

uint64_t kel_get_audio_mixer_pts(const kel_audio_mixer* mixer) {
    if (!mixer) return 0;
    const auto samples = static_cast<int64_t>(mixer->samples);
    return static_cast<uint64_t>(kel_get_audio_pts_from_nsamples(mixer->format.rate, samples));
}

void kel_set_audio_mixer_pts(kel_audio_mixer* mixer, uint64_t pts) {
    if (!mixer) return;
    const int64_t samples = kel_get_audio_nsamples_from_pts(mixer->format.rate, static_cast<int64_t>(pts));
    kel_set_audio_mixer_pts_in_samples(mixer, static_cast<uint64_t>(samples));
}
