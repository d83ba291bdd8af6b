// Conversion written again from its formulas, one value at a time.
#pragma once

#include <kel.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "audio/planner.hpp"

namespace kel_test {

using bytes = std::vector<uint8_t>;

constexpr uint32_t U8 = KEL_AUDIO_TYPE_U8, S8 = KEL_AUDIO_TYPE_S8, U16LE = KEL_AUDIO_TYPE_U16LE,
                   S16LE = KEL_AUDIO_TYPE_S16LE, U16BE = KEL_AUDIO_TYPE_U16BE, S16BE = KEL_AUDIO_TYPE_S16BE,
                   S24 = KEL_AUDIO_TYPE_S24_8LE;
constexpr uint32_t audio_types[] = {U8, S8, U16LE, S16LE, U16BE, S16BE, S24};

constexpr size_t bytes_of(uint32_t type) {
    return type >> 4 & 7;
}

constexpr int64_t clip(int64_t value, int bits) {
    const int64_t limit = INT64_C(1) << (bits - 1);
    return std::clamp(value, -limit, limit - 1);
}

// A stored value, read from half of its range where the type is unsigned.
inline int64_t get_value(const uint8_t* at, uint32_t type) {
    const size_t size = bytes_of(type), unused = 32 - 8 * size;
    uint32_t raw = 0;
    for (size_t i = 0; i < size; ++i)
        raw = raw << 8 | at[type & KEL_AUDIO_TYPE_BIG_ENDIAN ? i : size - 1 - i];
    if (!(type & KEL_AUDIO_TYPE_SIGNED)) raw ^= 1u << (8 * size - 1);
    return static_cast<int32_t>(raw << unused) >> unused;
}

inline void put_value(bytes& out, int64_t value, uint32_t type) {
    const size_t size = bytes_of(type);
    auto raw = static_cast<uint32_t>(value);
    if (!(type & KEL_AUDIO_TYPE_SIGNED)) raw ^= 1u << (8 * size - 1);
    for (size_t i = 0; i < size; ++i) {
        const size_t place = type & KEL_AUDIO_TYPE_BIG_ENDIAN ? size - 1 - i : i;
        out.push_back(static_cast<uint8_t>(raw >> (8 * place)));
    }
}

// A value of one type as one of another; four bytes hold 24 bits and as many more as sums need.
inline int64_t plain_value(int64_t value, uint32_t from, uint32_t to) {
    const auto bits = [](uint32_t type) { return static_cast<int>(std::min<size_t>(bytes_of(type), 3)) * 8; };
    if (bits(to) >= bits(from)) return value * (1 << (bits(to) - bits(from)));
    return clip(value >> (bits(from) - bits(to)), bits(to));
}

// A stream converted by one step, as if it were one block with room enough: type, channels or rate differ.
inline bytes plain_step(const bytes& in, const kel_audio_format& from, const kel_audio_format& to) {
    const auto channels = static_cast<size_t>(from.channels);
    const auto frames = static_cast<int64_t>(in.size() / bytes_of(from.type) / channels);
    const auto value = [&](int64_t frame, size_t channel) {
        const size_t index = static_cast<size_t>(frame) * channels + channel;
        return plain_value(get_value(&in[index * bytes_of(from.type)], from.type), from.type, to.type);
    };
    bytes out;
    if (from.channels != to.channels) {
        for (int64_t i = 0; i < frames; ++i)
            for (int32_t c = 0; c < to.channels; ++c)
                put_value(out, (value(i, 0) + value(i, channels - 1)) >> 1, to.type);
        return out;
    }
    const int64_t increment = int64_t{from.rate} * 65536 / to.rate;
    const auto is_ratio = [&](int ratio) {
        return from.rate == to.rate * ratio || to.rate == from.rate * ratio;
    };
    const bool interpolated = !is_ratio(1) && !is_ratio(2) && !is_ratio(4);
    for (int64_t p = 0; p >> 16 < frames - interpolated; p += increment)
        for (size_t c = 0; c < channels; ++c) {
            const int64_t a = value(p >> 16, c), b = interpolated ? value((p >> 16) + 1, c) : a;
            put_value(out, a + (((b - a) * (p & 0xffff)) >> 16), to.type);
        }
    return out;
}

// The formats after each step of the chain that is planned; empty when there is none.
inline std::vector<kel_audio_format> planned_chain(const kel_audio_format& from, const kel_audio_format& to) {
    kel::audio_plan plan(from, to);
    const kel_audio_plan_node* node = plan.search(kel::type_steps::direct);
    if (!node) node = plan.search(kel::type_steps::any);
    std::vector<kel_audio_format> formats;
    for (; node; node = node->parent) formats.insert(formats.begin(), node->output);
    return formats;
}

// A stream converted by the planned chain.
inline bytes plain_conversion(bytes stream, const kel_audio_format& from, const kel_audio_format& to) {
    kel_audio_format format = from;
    for (const kel_audio_format& next : planned_chain(from, to)) {
        stream = plain_step(stream, format, next);
        format = next;
    }
    return stream;
}

inline std::string describe(const kel_audio_format& format) {
    return std::to_string(format.rate) + "/" + std::to_string(format.channels) + "/" +
           kel_get_audio_format_type_name(&format);
}

}  // namespace kel_test
