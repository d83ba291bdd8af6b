// A second reading of filter texts, slow and plain, for comparison with the library's.
#pragma once

#include <kel.h>

#include <algorithm>
#include <cfloat>
#include <optional>
#include <string>
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

inline std::string lowered(std::string text) {
    for (char& c : text) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    return text;
}

inline std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t") + 1 - first);
}

// What stands between any of the separators, without blanks around it.
inline std::vector<std::string> pieces(const std::string& text, const char* separators) {
    std::vector<std::string> all;
    for (size_t begin = 0, end = 0; end != std::string::npos; begin = end + 1) {
        end = text.find_first_of(separators, begin);
        all.push_back(trimmed(text.substr(begin, end - begin)));
    }
    return all;
}

inline std::vector<std::string> filled_pieces(const std::string& text, const char* separators) {
    std::vector<std::string> all = pieces(text, separators);
    std::erase(all, "");
    return all;
}

// The digits up to the first other character, a second point or a second minus.
inline double plain_number(const std::string& text) {
    double number = 0, scale = 0.1;
    bool minus = false, point = false;
    for (const char c : text) {
        if (c == '-' && !minus) {
            minus = true;
        } else if (c == '.' && !point) {
            point = true;
        } else if (c < '0' || c > '9') {
            break;
        } else {
            number = point ? number + (c - '0') * scale : number * 10 + (c - '0');
            if (point) scale /= 10;
        }
    }
    return minus ? -number : number;
}

inline void plain_attribute(PlainParam& param, const std::string& field) {
    const std::string key = lowered(filled_pieces(field, " \t")[0]);
    std::vector<double> values;
    for (const auto& value : pieces(field.substr(key.size()), ",")) {
        if (value.empty() || values.size() == 4) break;
        values.push_back(plain_number(value));
    }
    if (values.empty()) return;
    values.resize(4, values.back());
    if (key == "min") param.min = values;
    if (key == "max") param.max = values;
    if (key == "default") param.fallback = values;
}

inline std::optional<PlainParam> plain_param(const std::string& value) {
    static const std::vector<std::string> precisions = {"", "lowp", "mediump", "highp"};
    static const std::vector<std::string> types = {"float", "vec2",  "vec3",  "vec4",   "int",
                                                   "ivec2", "ivec3", "ivec4", "texture"};
    const auto index = [](const auto& list, const std::string& word) {
        return std::find(list.begin(), list.end(), lowered(word)) - list.begin();
    };
    const std::vector<std::string> fields = filled_pieces(value, ";");
    std::vector<std::string> words = fields.empty() ? fields : filled_pieces(fields[0], " \t");
    if (words.size() == 2) words.insert(words.begin(), "mediump");
    if (words.size() < 3 || index(types, words[1]) == 9) return {};
    const int precision = static_cast<int>(index(precisions, words[0]) % 4);
    const int type = static_cast<int>(index(types, words[1]));
    PlainParam param = {words[2], type / 4 + 1, type % 4 + 1, precision, {}, {}, {}};
    param.min.assign(4, DBL_MIN);
    param.max.assign(4, DBL_MAX);
    param.fallback.assign(4, 0.0);
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
    for (std::string line : pieces(text.substr(2, end - 2), "\r\n")) {
        line = trimmed(line.substr(0, line.find("//")));
        if (line.empty()) continue;
        const size_t colon = std::min(line.find(':'), line.size());
        const std::string value = trimmed(line.substr(std::min(colon + 1, line.size())));
        const std::string word = value.empty() ? "" : filled_pieces(value, " \t")[0];
        const std::string directive = trimmed(line.substr(0, colon)), key = lowered(directive);
        if (key == "filter") {
            if (filter.name.empty()) filter.name = word;
        } else if (key == "main") {
            if (filter.main.empty()) filter.main = word;
        } else if (key == "description") {
            if (filter.description.empty()) filter.description = value;
        } else if (key != "parameter") {
            unknown += "Unknown directive: " + directive + "\n";
        } else if (const auto param = plain_param(value)) {
            filter.params.push_back(*param);
        }
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
