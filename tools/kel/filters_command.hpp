// kel filters: what the shelf has, and whether a filter's text is sound.
#pragma once

#include <string>
#include <vector>

namespace kel_tool {

struct filters_options {
    std::vector<std::string> files;  // or names on the shelf; without any the shelf is listed
    bool names_only = false;
};

void show_filters(const filters_options& options);  // throws failure, also when a file does not compile

}  // namespace kel_tool
