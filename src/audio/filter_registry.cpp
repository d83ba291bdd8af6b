// The fixed list of audio filters, and what all of them have in common: ports, pumping, parameter ramps.
#include <kel.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>

#include "audio/filter.hpp"
#include "base/arith.hpp"

namespace kel {
namespace {

constexpr kel_audio_filter_class filter_classes[] = {
    {"gain", {.tmpl = &_kel_gain_filter_tmpl}, gain_create, gain_destroy},
    {"highpass", {.update_coefficients = highpass_coefficients}, biquad_create, biquad_destroy},
    {"lowpass", {.update_coefficients = lowpass_coefficients}, biquad_create, biquad_destroy},
    {"bandpass", {.update_coefficients = bandpass_coefficients}, biquad_create, biquad_destroy},
    {"notch", {.update_coefficients = notch_coefficients}, biquad_create, biquad_destroy},
    {nullptr, {.tmpl = nullptr}, nullptr, nullptr},
};

// The one way in which most functions here fail.
template <typename Result>
Result fail(int error, Result result) {
    errno = error;
    return result;
}

kel_audio_filter_port* find_port(std::span<kel_audio_filter_port> ports, const char* name, int32_t index) {
    for (kel_audio_filter_port& port : ports) {
        if (port.index == index && strcmp(port.name, name) == 0) return &port;
    }
    return fail<kel_audio_filter_port*>(ESRCH, nullptr);
}

// Stored units per 1.0 of a port's values; 0 for a type that cannot hold parameters.
double parameter_scale(uint32_t type) {
    switch (type) {
        case KEL_AUDIO_TYPE_S24_8LE:
            return 256.0;
        case KEL_AUDIO_TYPE_S16_16LE:
            return 65536.0;
        default:
            return 0.0;
    }
}

}  // namespace

void init_filter(kel_audio_filter& filter, const kel_audio_filter_class& cls, const kel_audio_format& format,
                 kel_audio_filter_process process) {
    filter.cls = &cls;
    filter.process = process;
    filter.format = {format.rate, format.channels, KEL_AUDIO_TYPE_S24_8LE};
    filter.output_format = filter.format;
}

}  // namespace kel

const kel_audio_filter_class* kel_find_audio_filter(const char* name) {
    if (!name) return kel::fail<const kel_audio_filter_class*>(EINVAL, nullptr);
    for (const kel_audio_filter_class* cls = kel::filter_classes; cls->name; ++cls) {
        if (strcmp(cls->name, name) == 0) return cls;
    }
    return kel::fail<const kel_audio_filter_class*>(ESRCH, nullptr);
}

kel_audio_filter* kel_create_audio_filter(const kel_audio_filter_class* cls, const kel_audio_format* format) {
    const bool whole = cls && cls->create && format && format->rate > 0 && format->channels > 0;
    return whole ? cls->create(cls, format) : kel::fail<kel_audio_filter*>(EINVAL, nullptr);
}

void kel_destroy_audio_filter(kel_audio_filter* filter) {
    if (filter && filter->cls) filter->cls->destroy(filter);
}

kel_audio_filter_port* kel_get_audio_filter_input(kel_audio_filter* filter, const char* name, int32_t index) {
    if (!filter || !name || index < 0) return kel::fail<kel_audio_filter_port*>(EINVAL, nullptr);
    return kel::find_port({filter->inputs, static_cast<size_t>(filter->ninputs)}, name, index);
}

kel_audio_filter_port* kel_get_audio_filter_output(kel_audio_filter* filter, const char* name,
                                                   int32_t index) {
    if (!filter || !name || index < 0) return kel::fail<kel_audio_filter_port*>(EINVAL, nullptr);
    return kel::find_port({filter->outputs, static_cast<size_t>(filter->noutputs)}, name, index);
}

int32_t kel_pump_audio_filter(kel_audio_filter* filter, int32_t frames) {
    if (!filter || frames < 0) return kel::fail(EINVAL, -1);
    return filter->process(filter, frames);
}

const char* kel_get_audio_filter_name(const kel_audio_filter_class* cls) {
    return cls ? cls->name : nullptr;
}

int32_t kel_linint_audio_param(kel_audio_filter_port* port, int32_t channel, int32_t begin, int32_t end,
                               float from, float to) {
    if (!port) return kel::fail(EINVAL, -1);
    const double scale = kel::parameter_scale(port->format.type);
    if (scale == 0.0 || !port->data || channel < 0 || channel >= port->format.channels) {
        return kel::fail(EINVAL, -1);
    }
    const int64_t span = static_cast<int64_t>(end) - begin;
    const auto count = static_cast<int32_t>(std::clamp<int64_t>(span, 0, INT32_MAX));
    const double step = static_cast<double>(to - from) / count;
    double value = from;
    size_t index = static_cast<size_t>(channel);
    for (int32_t k = 0; k < count; ++k) {
        port->data[index] = kel::truncate_to_int32(value * scale);
        index += static_cast<size_t>(port->format.channels);
        value += step;
    }
    return count;
}
