#include "option_values.hpp"

#include <charconv>
#include <cmath>
#include <cstdlib>

#include "media/failure.hpp"
#include "media/filter_spec.hpp"

namespace kel_tool {
namespace {

constexpr int most_side = 8192;  // pixels; what OpenGL ES draws everywhere
constexpr int most_pixels = 1 << 20;
constexpr int most_picture_side = 16384;  // pixels, of a still picture

[[noreturn]] void refuse(const std::string& text, const std::string& wanted) {
    throw failure("'" + text + "' is not " + wanted, exit_usage);
}

template <typename Value>
struct named {
    const char* name;
    Value value;
};

template <typename Value, size_t count>
Value find(const named<Value> (&table)[count], const std::string& text, const std::string& wanted) {
    for (const auto& row : table)
        if (text == row.name) return row.value;
    refuse(text, wanted);
}

// So many integers between separators, none farther from 0 than sums of them can bear.
template <size_t count>
void parse_integers(const std::string& text, char separator, int (&values)[count],
                    const std::string& wanted) {
    const char* at = text.data();
    const char* end = at + text.size();
    for (size_t i = 0; i < count; ++i) {
        if (i > 0 && (at == end || *at++ != separator)) refuse(text, wanted);
        const auto [stop, error] = std::from_chars(at, end, values[i]);
        if (error != std::errc() || std::abs(int64_t{values[i]}) > most_pixels) refuse(text, wanted);
        at = stop;
    }
    if (at != end) refuse(text, wanted);
}

}  // namespace

int64_t parse_time(const std::string& text) {
    const auto parts = split(text, ':');
    double seconds = 0;
    for (const std::string& part : parts) seconds = seconds * 60 + parse_number(part, "time " + text);
    if (parts.size() > 3 || seconds < 0 || seconds > 1e9) refuse(text, "a time: seconds, M:S or H:M:S");
    return std::llround(seconds * 1e6);
}

picture_size parse_size(const std::string& text) {
    const std::string wanted = "a size: WIDTHxHEIGHT, both even, from 2 to " + std::to_string(most_side);
    int sides[2];
    parse_integers(text, 'x', sides, wanted);
    for (int side : sides)
        if (side < 2 || side > most_side || side % 2 != 0) refuse(text, wanted);
    return {sides[0], sides[1]};
}

picture_size parse_pair(const std::string& text, int most, const std::string& wanted) {
    int sides[2];
    parse_integers(text, 'x', sides, wanted);
    for (int side : sides)
        if (side < 1 || side > most) refuse(text, wanted);
    return {sides[0], sides[1]};
}

picture_size parse_picture_size(const std::string& text) {
    return parse_pair(text, most_picture_side,
                      "a size: WIDTHxHEIGHT, from 1 to " + std::to_string(most_picture_side));
}

kel_point parse_position(const std::string& text) {
    int values[2];
    parse_integers(text, ',', values, "a position: X,Y");
    return {values[0], values[1]};
}

kel_rect parse_box(const std::string& text) {
    int values[4];
    parse_integers(text, ',', values, "a box: X,Y,WIDTH,HEIGHT");
    if (values[2] < 1 || values[3] < 1) refuse(text, "a box: its width and height are at least 1");
    return {values[0], values[1], values[2], values[3]};
}

uint32_t parse_color(const std::string& text) {
    constexpr named<uint32_t> names[] = {
        {"white", 0xFFFFFFFF}, {"black", 0xFF000000},  {"red", 0xFFFF0000},  {"green", 0xFF00FF00},
        {"blue", 0xFF0000FF},  {"yellow", 0xFFFFFF00}, {"cyan", 0xFF00FFFF}, {"magenta", 0xFFFF00FF}};
    const std::string wanted = "a colour: #RRGGBB, #RRGGBBAA or a name such as white";
    if (text.empty() || text[0] != '#') return find(names, text, wanted);
    uint32_t value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + 1, end, value, 16);
    if (error != std::errc() || stop != end || (text.size() != 7 && text.size() != 9)) refuse(text, wanted);
    return text.size() == 7 ? 0xFF000000 | value : value << 24 | value >> 8;
}

void parse_align(const std::string& text, int& halign, int& valign) {
    constexpr named<int> across[] = {
        {"center", KEL_TEXT_HALIGN_CENTER}, {"left", KEL_TEXT_HALIGN_LEFT}, {"right", KEL_TEXT_HALIGN_RIGHT}};
    constexpr named<int> along[] = {{"baseline", KEL_TEXT_VALIGN_BASELINE},
                                    {"bottom", KEL_TEXT_VALIGN_BOTTOM},
                                    {"center", KEL_TEXT_VALIGN_CENTER},
                                    {"top", KEL_TEXT_VALIGN_TOP}};
    const std::string wanted =
        "an alignment: left, center or right, and after a comma baseline, bottom, center or top";
    const auto parts = split(text, ',');
    if (parts.size() > 2) refuse(text, wanted);
    halign = find(across, parts[0], wanted);
    if (parts.size() == 2) valign = find(along, parts[1], wanted);
}

uint32_t parse_audio_type(const std::string& text) {
    constexpr named<uint32_t> types[] = {
        {"U8", KEL_AUDIO_TYPE_U8}, {"S16LE", KEL_AUDIO_TYPE_S16LE}, {"S24.8LE", KEL_AUDIO_TYPE_S24_8LE}};
    return find(types, text, "a sample type: U8, S16LE or S24.8LE");
}

}  // namespace kel_tool
