// kel frame: pictures out of a video.
#pragma once

#include <string>
#include <vector>

namespace kel_tool {

// Words of the command line; empty ones were not given.
struct frame_options {
    std::string input, output;
    bool replace = false;
    std::string at;     // a time
    std::string sheet;  // COLSxROWS pictures, spread over the whole video
    std::string fit;
    std::vector<std::string> filters;
};

void extract_frame(const frame_options& options);  // throws failure

}  // namespace kel_tool
