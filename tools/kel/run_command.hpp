// kel run, kel mix and kel convert: the whole road, from files to a file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "media/overlay.hpp"

namespace kel_tool {

struct run_options {
    std::vector<std::string> inputs;
    std::string output;
    bool replace = false;        // an output that exists
    bool accept_damage = false;  // in the inputs
    bool stats = false;
    bool quiet = false;

    bool audio = true, video = true;
    std::string from, to;  // seconds, or [[H:]M:]S

    std::string gain = "1";
    std::vector<std::string> input_gains;    // N=GAIN, counted from 1
    std::vector<std::string> input_delays;   // N=TIME
    std::vector<std::string> audio_filters;  // of all inputs
    int rate = 0, channels = 0;              // 0: as the first input with audio
    std::string type;                        // U8, S16LE, S24.8LE; empty: S16LE

    std::vector<std::string> filters;
    std::string size;  // WxH; empty: as the input
    std::optional<overlay_options> text;

    std::string audio_codec, video_codec, video_options;
    int quality = -1;
};

void run(const run_options& options);  // throws failure

}  // namespace kel_tool
