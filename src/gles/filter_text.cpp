// Reads a filter's text. Nothing here fails loudly: what is malformed is dropped, and only a directive that
// nobody knows is reported, on standard error.
#include "gles/filter_text.hpp"

#include <algorithm>
#include <cfloat>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/guard.hpp"

namespace {

using std::string_view;

constexpr string_view blanks = " \t";
constexpr int max_components = 4;

struct keyword {
    string_view word;
    int value;
};

struct param_type {
    string_view word;
    int type;
    int count;
};

constexpr keyword precisions[] = {
    {"lowp", KEL_PRECISION_LOW}, {"mediump", KEL_PRECISION_MEDIUM}, {"highp", KEL_PRECISION_HIGH}};

constexpr param_type param_types[] = {
    {"float", KEL_PARAM_FLOAT, 1}, {"vec2", KEL_PARAM_FLOAT, 2}, {"vec3", KEL_PARAM_FLOAT, 3},
    {"vec4", KEL_PARAM_FLOAT, 4},  {"int", KEL_PARAM_INT, 1},    {"ivec2", KEL_PARAM_INT, 2},
    {"ivec3", KEL_PARAM_INT, 3},   {"ivec4", KEL_PARAM_INT, 4},  {"texture", KEL_PARAM_TEXTURE, 1}};

// The parts of a text before and from a position; npos stands for its end.
string_view head(string_view text, size_t position) {
    return {text.data(), std::min(position, text.size())};
}
string_view tail(string_view text, size_t position) {
    text.remove_prefix(std::min(position, text.size()));
    return text;
}

string_view skip(string_view text, string_view characters) {
    return tail(text, text.find_first_not_of(characters));
}

string_view trim(string_view text) {
    text = skip(text, blanks);
    return head(text, text.find_last_not_of(blanks) + 1);
}

// Takes one token off the front of `rest`: up to the first of `separators`, which goes too, or to the end.
string_view take_token(string_view& rest, string_view separators) {
    rest = skip(rest, blanks);
    const string_view token = head(rest, rest.find_first_of(separators));
    rest = tail(rest, token.size() + 1);
    return trim(token);
}

char to_lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool same_word(string_view a, string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (to_lower(a[i]) != to_lower(b[i])) return false;
    }
    return true;
}

// Digits, at most one point, one minus anywhere; whatever else comes first ends the number.
double to_number(string_view text) {
    double number = 0;
    double scale = 0.1;  // of the next digit after the point
    bool fraction = false;
    bool negative = false;
    for (const char c : text) {
        if (c == '.' && !fraction) {
            fraction = true;
        } else if (c == '-' && !negative) {
            negative = true;
        } else if (c < '0' || c > '9') {
            break;
        } else if (!fraction) {
            number = number * 10 + (c - '0');
        } else {
            number += (c - '0') * scale;
            scale /= 10;
        }
    }
    return negative ? -number : number;
}

// The first value counts. False when out of memory.
bool set_once(char*& text, string_view value) {
    if (text || value.empty()) return true;
    text = strndup(value.data(), value.size());
    return text != nullptr;
}

// "min 0, 0, 1": the last value given stands for the components that are left.
void read_attribute(string_view field, kel_video_filter_param& param) {
    const string_view key = take_token(field, blanks);
    double* values = same_word(key, "min")       ? param.min
                     : same_word(key, "max")     ? param.max
                     : same_word(key, "default") ? param.default_
                                                 : nullptr;
    if (!values) return;
    int count = 0;
    while (count < max_components) {
        const string_view value = take_token(field, ",");
        if (value.empty()) break;
        values[count++] = to_number(value);
    }
    for (int i = count; count > 0 && i < max_components; ++i) values[i] = values[count - 1];
}

// "[precision] type name". Without a known type, or a name, the parameter keeps the type 0.
string_view read_declaration(string_view field, kel_video_filter_param& param) {
    const string_view first = take_token(field, blanks);
    const string_view second = take_token(field, blanks);
    const string_view third = take_token(field, blanks);
    const bool has_precision = !third.empty();
    const string_view precision_word = has_precision ? first : "mediump";
    for (const keyword& precision : precisions) {
        if (same_word(precision.word, precision_word)) param.precision = precision.value;
    }
    const string_view name = has_precision ? third : second;
    if (name.empty()) return name;
    for (const param_type& type : param_types) {
        if (!same_word(type.word, has_precision ? second : first)) continue;
        param.type = type.type;
        param.count = type.count;
    }
    return name;
}

