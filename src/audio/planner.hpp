// The shortest chain of steps between two formats.
#pragma once

#include <kel.h>

#include <cstdint>

// One step of a possible chain.
struct kel_audio_plan_node {
    kel_audio_format input;
    kel_audio_format output;
    kel_audio_step_kernel kernel;
    kel_audio_step_create create;       // null: a plain record
    const kel_audio_plan_node* parent;  // the step before; null for the first
};

namespace kel {

enum class type_steps {
    direct,  // only straight to the target's type
    any,
};

// A breadth-first search over formats.
class audio_plan {
  public:
    audio_plan(const kel_audio_format& from, const kel_audio_format& to) : from_(from), to_(to) {}

    // The last step of the shortest chain, or null. What it points to lives as long as the plan.
    const kel_audio_plan_node* search(type_steps types);

  private:
    static constexpr int most_nodes = 32;
    static constexpr int most_formats = 32;

    void expand(const kel_audio_format& format, const kel_audio_plan_node* parent, type_steps types);
    void add(const kel_audio_format& input, const kel_audio_format& output, kel_audio_step_kernel kernel,
             kel_audio_step_create create, const kel_audio_plan_node* parent);

    const kel_audio_format& from_;
    const kel_audio_format& to_;
    kel_audio_plan_node nodes_[most_nodes];
    int node_count_ = 0;
    kel_audio_format reached_[most_formats];
    int reached_count_ = 0;
};

// Makes the steps of the chain that ends with `last`. The first one, or null with errno and nothing left.
kel_audio_step* build_chain(const kel_audio_plan_node* last);

// Releases every step of a chain.
void release_chain(kel_audio_step* chain);

}  // namespace kel
