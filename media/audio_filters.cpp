#include "audio_filters.hpp"

#include <cmath>

#include "failure.hpp"

namespace kel_tool {
namespace {

constexpr double most_gain = 32767;  // what S16.16 holds

kel_audio_filter_port* input(kel_audio_filter* filter, const std::string& name) {
    return kel_get_audio_filter_input(filter, name.c_str(), 0);
}

}  // namespace

audio_filters::audio_filters(const std::vector<filter_spec>& specs, const kel_audio_format& format) {
    for (const filter_spec& spec : specs) stages_.push_back(make_stage(spec, format));
}

audio_filters::stage audio_filters::make_stage(const filter_spec& spec, const kel_audio_format& format) {
    const kel_audio_filter_class* kind = kel_find_audio_filter(spec.name.c_str());
    if (!kind)
        throw failure("no audio filter is named " + spec.name +
                          ": there are gain, highpass, lowpass, bandpass and notch",
                      exit_usage);
    stage made = {};
    made.filter.reset(kel_create_audio_filter(kind, &format));
    if (!made.filter) throw failure(spec.name + ": the filter cannot be made");
    made.input = input(made.filter.get(), "audio");
    made.output = kel_get_audio_filter_output(made.filter.get(), "audio", 0);
    for (const auto& parameter : spec.parameters) set_parameter(made, spec, parameter, format);
    for (const char* needed : {"gain", "freq"}) {
        const kel_audio_filter_port* port = input(made.filter.get(), needed);
        bool given = !port;
        for (const constant& each : made.constants) given |= each.port == port;
        if (!given)
            throw failure(spec.name + " needs its " + needed + ": " + spec.name + "=" + needed + ":VALUE",
                          exit_usage);
    }
    return made;
}

void audio_filters::set_parameter(stage& stage, const filter_spec& spec,
                                  const filter_spec::parameter& parameter, const kel_audio_format& format) {
    kel_audio_filter_port* port =
        parameter.name == "audio" ? nullptr : input(stage.filter.get(), parameter.name);
    if (!port || parameter.values.size() != 1)
        throw failure(spec.name + " has no such parameter as " + parameter.name, exit_usage);
    const double value = parameter.values[0];
    const bool is_frequency = parameter.name == "freq";
    const double most = is_frequency ? format.rate / 2.0 : parameter.name == "mix" ? 1 : most_gain;
    if (value < 0 || value > most || (is_frequency && (value == 0 || value == most)))
        throw failure(
            spec.name + ": " + parameter.name + " lies between 0 and " + std::to_string(std::lround(most)),
            exit_usage);
    const double unit = is_frequency ? 256 : 65536;
    stage.constants.push_back(
        {port, static_cast<int32_t>(std::lround(value * unit)), is_frequency ? 1 : format.channels, {}});
}

void audio_filters::apply(const kel_slice& slice) {
    const auto frames = static_cast<int32_t>(slice.spec.audio.nsamples);
    for (stage& each : stages_) {
        for (constant& value : each.constants) {
            value.data.resize(std::max(value.data.size(), static_cast<size_t>(frames) *
                                                              static_cast<size_t>(value.values_per_frame)),
                              value.value);
            value.port->data = value.data.data();
            value.port->available = frames;
        }
        each.input->data = each.output->data = static_cast<int32_t*>(slice.spec.audio.samples_start);
        each.input->available = each.output->capacity = frames;
        if (kel_pump_audio_filter(each.filter.get(), frames) != frames)
            throw failure(std::string(kel_get_audio_filter_name(each.filter->cls)) +
                          ": the filter does not work");
    }
}

}  // namespace kel_tool
