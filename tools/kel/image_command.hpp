// kel image: any image as a PNG file.
#pragma once

#include <string>
#include <vector>

namespace kel_tool {

// Words of the command line; empty ones were not given.
struct image_options {
    std::string input, output;
    bool replace = false;
    std::string fit;
    std::vector<std::string> filters;
};

void convert_image(const image_options& options);  // throws failure

}  // namespace kel_tool
