// The gain filter: each value times a gain of its own. Its ports come from an exported table.
#include <kel.h>

#include <cerrno>

#include "audio/filter.hpp"
#include "audio/filter_kernels.hpp"
#include "base/guard.hpp"

namespace kel {
namespace {

enum gain_input { gain_audio_input, gain_gain_input };

int32_t gain_process(kel_audio_filter* filter, int32_t frames) {
    const kel_audio_filter_port& audio = filter->inputs[gain_audio_input];
    const kel_audio_filter_port& gain = filter->inputs[gain_gain_input];
    const kel_audio_filter_port& out = filter->outputs[0];
    if (!audio.data || !gain.data || !out.data) {
        errno = EINVAL;
        return -1;
    }
    frames = frames_to_process(audio, out, frames);
    const auto count = static_cast<size_t>(frames) * static_cast<size_t>(filter->format.channels);
    best_filter_kernels().gain(out.data, audio.data, gain.data, count);
    return frames;
}

// The ports of one direction, in the order of their descriptors. Empty when there is no memory.
owned<kel_audio_filter_port> make_ports(const kel_audio_filter_template& tmpl, uint32_t direction,
                                        const kel_audio_format& format, int32_t& count) {
    for (int32_t i = 0; i < tmpl.ndescriptors; ++i) count += (tmpl.descriptors[i].flags & direction) != 0;
    auto ports = make_records<kel_audio_filter_port>(static_cast<size_t>(count));
    if (!ports) return ports;
    kel_audio_filter_port* port = ports.get();
    for (int32_t i = 0; i < tmpl.ndescriptors; ++i) {
        const kel_audio_filter_port_descriptor& descriptor = tmpl.descriptors[i];
        if (!(descriptor.flags & direction)) continue;
        port->name = descriptor.name;
        port->index = descriptor.index;
        port->flags = descriptor.flags;
        port->decimation = descriptor.decimation;
        port->format = format;
        if (descriptor.flags & KEL_AUDIO_PORT_PARAM) port->format.type = KEL_AUDIO_TYPE_S16_16LE;
        ++port;
    }
    return ports;
}

}  // namespace

kel_audio_filter* gain_create(const kel_audio_filter_class* cls, const kel_audio_format* format) {
    if (!cls->tmpl) {
        errno = EINVAL;
        return nullptr;
    }
    auto filter = make_record<kel_audio_filter>();
    if (!filter) return nullptr;
    init_filter(*filter, *cls, *format, cls->tmpl->process);
    auto inputs = make_ports(*cls->tmpl, KEL_AUDIO_PORT_INPUT, filter->format, filter->ninputs);
    if (!inputs) return nullptr;
    auto outputs = make_ports(*cls->tmpl, KEL_AUDIO_PORT_OUTPUT, filter->format, filter->noutputs);
    if (!outputs) return nullptr;
    filter->inputs = inputs.release();
    filter->outputs = outputs.release();
    return filter.release();
}

void gain_destroy(kel_audio_filter* filter) {
    free(filter->inputs);
    free(filter->outputs);
    free(filter);
}

}  // namespace kel

constexpr kel_audio_filter_template _kel_gain_filter_tmpl = {
    .process = kel::gain_process,
    .flags = 1,
    .ndescriptors = 3,
    .descriptors = {
        {.name = "audio", .index = 0, .flags = KEL_AUDIO_PORT_INPUT, .decimation = 1, .reserved = {}},
        {.name = "audio", .index = 0, .flags = KEL_AUDIO_PORT_OUTPUT, .decimation = 1, .reserved = {}},
        {.name = "gain",
         .index = 0,
         .flags = KEL_AUDIO_PORT_INPUT | KEL_AUDIO_PORT_PARAM,
         .decimation = 1,
         .reserved = {}},
    }};

#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(kel_audio_filter_port_descriptor) == 40);
static_assert(offsetof(kel_audio_filter_template, descriptors) == 12);
static_assert(sizeof(kel_audio_filter_port) == 40);
#endif
