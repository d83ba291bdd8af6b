/*
 * Mixes the audio of two or more files into one WAV file, 48 kHz stereo, with one mixer track for each input.
 * All inputs start together and the longest one sets the length. The gain is 1 / inputs, so nothing clips.
 */
#include "media.h"

#include <inttypes.h>
#include <stdio.h>

enum { most_inputs = 16, block_frames = 1024 };

typedef struct voice {
    audio_input input;
    kel_audio_mixer_track* track;
    kel_slice slice; /* the last one read */
    int32_t taken;   /* frames of it that the track has */
    int ended;
} voice;

/* Fills the track: with what the file has, then with silence. Returns 1, or 0 when it cannot be mixed. */
static int fill(voice* v) {
    int32_t left;
    while ((left = kel_get_audio_mixer_track_num_samples_left(v->track)) > 0) {
        const int32_t frames = v->slice.buffer ? (int32_t)v->slice.spec.audio.nsamples : 0;
        if (v->ended) {
            kel_feed_audio_mixer_track_silence(v->track, left);
        } else if (v->taken == frames) {
            v->taken = 0;
            v->ended = kel_writer_read_slice(v->input.channel, &v->slice) != 0;
        } else {
            const int32_t taken = kel_feed_audio_mixer_track(v->track, &v->slice, v->taken, left);
            if (taken < 0) return 0;
            v->taken += taken;
        }
    }
    return 1;
}

/* Writes what the mixer has emitted. Returns the frames, or -1. */
static int64_t write_mix(kel_audio_mixer* mixer, media_output* output) {
    int64_t frames = 0;
    for (kel_slice mix; kel_get_audio_mixer_slice(mixer, &mix) == 0;) {
        const int written = write_slice(output, &mix);
        kel_release_buffer(mix.buffer);
        if (!written) return -1;
        frames += mix.spec.audio.nsamples;
    }
    return frames;
}

static int mix(voice* voices, int count, kel_audio_mixer* mixer, media_output* output) {
    int64_t frames = 0;
    for (int playing = count; playing > 0;) {
        playing = 0;
        for (int i = 0; i < count; ++i) {
            if (!fill(&voices[i])) return fprintf(stderr, "input %d: cannot mix this format\n", i + 1), 0;
            playing += !voices[i].ended;
        }
        const int64_t written = write_mix(mixer, output);
        if (written < 0) return 0;
        frames += written;
    }
    printf("%d inputs mixed into %.2f s\n", count, (double)frames / 48000);
    return 1;
}

int main(int argc, char** argv) {
    const kel_audio_format format = {.rate = 48000, .channels = 2, .type = KEL_AUDIO_TYPE_S16LE};
    voice voices[most_inputs] = {0};
    const int count = argc - 2;
    if (count < 2 || count > most_inputs) {
        fprintf(stderr, "usage: %s INPUT INPUT... OUTPUT.wav (2 to %d inputs)\n", argv[0], most_inputs);
        return 2;
    }
    kel_init();
    kel_init_mmedia_filters();
    kel_context* context = kel_create_context();
    kel_buffer_pool* pool = kel_create_audio_buffer_pool(context, &format, block_frames, 2);
    kel_audio_mixer* mixer = kel_create_audio_mixer(pool);
    kel_set_audio_mixer_global_gain(mixer, 1.0f / (float)count);

    int opened = 0, ok = mixer != NULL;
    for (; ok && opened < count; opened += ok) {
        ok = open_audio_input(&voices[opened].input, context, argv[1 + opened]);
        if (ok) voices[opened].track = kel_acquire_audio_mixer_track(mixer);
    }
    media_output output;
    if (ok && (ok = open_audio_output(&output, context, argv[argc - 1], &format))) {
        ok = mix(voices, count, mixer, &output);
        ok = close_output(&output) && ok;
    }
    for (int i = 0; i < opened; ++i) {
        kel_release_audio_mixer_track(voices[i].track);
        MmDestroyGraph(voices[i].input.graph);
    }
    kel_destroy_audio_mixer(&mixer);
    kel_destroy_buffer_pool(&pool);
    kel_destroy_context(&context);
    kel_fini();
    return ok ? 0 : 1;
}
