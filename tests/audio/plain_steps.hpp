// The conversion steps written again from their formulas, one value at a time, for whole streams.
#pragma once

#include <kel.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "audio/planner.hpp"
#include "audio/steps.hpp"

namespace kel_test {

using bytes = std::vector<uint8_t>;

// Names of the kernels in the order of the exported tables.
inline constexpr const char* type_kernel_names[] = {
    "convert_flip_sign_8",      "convert_flip_sign_8",      "convert_flip_sign_16le",
    "convert_flip_sign_16le",   "convert_flip_sign_16be",   "convert_flip_sign_16be",
    "convert_swap_bytes_16",    "convert_swap_bytes_16",    "convert_swap_bytes_16",
    "convert_swap_bytes_16",    "convert_s8_to_s16le",      "convert_s16le_to_s8",
    "convert_s24_8le_to_s16le", "convert_s16le_to_s24_8le",
};
inline constexpr const char* rate_kernel_names[] = {
    "rate_double_8",     "rate_double_16", "rate_halve_8",    "rate_halve_16",       "rate_quadruple_8",
    "rate_quadruple_16", "rate_quarter_8", "rate_quarter_16", "rate_resample_s16le",
};
inline constexpr const char* channel_kernel_names[] = {
    "channels_downmix_s8",  "channels_downmix_s16", "channels_downmix_u8",
    "channels_downmix_u16", "channels_upmix_8",     "channels_upmix_16",
};

template <size_t count, typename Row>
const char* name_in(const Row* table, const char* const (&names)[count], kel_audio_step_kernel kernel) {
    for (size_t i = 0; i < count && table[i].kernel; ++i)
        if (table[i].kernel == kernel) return names[i];
    return nullptr;
}

inline std::string kernel_name(kel_audio_step_kernel kernel, int channels) {
    if (const char* name = name_in(kel_type_conversion_steps_c, type_kernel_names, kernel)) return name;
    if (const char* name = name_in(kel_channel_conversion_steps_c, channel_kernel_names, kernel)) return name;
    if (const char* name = name_in(kel_rate_conversion_steps_c, rate_kernel_names, kernel)) return name;
    // The factory's choices stand in no table.
    const kel_audio_format from = {2, channels, KEL_AUDIO_TYPE_S16LE},
                           to = {3, channels, KEL_AUDIO_TYPE_S16LE};
    kel_audio_step* step = kel_rate_conversion_steps_c[8].create(&from, &to);
    const bool same = step->kernel == kernel;
    step->release(step);
    return !same ? "?" : channels == 1 ? "rate_resample_s16le_mono" : "rate_resample_s16le_stereo";
}

// Names of the kernels of the chain that is planned from one format to the other; empty when there is none.
inline std::vector<std::string> planned_chain(const kel_audio_format& from, const kel_audio_format& to) {
    kel::audio_plan plan(from, to);
    const kel_audio_plan_node* last = plan.search(kel::type_steps::direct);
    if (!last) last = plan.search(kel::type_steps::any);
    kel_audio_step* chain = last ? kel::build_chain(last) : nullptr;
    std::vector<std::string> names;
    int channels = from.channels;
    for (const kel_audio_step* step = chain; step; step = step->next) {
        names.push_back(kernel_name(step->kernel, channels));
        if (names.back().starts_with("channels_")) channels = to.channels;
    }
    kel::release_chain(chain);
    return names;
}

// A value of 1, 2 or 4 bytes as a number, in the byte order of the type; signed when the type is.
inline int64_t get_value(const uint8_t* at, uint32_t type) {
    const int size = static_cast<int>(type >> 4 & 7);
    uint32_t raw = 0;
    for (int i = 0; i < size; ++i) {
        const int place = type & KEL_AUDIO_TYPE_BIG_ENDIAN ? size - 1 - i : i;
        raw |= static_cast<uint32_t>(at[i]) << (8 * place);
    }
    if (!(type & KEL_AUDIO_TYPE_SIGNED)) return raw;
    return size == 1   ? static_cast<int8_t>(raw)
           : size == 2 ? static_cast<int16_t>(raw)
                       : static_cast<int32_t>(raw);
}

inline void put_value(bytes& out, int64_t value, uint32_t type) {
    const int size = static_cast<int>(type >> 4 & 7);
    for (int i = 0; i < size; ++i) {
        const int place = type & KEL_AUDIO_TYPE_BIG_ENDIAN ? size - 1 - i : i;
        out.push_back(static_cast<uint8_t>(static_cast<uint64_t>(value) >> (8 * place)));
    }
}

// A stream converted by one step, as if it were one block with room enough.
inline bytes plain_step(const std::string& name, const bytes& in, kel_audio_format& format,
                        const kel_audio_format& target) {
    const kel_audio_format from = format;
    const auto value_bytes = static_cast<size_t>(from.type >> 4 & 7);
    const auto channels = static_cast<size_t>(from.channels);
    const size_t frames = in.size() / (value_bytes * channels);
    auto value = [&](size_t frame, size_t channel) {
        return get_value(&in[(frame * channels + channel) * value_bytes], from.type);
    };
    bytes out;
    auto each = [&](uint32_t type, auto convert) {
        for (size_t i = 0; i < frames * channels; ++i)
            put_value(out, convert(value(i / channels, i % channels)), type);
        format.type = type;
    };
    const int64_t half = value_bytes == 1 ? 0x80 : 0x8000;
    if (name.starts_with("convert_flip_sign")) {
        const bool is_signed = from.type & KEL_AUDIO_TYPE_SIGNED;
        each(from.type ^ KEL_AUDIO_TYPE_SIGNED, [&](int64_t v) { return is_signed ? v + half : v - half; });
    } else if (name == "convert_swap_bytes_16") {
        each(from.type ^ KEL_AUDIO_TYPE_BIG_ENDIAN, [](int64_t v) { return v; });
    } else if (name == "convert_s8_to_s16le") {
        each(KEL_AUDIO_TYPE_S16LE, [](int64_t v) { return v * 256; });
    } else if (name == "convert_s16le_to_s8") {
        each(KEL_AUDIO_TYPE_S8, [](int64_t v) { return v >> 8; });
    } else if (name == "convert_s16le_to_s24_8le") {
        each(KEL_AUDIO_TYPE_S24_8LE, [](int64_t v) { return v * 256; });
    } else if (name == "convert_s24_8le_to_s16le") {
        each(KEL_AUDIO_TYPE_S16LE, [](int64_t v) { return std::clamp<int64_t>(v >> 8, -32768, 32767); });
    } else if (name.starts_with("channels_downmix")) {
        for (size_t i = 0; i < frames; ++i) put_value(out, (value(i, 0) + value(i, 1)) >> 1, from.type);
        format.channels = 1;
    } else if (name.starts_with("channels_upmix")) {
        for (size_t i = 0; i < 2 * frames; ++i) put_value(out, value(i / 2, 0), from.type);
        format.channels = 2;
    } else if (name.starts_with("rate_resample")) {
        const int64_t increment = int64_t{from.rate} * 65536 / target.rate;
        for (int64_t p = 0; p >> 16 < static_cast<int64_t>(frames) - 1; p += increment)
            for (size_t c = 0; c < channels; ++c) {
                const auto k = static_cast<size_t>(p >> 16);
                const int64_t a = value(k, c), b = value(k + 1, c);
                put_value(out, a + (((b - a) * (p & 0xffff)) >> 16), from.type);
            }
        format.rate = target.rate;
    } else {
        const bool raises = name.starts_with("rate_double") || name.starts_with("rate_quadruple");
        const size_t factor = name.starts_with("rate_double") || name.starts_with("rate_halve") ? 2 : 4;
        const size_t count = raises ? frames * factor : (frames + factor - 1) / factor;
        for (size_t i = 0; i < count; ++i)
            for (size_t c = 0; c < channels; ++c)
                put_value(out, value(raises ? i / factor : i * factor, c), from.type);
        format.rate = target.rate;
    }
    return out;
}

// A stream converted by the planned chain.
inline bytes plain_conversion(bytes stream, const kel_audio_format& from, const kel_audio_format& to) {
    kel_audio_format format = from;
    for (const std::string& name : planned_chain(from, to)) stream = plain_step(name, stream, format, to);
    return stream;
}

}  // namespace kel_test
