// How a filter is written on the command line: NAME or NAME=PARAMETER:VALUE,PARAMETER:VALUE. A value of several
// components has slashes between them: color:1/0.5/0.
#pragma once

#include <string>
#include <vector>

namespace kel_tool {

struct filter_spec {
    struct parameter {
        std::string name;
        std::vector<double> values;  // at least one
    };
    std::string name;
    std::vector<parameter> parameters;
};

filter_spec parse_filter_spec(const std::string& text);  // throws failure

// A whole text as a number. Throws failure, which names `what`.
double parse_number(const std::string& text, const std::string& what);

// The parts between the separators; one at least.
std::vector<std::string> split(const std::string& text, char separator);

}  // namespace kel_tool
