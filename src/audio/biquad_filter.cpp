// The second-order filters: ports, coefficients and the walk over a block in sections of one frequency each.
#include <kel.h>
#include "base/exact_trig.hpp"

#include <algorithm>
#include <cerrno>

#include "audio/filter.hpp"
#include "audio/filter_kernels.hpp"
#include "base/guard.hpp"

namespace kel {
namespace {

enum biquad_input { biquad_audio_input, biquad_freq_input, biquad_mix_input, biquad_inputs };

constexpr int32_t section_frames = 1024;
constexpr double fixed_q = 0.707;
constexpr double two_pi = 6.283185307179586;
constexpr double hertz_per_unit = 0.00390625;  // an S24.8 value's last bit

// A kel_audio_filter and what a biquad adds to it.
struct biquad_filter {
    kel_audio_filter base;
    kel_audio_filter_coefficients update_coefficients;
    biquad_coefficients coefficients;
    int32_t* x_history;  // frame n-2 of the input, every channel, then frame n-1
    int32_t* y_history;  // the same of the output, before it is mixed
};

biquad_filter& as_biquad(kel_audio_filter* filter) {
    return *reinterpret_cast<biquad_filter*>(filter);
}

// What the four classes' coefficients are made of.
struct angle {
    double cosine;
    double alpha;
};

angle angle_of(const kel_audio_filter* filter, double f0, double q) {
    const double w0 = two_pi * f0 / filter->format.rate;
    return {exact_cos(w0), exact_sin(w0) / (2 * q)};
}

// The denominator is the same for all classes; each brings its numerator.
void set_coefficients(kel_audio_filter* filter, const angle& w, double b0, double b1, double b2) {
    const double a0 = 1 + w.alpha;
    as_biquad(filter).coefficients = {
        .a1 = -2 * w.cosine / a0,
        .a2 = (1 - w.alpha) / a0,
        .b0 = b0 / a0,
        .b1 = b1 / a0,
        .b2 = b2 / a0,
    };
}

int32_t biquad_process(kel_audio_filter* filter, int32_t frames) {
    biquad_filter& biquad = as_biquad(filter);
    const kel_audio_filter_port& audio = filter->inputs[biquad_audio_input];
    const kel_audio_filter_port& freq = filter->inputs[biquad_freq_input];
    const kel_audio_filter_port& mix = filter->inputs[biquad_mix_input];
    const kel_audio_filter_port& out = filter->outputs[0];
    if (!audio.data || !freq.data || !out.data) {
        errno = EINVAL;
        return -1;
    }
    frames = frames_to_process(audio, out, frames);
    const auto channels = static_cast<size_t>(filter->format.channels);
    const filter_kernels& kernels = best_filter_kernels();
    int32_t start = 0;
    do {  // an empty block updates the coefficients, too
        biquad.update_coefficients(filter, freq.data[start] * hertz_per_unit, fixed_q, 1.0);
        const size_t first = static_cast<size_t>(start) * channels;
        kernels.biquad(biquad.coefficients,
                       {.in = audio.data + first,
                        .mix = mix.data ? mix.data + first : nullptr,
                        .out = out.data + first,
                        .x_history = biquad.x_history,
                        .y_history = biquad.y_history,
                        .channels = channels,
                        .frames = static_cast<size_t>(std::min(frames - start, section_frames))});
        start += section_frames;
    } while (start < frames);
    return frames;
}

kel_audio_filter_port biquad_port(const char* name, int32_t decimation, const kel_audio_format& format,
                                  int32_t channels, uint32_t type) {
    kel_audio_filter_port port = {};
    port.name = name;
    port.decimation = decimation;
    port.format = {format.rate, channels, type};
    return port;
}

}  // namespace

void highpass_coefficients(kel_audio_filter* filter, double f0, double q, double /*unused*/) {
    const angle w = angle_of(filter, f0, q);
    const double half = (1 + w.cosine) / 2;
    set_coefficients(filter, w, half, -(1 + w.cosine), half);
}

void lowpass_coefficients(kel_audio_filter* filter, double f0, double q, double /*unused*/) {
    const angle w = angle_of(filter, f0, q);
    const double half = (1 - w.cosine) / 2;
    set_coefficients(filter, w, half, 1 - w.cosine, half);
}

void bandpass_coefficients(kel_audio_filter* filter, double f0, double q, double /*unused*/) {
    const angle w = angle_of(filter, f0, q);
    set_coefficients(filter, w, w.alpha, 0, -w.alpha);
}

void notch_coefficients(kel_audio_filter* filter, double f0, double q, double /*unused*/) {
    const angle w = angle_of(filter, f0, q);
    set_coefficients(filter, w, 1, -2 * w.cosine, 1);
}

kel_audio_filter* biquad_create(const kel_audio_filter_class* cls, const kel_audio_format* format) {
    if (!cls->update_coefficients) {
        errno = EINVAL;
        return nullptr;
    }
    auto biquad = make_record<biquad_filter>();
    if (!biquad) return nullptr;
    auto inputs = make_records<kel_audio_filter_port>(biquad_inputs);
    if (!inputs) return nullptr;
    auto outputs = make_records<kel_audio_filter_port>(1);
    if (!outputs) return nullptr;
    const int32_t channels = format->channels;
    auto x_history = make_records<int32_t>(2 * static_cast<size_t>(channels));
    if (!x_history) return nullptr;
    auto y_history = make_records<int32_t>(2 * static_cast<size_t>(channels));
    if (!y_history) return nullptr;

    inputs[biquad_audio_input] = biquad_port("audio", 1, *format, channels, KEL_AUDIO_TYPE_S24_8LE);
    inputs[biquad_freq_input] = biquad_port("freq", section_frames, *format, 1, KEL_AUDIO_TYPE_S24_8LE);
    inputs[biquad_mix_input] = biquad_port("mix", 1, *format, channels, KEL_AUDIO_TYPE_S16_16LE);
    outputs[0] = biquad_port("audio", 1, *format, channels, KEL_AUDIO_TYPE_S24_8LE);
    init_filter(biquad->base, *cls, *format, biquad_process);
    biquad->base.ninputs = biquad_inputs;
    biquad->base.noutputs = 1;
    biquad->update_coefficients = cls->update_coefficients;
    biquad->base.inputs = inputs.release();
    biquad->base.outputs = outputs.release();
    biquad->x_history = x_history.release();
    biquad->y_history = y_history.release();
    return &biquad.release()->base;
}

void biquad_destroy(kel_audio_filter* filter) {
    free(as_biquad(filter).x_history);
    free(as_biquad(filter).y_history);
    free(filter->inputs);
    free(filter->outputs);
    free(filter);
}

}  // namespace kel
