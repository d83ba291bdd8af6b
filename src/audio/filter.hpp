// What the kinds of audio filters share with their registry.
#pragma once

#include <kel.h>

#include <cstddef>
#include <cstdint>

namespace kel {

kel_audio_filter* gain_create(const kel_audio_filter_class* cls, const kel_audio_format* format);
void gain_destroy(kel_audio_filter* filter);

kel_audio_filter* biquad_create(const kel_audio_filter_class* cls, const kel_audio_format* format);
void biquad_destroy(kel_audio_filter* filter);
void highpass_coefficients(kel_audio_filter* filter, double f0, double q, double unused);
void lowpass_coefficients(kel_audio_filter* filter, double f0, double q, double unused);
void bandpass_coefficients(kel_audio_filter* filter, double f0, double q, double unused);
void notch_coefficients(kel_audio_filter* filter, double f0, double q, double unused);

// The part of an instance that does not depend on its kind.
void init_filter(kel_audio_filter& filter, const kel_audio_filter_class& cls, const kel_audio_format& format,
                 kel_audio_filter_process process);

// Frames that a pump of `frames` can process: bounded by the audio input and output, never negative.
constexpr int32_t frames_to_process(const kel_audio_filter_port& in, const kel_audio_filter_port& out,
                                    int32_t frames) {
    if (in.available < frames) frames = in.available;
    if (out.capacity < frames) frames = out.capacity;
    return frames < 0 ? 0 : frames;
}

}  // namespace kel