// Places for parameters grow by doubling. False when out of memory.
bool append(kel_video_filter& filter, kel::owned<kel_video_filter_param>& param) {
    const auto count = static_cast<size_t>(filter.num_params);
    if ((count & (count - 1)) == 0) {
        const size_t places = count == 0 ? 1 : count * 2;
        void* grown = realloc(filter.params, places * sizeof(kel_video_filter_param*));
        if (!grown) return false;
        filter.params = static_cast<kel_video_filter_param**>(grown);
    }
    filter.params[filter.num_params++] = param.release();
    return true;
}

// False when out of memory.
bool add_param(kel_video_filter& filter, string_view value) {
    kel_video_filter_param param = {};
    string_view name;
    for (int i = 0; i < max_components; ++i) {
        param.min[i] = DBL_MIN;
        param.max[i] = DBL_MAX;
    }
    bool declared = false;
    while (!value.empty()) {
        const string_view field = take_token(value, ";");
        if (field.empty()) continue;
        if (declared) {
            read_attribute(field, param);
        } else {
            name = read_declaration(field, param);
            declared = true;
        }
    }
    if (param.type == 0) return true;

    auto record = kel::make_record<kel_video_filter_param>();
    if (!record) return false;
    *record = param;
    record->name = strndup(name.data(), name.size());
    if (!record->name) return false;
    kel::scope_exit free_name([text = record->name] { free(text); });
    if (!append(filter, record)) return false;
    free_name.dismiss();
    return true;
}

// One line without its end. False when out of memory.
bool read_line(kel_video_filter& filter, string_view line) {
    line = trim(head(line, line.find("//")));
    if (line.empty()) return true;
    const size_t colon = line.find(':');
    const string_view directive = trim(head(line, colon));
    string_view value = colon == string_view::npos ? string_view() : tail(line, colon + 1);
    if (same_word(directive, "Filter")) return set_once(filter.name, take_token(value, blanks));
    if (same_word(directive, "Main")) return set_once(filter.main, take_token(value, blanks));
    if (same_word(directive, "Description")) return set_once(filter.description, trim(value));
    if (same_word(directive, "Parameter")) return add_param(filter, value);
    fprintf(stderr, "Unknown directive: %.*s\n", static_cast<int>(directive.size()), directive.data());
    return true;
}

// Lines end at CR LF, LF CR, LF or CR. False when out of memory.
bool read_header(kel_video_filter& filter, string_view header) {
    for (;;) {
        const size_t end = header.find_first_of("\r\n");
        if (!read_line(filter, head(header, end))) return false;
        if (end == string_view::npos) return true;
        const bool is_pair =
            end + 1 < header.size() && header[end + 1] == (header[end] == '\r' ? '\n' : '\r');
        header.remove_prefix(end + (is_pair ? 2 : 1));
    }
}

}  // namespace

kel_video_filter* kel::parse_video_filter(string_view text) {
    text = skip(text, " \n\r\t");
    if (!text.starts_with("/*")) return nullptr;
    text.remove_prefix(2);
    const size_t end = text.find("*/");
    if (end == string_view::npos) return nullptr;
    const string_view source = tail(text, end + 2);

    kel_video_filter* filter = make_record<kel_video_filter>().release();
    if (!filter) return nullptr;
    scope_exit discard([&] { free_video_filter(filter); });
    if (!read_header(*filter, head(text, end)) || !filter->name) return nullptr;
    filter->type = KEL_VIDEO_FILTER_SHADER;
    if (!set_once(filter->main, filter->name)) return nullptr;
    filter->source = strndup(source.data(), source.size());
    if (!filter->source) return nullptr;
    discard.dismiss();
    return filter;
}

void kel::free_video_filter(kel_video_filter* filter) {
    for (int i = 0; i < filter->num_params; ++i) {
        free(filter->params[i]->name);
        free(filter->params[i]);
    }
    free(filter->params);
    free(filter->main);
    free(filter->source);
    free(filter->description);
    free(filter->name);
    free(filter);
}
