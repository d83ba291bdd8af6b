// Audio filters in a row, with parameters that stay as they are.
#pragma once

#include <kel.h>

#include <cstdint>
#include <vector>

#include "filter_spec.hpp"
#include "handles.hpp"

namespace kel_tool {

class audio_filters {
  public:
    // For slices of S24.8LE at the format's rate and channels. Throws failure.
    audio_filters(const std::vector<filter_spec>& specs, const kel_audio_format& format);

    // Filters a slice in place. Throws failure.
    void apply(const kel_slice& slice);

  private:
    // A port that wants one constant value for each frame or for each value of a frame.
    struct constant {
        kel_audio_filter_port* port;
        int32_t value;
        int32_t values_per_frame;
        std::vector<int32_t> data;
    };
    struct stage {
        audio_filter_handle filter;
        kel_audio_filter_port *input, *output;  // the filter's
        std::vector<constant> constants;
    };

    static stage make_stage(const filter_spec& spec, const kel_audio_format& format);
    static void set_parameter(stage& stage, const filter_spec& spec, const filter_spec::parameter& parameter,
                              const kel_audio_format& format);
    std::vector<stage> stages_;
};

}  // namespace kel_tool
