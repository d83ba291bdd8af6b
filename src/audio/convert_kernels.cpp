// The inner loops of the conversion steps, compiled once per level (core/simd.hpp).
#include "audio/convert_kernels.hpp"

#include <cstring>

#if defined(__AVX2__)
#include <immintrin.h>
#endif

namespace kel::KEL_SIMD_LEVEL {
namespace {

template <typename T>
T load(const uint8_t* in, size_t index) {
    T value;
    memcpy(&value, in + index * sizeof(T), sizeof(T));
    return value;
}

template <typename T>
void store(uint8_t* out, size_t index, T value) {
    memcpy(out + index * sizeof(T), &value, sizeof(T));
}

// Calls loop(first, count) for 0 to `items`, items of which write item_bytes each, so that nearly all stores lie in one
// cache line: a first and a last line's worth wherever they lie, and whole lines between. Items at the seams are done
// twice.
template <size_t item_bytes, typename Loop>
void by_lines(const uint8_t* out, size_t items, Loop loop) {
    constexpr size_t line_bytes = 64;
    constexpr size_t line = line_bytes / item_bytes;
    const size_t to_boundary = (line_bytes - reinterpret_cast<uintptr_t>(out) % line_bytes) % line_bytes;
    if (items < 4 * line || to_boundary % item_bytes) return loop(0, items);
    loop(0, line);
    const size_t first = to_boundary / item_bytes;
    loop(first, (items - first) / line * line);
    loop(items - line, line);
}

// out[i] = convert(in[i])
template <typename From, typename To, typename Convert>
void each(uint8_t* out, const uint8_t* in, size_t count, Convert convert) {
    by_lines<sizeof(To)>(out, count, [=](size_t first, size_t items) {
        KEL_INDEPENDENT_ITERATIONS
        for (size_t i = first; i < first + items; ++i)
            store(out, i, static_cast<To>(convert(load<From>(in, i))));
    });
}

constexpr uint16_t swapped(uint16_t value) {
    return static_cast<uint16_t>(value << 8 | value >> 8);
}

void flip_sign_8(uint8_t* out, const uint8_t* in, size_t count) {
    each<uint8_t, uint8_t>(out, in, count, [](uint8_t v) { return v ^ 0x80; });
}

void flip_sign_16le(uint8_t* out, const uint8_t* in, size_t count) {
    each<uint16_t, uint16_t>(out, in, count, [](uint16_t v) { return v ^ 0x8000; });
}

void flip_sign_16be(uint8_t* out, const uint8_t* in, size_t count) {
    each<uint16_t, uint16_t>(out, in, count, [](uint16_t v) { return v ^ 0x0080; });
}

void swap_bytes_16(uint8_t* out, const uint8_t* in, size_t count) {
    each<uint16_t, uint16_t>(out, in, count, swapped);
}

void s8_to_s16(uint8_t* out, const uint8_t* in, size_t count) {
    each<uint8_t, uint16_t>(out, in, count, [](uint8_t v) { return v << 8; });
}

void s16_to_s8(uint8_t* out, const uint8_t* in, size_t count) {
    each<uint16_t, uint8_t>(out, in, count, [](uint16_t v) { return v >> 8; });
}

void s16_to_s24(uint8_t* out, const uint8_t* in, size_t count) {
    each<int16_t, int32_t>(out, in, count, [](int16_t v) { return v * 256; });
}

void s24_to_s16(uint8_t* out, const uint8_t* in, size_t count) {
    each<int32_t, int16_t>(out, in, count, [](int32_t v) {
        const int32_t shifted = v >> 8;
        return shifted < INT16_MIN ? INT16_MIN : shifted > INT16_MAX ? INT16_MAX : shifted;
    });
}

// (left + right) >> 1 without a wider sum.
template <typename Value>
Value mean(Value left, Value right) {
    return static_cast<Value>((left & right) + ((left ^ right) >> 1));
}

template <typename Value>
void downmix(uint8_t* out, const uint8_t* in, size_t frames) {
    by_lines<sizeof(Value)>(out, frames, [=](size_t first, size_t count) {
        KEL_INDEPENDENT_ITERATIONS
        for (size_t i = first; i < first + count; ++i)
            store(out, i, mean(load<Value>(in, 2 * i), load<Value>(in, 2 * i + 1)));
    });
}

template <typename Value>
void downmix_swapped(uint8_t* out, const uint8_t* in, size_t frames) {
    by_lines<sizeof(Value)>(out, frames, [=](size_t first, size_t count) {
        KEL_INDEPENDENT_ITERATIONS
        for (size_t i = first; i < first + count; ++i) {
            const auto left = static_cast<Value>(swapped(load<uint16_t>(in, 2 * i)));
            const auto right = static_cast<Value>(swapped(load<uint16_t>(in, 2 * i + 1)));
            store(out, i, swapped(static_cast<uint16_t>(mean(left, right))));
        }
    });
}

template <typename Item, size_t factor>
void repeat_items(uint8_t* out, const uint8_t* in, size_t items) {
    by_lines<factor * sizeof(Item)>(out, items, [=](size_t first, size_t count) {
        KEL_INDEPENDENT_ITERATIONS
        for (size_t i = first; i < first + count; ++i) {
            const Item item = load<Item>(in, i);
            for (size_t copy = 0; copy < factor; ++copy) store(out, factor * i + copy, item);
        }
    });
}

template <typename Item, size_t factor>
void drop_items(uint8_t* out, const uint8_t* in, size_t items_out) {
    by_lines<sizeof(Item)>(out, items_out, [=](size_t first, size_t count) {
        KEL_INDEPENDENT_ITERATIONS
        for (size_t i = first; i < first + count; ++i) store(out, i, load<Item>(in, factor * i));
    });
}

// Calls `action` with the type of an item of that many bytes.
template <typename Action>
void with_item(size_t bytes, Action action) {
    switch (bytes) {
        case 1:
            return action(uint8_t{});
        case 2:
            return action(uint16_t{});
        case 4:
            return action(uint32_t{});
        default:
            return action(uint64_t{});
    }
}

void repeat(uint8_t* out, const uint8_t* in, size_t items, size_t item_bytes, size_t factor) {
    with_item(item_bytes, [&](auto item) {
        using Item = decltype(item);
        factor == 2 ? repeat_items<Item, 2>(out, in, items) : repeat_items<Item, 4>(out, in, items);
    });
}

void drop(uint8_t* out, const uint8_t* in, size_t items_out, size_t item_bytes, size_t factor) {
    with_item(item_bytes, [&](auto item) {
        using Item = decltype(item);
        factor == 2 ? drop_items<Item, 2>(out, in, items_out) : drop_items<Item, 4>(out, in, items_out);
    });
}

// a + (((b - a) × f) >> 16) in 16 bits: the high half of the unsigned product, less f when the difference is negative.
uint16_t between(uint16_t a, uint16_t b, uint16_t f) {
    const auto difference = static_cast<uint16_t>(b - a);
    const auto high = static_cast<uint16_t>(uint32_t{difference} * f >> 16);
    const auto borrowed = static_cast<int16_t>(a) > static_cast<int16_t>(b) ? f : uint16_t{0};
    return static_cast<uint16_t>(a + high - borrowed);
}

// Frames are of one or of two channels: the frames on both sides are collected first, then interpolated together.
template <typename Frame>
void resample_plain(uint8_t* out, const uint8_t* in, size_t frames, uint32_t position, uint32_t increment) {
    constexpr uint32_t batch = 128, channels = sizeof(Frame) / 2;
    Frame before[batch], after[batch], fraction[batch];
    const auto* a = reinterpret_cast<const uint8_t*>(before);
    const auto* b = reinterpret_cast<const uint8_t*>(after);
    const auto* f = reinterpret_cast<const uint8_t*>(fraction);
    while (frames > 0) {
        const uint32_t count = frames < batch ? static_cast<uint32_t>(frames) : batch;
        uint32_t p = position;
        KEL_INDEPENDENT_ITERATIONS
        for (uint32_t i = 0; i < count; ++i, p += increment)
            fraction[i] = static_cast<Frame>((p & 0xffff) | p << 16);
        for (uint32_t i = 0; i < count; ++i, position += increment) {
            const uint8_t* at = in + sizeof(Frame) * (position >> 16);
            before[i] = load<Frame>(at, 0);
            after[i] = load<Frame>(at, 1);
        }
        KEL_INDEPENDENT_ITERATIONS
        for (uint32_t i = 0; i < count * channels; ++i)
            store(out, i, between(load<uint16_t>(a, i), load<uint16_t>(b, i), load<uint16_t>(f, i)));
        out += sizeof(Frame) * count;
        frames -= count;
    }
}

void resample_mono(uint8_t* out, const uint8_t* in, size_t frames, size_t, uint32_t position,
                   uint32_t increment) {
    resample_plain<uint16_t>(out, in, frames, position, increment);
}

#if defined(__AVX2__)

// A register of output frames is picked out of the two registers of input frames that it spans, which holds for
// increments up to 2.0. In 16 bits (((b - a) × f) >> 16) is the high half of the unsigned product, less f when the
// difference is negative.
#if defined(__AVX512BW__)
using raw = __m512i;
raw load_raw(const uint8_t* in) {
    return _mm512_loadu_si512(in);
}
void store_raw(uint8_t* out, raw value) {
    _mm512_storeu_si512(out, value);
}
raw all(uint32_t value) {
    return _mm512_set1_epi32(static_cast<int>(value));
}
raw ramp() {
    return _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
}
raw add(raw a, raw b) {
    return _mm512_add_epi32(a, b);
}
raw multiply(raw a, raw b) {
    return _mm512_mullo_epi32(a, b);
}
raw whole(raw p) {
    return _mm512_srli_epi32(p, 16);
}
raw fraction_twice(raw p) {
    return _mm512_or_si512(_mm512_slli_epi32(p, 16), _mm512_and_si512(p, all(0xffff)));
}
raw pick(raw low, raw high, raw index) {
    return _mm512_permutex2var_epi32(low, index, high);
}
raw interpolate(raw a, raw b, raw f) {
    const raw high = _mm512_add_epi16(a, _mm512_mulhi_epu16(_mm512_sub_epi16(b, a), f));
    return _mm512_mask_sub_epi16(high, _mm512_cmpgt_epi16_mask(a, b), high, f);
}
#else
using raw = __m256i;
raw load_raw(const uint8_t* in) {
    return load<raw>(in, 0);
}
void store_raw(uint8_t* out, raw value) {
    store(out, 0, value);
}
raw all(uint32_t value) {
    return _mm256_set1_epi32(static_cast<int>(value));
}
raw ramp() {
    return _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
}
raw add(raw a, raw b) {
    return _mm256_add_epi32(a, b);
}
raw multiply(raw a, raw b) {
    return _mm256_mullo_epi32(a, b);
}
raw whole(raw p) {
    return _mm256_srli_epi32(p, 16);
}
raw fraction_twice(raw p) {
    return _mm256_or_si256(_mm256_slli_epi32(p, 16), _mm256_and_si256(p, all(0xffff)));
}
raw pick(raw low, raw high, raw index) {
    return _mm256_blendv_epi8(_mm256_permutevar8x32_epi32(low, index),
                              _mm256_permutevar8x32_epi32(high, index), _mm256_cmpgt_epi32(index, all(7)));
}
raw interpolate(raw a, raw b, raw f) {
    const raw high = _mm256_add_epi16(a, _mm256_mulhi_epu16(_mm256_sub_epi16(b, a), f));
    return _mm256_sub_epi16(high, _mm256_and_si256(_mm256_cmpgt_epi16(a, b), f));
}
#endif

constexpr uint32_t frames_per_register = sizeof(raw) / 4;
constexpr uint32_t most_increment = 2 << 16;

// Whole registers while the two that each needs lie within the input. Returns the frames done.
size_t resample_registers(uint8_t* out, const uint8_t* in, size_t frames, size_t in_frames, uint32_t position,
                          uint32_t increment) {
    if (increment > most_increment) return 0;
    const raw steps = multiply(ramp(), all(increment));
    size_t done = 0;
    for (; done + frames_per_register <= frames; done += frames_per_register) {
        const size_t first = position >> 16;
        if (first + 2 * frames_per_register > in_frames) break;
        const raw p = add(all(position & 0xffff), steps);
        const raw low = load_raw(in + 4 * first), high = load_raw(in + 4 * first + sizeof(raw));
        const raw index = whole(p);
        const raw a = pick(low, high, index), b = pick(low, high, add(index, all(1)));
        store_raw(out + 4 * done, interpolate(a, b, fraction_twice(p)));
        position += frames_per_register * increment;
    }
    return done;
}

#else

size_t resample_registers(uint8_t*, const uint8_t*, size_t, size_t, uint32_t, uint32_t) {
    return 0;
}

#endif

void resample_stereo(uint8_t* out, const uint8_t* in, size_t frames, size_t in_frames, uint32_t position,
                     uint32_t increment) {
    const size_t done = resample_registers(out, in, frames, in_frames, position, increment);
    resample_plain<uint32_t>(out + 4 * done, in, frames - done,
                             position + static_cast<uint32_t>(done) * increment, increment);
}

}  // namespace

extern const convert_kernels convert_table = {
    flip_sign_8,
    flip_sign_16le,
    flip_sign_16be,
    swap_bytes_16,
    s8_to_s16,
    s16_to_s8,
    s16_to_s24,
    s24_to_s16,
    downmix<int8_t>,
    downmix<uint8_t>,
    downmix<int16_t>,
    downmix<uint16_t>,
    downmix_swapped<int16_t>,
    downmix_swapped<uint16_t>,
    repeat,
    drop,
    resample_mono,
    resample_stereo,
};

}  // namespace kel::KEL_SIMD_LEVEL
