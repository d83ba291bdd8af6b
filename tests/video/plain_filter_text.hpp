// A second reading of filter texts, slow and plain, for comparison with the library's.
#pragma once

#include <kel.h>

#include <algorithm>
#include <cfloat>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace kel_test {

struct PlainParam {
    std::string name;
    int type, count, precision;
    std::vector<double> min, max, fallback;
    bool operator==(const PlainParam&) const = default;
};

struct PlainFilter {
    std::string name, description, main, source;
    std::vector<PlainParam> params;
    bool operator==(const PlainFilter&) const = default;
};

inline std::string trimmed(std::string text) {
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.pop_back();
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.erase(0, 1);
    return text;
}

inline std::string lowered(std::string text) {
    for (char& c : text) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    return text;
}

inline std::vector<std::string> pieces(const std::string& text, char separator) {
    std::vector<std::string> all(1);
    for (const char c : text) {
        if (c == separator)
            all.emplace_back();
        else
            all.back() += c;
    }
    for (auto& piece : all) piece = trimmed(piece);
    return all;
}

inline std::vector<std::string> words(std::string text) {
    std::replace(text.begin(), text.end(), '\t', ' ');
    std::vector<std::string> all = pieces(text, ' ');
    std::erase(all, "");
    return all;
}

inline double plain_number(const std::string& text) {
    double number = 0, scale = 0.1;
    bool minus = false, point = false;
    for (const char c : text) {
        bool* mark = c == '-' ? &minus : c == '.' ? &point : nullptr;
        if (mark ? *mark : c < '0' || c > '9') break;
        if (mark) {
            *mark = true;
        } else {
            number = point ? number + (c - '0') * scale : number * 10 + (c - '0');
            if (point) scale /= 10;
        }
    }
    return minus ? -number : number;
}

inline void plain_attribute(PlainParam& param, const std::string& field) {
    const std::string key = lowered(words(field)[0]);
    static const std::map<std::string, std::vector<double> PlainParam::*> targets = {
        {"min", &PlainParam::min}, {"max", &PlainParam::max}, {"default", &PlainParam::fallback}};
    const auto target = targets.find(key);
    std::vector<double> values;
    for (const auto& value : pieces(field.substr(key.size()), ',')) {
        if (value.empty() || values.size() == 4) break;
        values.push_back(plain_number(value));
    }
    if (target == targets.end() || values.empty()) return;
    values.resize(4, values.back());
    param.*target->second = values;
}

inline std::optional<PlainParam> plain_param(const std::string& value) {
    std::vector<std::string> fields = pieces(value, ';');
    std::erase(fields, "");
    auto declaration = fields.empty() ? fields : words(fields[0]);
    if (declaration.size() < 2) return {};
    if (declaration.size() == 2) declaration.insert(declaration.begin(), "mediump");
    PlainParam param = {declaration[2], 0, 1, 0, {}, {}, {}};
    param.min.assign(4, DBL_MIN);
    param.max.assign(4, DBL_MAX);
    param.fallback.assign(4, 0.0);
    static const std::map<std::string, int> precisions = {{"lowp", 1}, {"mediump", 2}, {"highp", 3}};
    static const std::map<std::string, std::pair<int, int>> types = {
        {"float", {1, 1}}, {"vec2", {1, 2}},  {"vec3", {1, 3}},  {"vec4", {1, 4}},   {"int", {2, 1}},
        {"ivec2", {2, 2}}, {"ivec3", {2, 3}}, {"ivec4", {2, 4}}, {"texture", {3, 1}}};
    const auto precision = precisions.find(lowered(declaration[0]));
    const auto type = types.find(lowered(declaration[1]));
    if (type == types.end()) return {};
    if (precision != precisions.end()) param.precision = precision->second;
    std::tie(param.type, param.count) = type->second;
    for (size_t i = 1; i < fields.size(); ++i) plain_attribute(param, fields[i]);
    return param;
}

// What the text is, and in `unknown` what standard error gets.
inline std::optional<PlainFilter> plain_filter(std::string text, std::string& unknown) {
    text.erase(0, std::min(text.find_first_not_of(" \n\r\t"), text.size()));
    const size_t end = text.find("*/", 2);
    if (text.compare(0, 2, "/*") != 0 || end == std::string::npos) return {};
    PlainFilter filter;
    filter.source = text.substr(end + 2);
    std::string header = text.substr(2, end - 2);
    for (char& c : header) c = c == '\r' ? '\n' : c;  // pairs become empty lines, which count for nothing
    std::istringstream lines(header);
    for (std::string line; std::getline(lines, line);) {
        line = trimmed(line.substr(0, line.find("//")));
        if (line.empty()) continue;
        const std::string directive = trimmed(line.substr(0, line.find(':')));
        const std::string value =
            line.find(':') == std::string::npos ? "" : trimmed(line.substr(line.find(':') + 1));
        const std::string word = value.empty() ? "" : words(value)[0];
        const std::string key = lowered(directive);
        const auto set_once = [](std::string& field, const std::string& to) {
            if (field.empty()) field = to;
        };
        if (key == "filter")
            set_once(filter.name, word);
        else if (key == "main")
            set_once(filter.main, word);
        else if (key == "description")
            set_once(filter.description, value);
        else if (key != "parameter")
            unknown += "Unknown directive: " + directive + "\n";
        else if (const auto param = plain_param(value))
            filter.params.push_back(*param);
    }
    if (filter.name.empty()) return {};
    if (filter.main.empty()) filter.main = filter.name;
    return filter;
}

inline PlainParam plain(const kel_video_filter_param& param) {
    return {param.name,
            param.type,
            param.count,
            param.precision,
            {param.min, param.min + 4},
            {param.max, param.max + 4},
            {param.default_, param.default_ + 4}};
}

}  // namespace kel_test
