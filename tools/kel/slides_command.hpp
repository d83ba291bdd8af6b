// kel slides: a clip of photographs.
#pragma once

#include <string>
#include <vector>

namespace kel_tool {

struct slides_options {
    std::vector<std::string> photographs;
    std::string output;
    int seconds = 3;  // of each
    std::string size = "1280x720";
    int frame_rate = 25;
    bool replace = false;
    bool quiet = false;
};

void make_slides(const slides_options& options);  // throws failure

}  // namespace kel_tool
