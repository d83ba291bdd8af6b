// The kernels of the conversion steps, and the step records that continue with a state.
#pragma once

#include <kel.h>

#include "base/guard.hpp"

namespace kel {

// Type kernels: n = min(offered, room) frames, value by value.
void convert_flip_sign_8(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void convert_flip_sign_16le(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void convert_flip_sign_16be(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void convert_swap_bytes_16(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void convert_s8_to_s16le(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void convert_s16le_to_s8(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void convert_s24_8le_to_s16le(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void convert_s16le_to_s24_8le(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);

// Channel kernels: n = min(offered, room) frames. Two-byte values are read in the running format's byte order.
void channels_downmix_s8(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void channels_downmix_s16(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void channels_downmix_u8(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void channels_downmix_u16(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void channels_upmix_8(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void channels_upmix_16(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);

// Fixed-ratio rate kernels: whole frames are repeated or left out.
void rate_double_8(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void rate_double_16(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void rate_halve_8(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void rate_halve_16(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void rate_quadruple_8(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void rate_quadruple_16(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void rate_quarter_8(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void rate_quarter_16(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);

// Linear interpolation in S16LE; the last two are the first for one and for two channels.
void rate_resample_s16le(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void rate_resample_s16le_mono(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
void rate_resample_s16le_stereo(kel_audio_step*, const void*, void*, int32_t*, int32_t*, kel_audio_format*);
kel_audio_step* resampler_create(const kel_audio_format* from, const kel_audio_format* to);
void resampler_release(kel_audio_step* step);

struct resampler_step {
    kel_audio_step step;
    int32_t
        position;  // 16.16, in input frames from frame 0 of the block; below 0 between history and frame 0
    int32_t increment;  // 16.16, input frames for one output frame
    int16_t* history;   // last input frame of the block before, one value for each channel
    int32_t output_rate;
};
#if UINTPTR_MAX == UINT32_MAX
static_assert(offsetof(resampler_step, position) == 12 && offsetof(resampler_step, history) == 20);
#endif

// A step of a converter's chain whose kernel keeps no state of its own. A group of repeated or skipped frames that a
// block's end cut apart is finished with the next block, so that cutting a stream never changes it.
struct carrying_step {
    kel_audio_step step;
    int32_t owed;     // repetitions of `frame` still to write, or input frames still to skip
    uint8_t frame[];  // one frame of the step's input
};

// A zero-filled record for frames of the given size, released by carrying_release; null with errno ENOMEM.
kel_audio_step* make_carrying_step(int32_t frame_bytes);
void carrying_release(kel_audio_step* step);

}  // namespace kel
