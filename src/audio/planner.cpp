// Planning a conversion, and building the planned chain.
#include "audio/planner.hpp"

#include <cerrno>

#include "audio/steps.hpp"

namespace kel {
namespace {

bool matches(uint32_t type, uint32_t value, uint32_t mask) {
    return ((type ^ value) & mask) == 0;
}

bool applies(const kel_rate_conversion_step& row, const kel_audio_format& format, int32_t target) {
    if (!matches(format.type, row.type_value, row.type_mask)) return false;
    if (row.multiplier == 0 && row.divisor == 0) return true;
    if (row.multiplier == 0) return target < format.rate;
    if (row.divisor == 0) return target > format.rate;
    return int64_t{format.rate} * row.multiplier / row.divisor == target;
}

bool applies(const kel_channel_conversion_step& row, const kel_audio_format& format, int32_t target) {
    return format.channels == row.from_channels && target == row.to_channels &&
           matches(format.type, row.type_value, row.type_mask);
}

kel_audio_step* make_step(const kel_audio_plan_node& node) {
    kel_audio_step* step = node.create ? node.create(&node.input, &node.output)
                                       : make_carrying_step(kel_get_audio_sample_size(&node.input));
    if (step && !step->kernel) step->kernel = node.kernel;
    return step;
}

}  // namespace

void audio_plan::add(const kel_audio_format& input, const kel_audio_format& output,
                     kel_audio_step_kernel kernel, kel_audio_step_create create,
                     const kel_audio_plan_node* parent) {
    for (int i = 0; i < reached_count_; ++i)
        if (!kel_audio_formats_differ(&reached_[i], &output)) return;
    if (reached_count_ < most_formats) reached_[reached_count_++] = output;
    if (node_count_ < most_nodes) nodes_[node_count_++] = {input, output, kernel, create, parent};
}

void audio_plan::expand(const kel_audio_format& format, const kel_audio_plan_node* parent, type_steps types) {
    if (format.rate != to_.rate)
        for (const auto* row = kel_rate_conversion_steps_c; row->kernel; ++row) {
            kel_audio_format output = format;
            output.rate = to_.rate;
            if (applies(*row, format, to_.rate)) add(format, output, row->kernel, row->create, parent);
        }
    if (format.channels != to_.channels)
        for (const auto* row = kel_channel_conversion_steps_c; row->kernel; ++row) {
            kel_audio_format output = format;
            output.channels = to_.channels;
            if (applies(*row, format, to_.channels)) add(format, output, row->kernel, row->create, parent);
        }
    if (format.type != to_.type)
        for (const auto* row = kel_type_conversion_steps_c; row->kernel; ++row) {
            kel_audio_format output = format;
            output.type = row->to_type;
            if (row->from_type == format.type && (types == type_steps::any || row->to_type == to_.type))
                add(format, output, row->kernel, row->create, parent);
        }
}

const kel_audio_plan_node* audio_plan::search(type_steps types) {
    node_count_ = reached_count_ = 0;
    expand(from_, nullptr, types);
    for (int cursor = 0; cursor < node_count_; ++cursor) {
        const kel_audio_plan_node& node = nodes_[cursor];
        if (!kel_audio_formats_differ(&node.output, &to_)) return &node;
        expand(node.output, &node, types);
    }
    return nullptr;
}

kel_audio_step* build_chain(const kel_audio_plan_node* last) {
    kel_audio_step* chain = nullptr;
    for (const kel_audio_plan_node* node = last; node; node = node->parent) {
        kel_audio_step* step = make_step(*node);
        if (!step) {
            errno_keeper keep;
            release_chain(chain);
            return nullptr;
        }
        step->next = chain;
        chain = step;
    }
    return chain;
}

void release_chain(kel_audio_step* chain) {
    while (chain) {
        kel_audio_step* next = chain->next;
        chain->release(chain);
        chain = next;
    }
}

}  // namespace kel
