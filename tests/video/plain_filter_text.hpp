// A second reading of filter texts, slow and plain, for comparison with the library's.
#pragma once

#include <kel.h>

#include <cfloat>
#include <optional>
#include <sstream>
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

inline std::vector<std::string> words(const std::string& text) {
    std::vector<std::string> all;
    std::string word;
    for (const char c : text + " ") {
        if (c != ' ' && c != '\t') {
            word += c;
        } else if (!word.empty()) {
            all.push_back(word);
            word.clear();
        }
    }
    return all;
}

inline double plain_number(const std::string& text) {
    double whole = 0, scale = 1;
    int minus = 0, points = 0;
    for (const char c : text) {
        if (c == '-') {
            if (minus++) break;
        } else if (c == '.') {
            if (points++) break;
            scale = 0.1;
        } else if (c < '0' || c > '9') {
            break;
        } else if (points) {
            whole += (c - '0') * scale;
            scale /= 10;
        } else {
            whole = whole * 10 + (c - '0');
        }
    }
    return minus ? -whole : whole;
}

inline void plain_attribute(PlainParam& param, const std::string& field) {
    const std::string key = lowered(words(field)[0]);
    std::vector<double>* target = key == "min"       ? &param.min
                                  : key == "max"     ? &param.max
                                  : key == "default" ? &param.fallback
                                                     : nullptr;
    std::vector<double> values;
    for (const auto& value : pieces(field.substr(key.size()), ',')) {
        if (value.empty() || values.size() == 4) break;
        values.push_back(plain_number(value));
    }
    if (!target || values.empty()) return;
    values.resize(4, values.back());
    *target = values;
}

inline std::optional<PlainParam> plain_param(const std::string& value) {
    std::vector<std::string> fields;
    for (const auto& field : pieces(value, ';')) {
        if (!field.empty()) fields.push_back(field);
    }
    auto declaration = fields.empty() ? fields : words(fields[0]);
    if (declaration.size() < 2) return {};
    if (declaration.size() == 2) declaration.insert(declaration.begin(), "mediump");
    PlainParam param = {declaration[2], 0, 1, 0, {}, {}, {}};
    param.min.assign(4, DBL_MIN);
    param.max.assign(4, DBL_MAX);
    param.fallback.assign(4, 0.0);
    const std::string precision = lowered(declaration[0]);
    std::string type = lowered(declaration[1]);
    if (precision == "lowp") param.precision = 1;
    if (precision == "mediump") param.precision = 2;
    if (precision == "highp") param.precision = 3;
    if (type == "vec2" || type == "vec3" || type == "vec4" || type == "ivec2" || type == "ivec3" ||
        type == "ivec4") {
        param.count = type.back() - '0';
        type = type[0] == 'i' ? "int" : "float";
    }
    if (type != "float" && type != "int" && type != "texture") return {};
    param.type = type == "float" ? KEL_PARAM_FLOAT : type == "int" ? KEL_PARAM_INT : KEL_PARAM_TEXTURE;
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
        if (key == "filter") {
            if (filter.name.empty()) filter.name = word;
        } else if (key == "main") {
            if (filter.main.empty()) filter.main = word;
        } else if (key == "description") {
            if (filter.description.empty()) filter.description = value;
        } else if (key == "parameter") {
            if (const auto param = plain_param(value)) filter.params.push_back(*param);
        } else {
            unknown += "Unknown directive: " + directive + "\n";
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
