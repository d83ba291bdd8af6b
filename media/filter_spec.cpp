#include "filter_spec.hpp"

#include <charconv>
#include <cmath>
#include <sstream>

#include "failure.hpp"

namespace kel_tool {

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
    if (parts.empty() || text.back() == separator) parts.emplace_back();
    return parts;
}

double parse_number(const std::string& text, const std::string& what) {
    double value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || !std::isfinite(value))
        throw failure(what + ": '" + text + "' is not a number", exit_usage);
    return value;
}

filter_spec parse_filter_spec(const std::string& text) {
    const size_t equals = text.find('=');
    filter_spec spec{text.substr(0, equals), {}};
    if (spec.name.empty()) throw failure("'" + text + "': a filter needs a name", exit_usage);
    if (equals == std::string::npos) return spec;
    for (const std::string& part : split(text.substr(equals + 1), ',')) {
        const size_t colon = part.find(':');
        if (colon == std::string::npos || colon == 0)
            throw failure("'" + text + "': parameters are written " + spec.name + "=NAME:VALUE,NAME:VALUE",
                          exit_usage);
        filter_spec::parameter parameter{part.substr(0, colon), {}};
        for (const std::string& value : split(part.substr(colon + 1), '/'))
            parameter.values.push_back(parse_number(value, spec.name + ", " + parameter.name));
        spec.parameters.push_back(parameter);
    }
    return spec;
}

}  // namespace kel_tool
