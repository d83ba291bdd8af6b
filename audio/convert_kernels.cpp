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

// out[i] = convert(in[i])
template <typename From, typename To, typename Convert>
void each(uint8_t* out, const uint8_t* in, size_t count, Convert convert) {
    KEL_INDEPENDENT_ITERATIONS
    for (size_t i = 0; i < count; ++i) store<To>(out, i, static_cast<To>(convert(load<From>(in, i))));
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

template <typename Value>
void downmix(uint8_t* out, const uint8_t* in, size_t frames) {
    KEL_INDEPENDENT_ITERATIONS
    for (size_t i = 0; i < frames; ++i) {
        const int sum = load<Value>(in, 2 * i) + load<Value>(in, 2 * i + 1);
        store(out, i, static_cast<Value>(sum >> 1));
    }
}

template <typename Value>
void downmix_swapped(uint8_t* out, const uint8_t* in, size_t frames) {
    KEL_INDEPENDENT_ITERATIONS
    for (size_t i = 0; i < frames; ++i) {
        const auto left = static_cast<Value>(swapped(load<uint16_t>(in, 2 * i)));
        const auto right = static_cast<Value>(swapped(load<uint16_t>(in, 2 * i + 1)));
        store(out, i, swapped(static_cast<uint16_t>((left + right) >> 1)));
    }
}

template <typename Item, size_t factor>
void repeat_items(uint8_t* out, const uint8_t* in, size_t items) {
    KEL_INDEPENDENT_ITERATIONS
    for (size_t i = 0; i < items; ++i) {
        const Item item = load<Item>(in, i);
        for (size_t copy = 0; copy < factor; ++copy) store(out, factor * i + copy, item);
    }
}

template <typename Item, size_t factor>
void drop_items(uint8_t* out, const uint8_t* in, size_t items_out) {
    KEL_INDEPENDENT_ITERATIONS
    for (size_t i = 0; i < items_out; ++i) store(out, i, load<Item>(in, factor * i));
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

// a + (((b - a) × f) >> 16) = (a × (65536 - f) + b × f) >> 16, which fits 32 bits.
int32_t between(int32_t a, int32_t b, int32_t f) {
    return (a * (65536 - f) + b * f) >> 16;
}

void resample_mono(uint8_t* out, const uint8_t* in, size_t frames, size_t, uint32_t position,
                   uint32_t increment) {
    KEL_INDEPENDENT_ITERATIONS
    for (uint32_t i = 0; i < static_cast<uint32_t>(frames); ++i) {
        const uint32_t p = position + i * increment;
        const auto pair =
            load<uint32_t>(in + 2 * size_t{p >> 16}, 0);  // a in the low half, b in the high one
        const int32_t value =
            between(static_cast<int16_t>(pair), static_cast<int32_t>(pair) >> 16, p & 0xffff);
        store(out, i, static_cast<int16_t>(value));
    }
}

uint32_t between_frames(uint32_t a, uint32_t b, int32_t f) {
    const int32_t left = between(static_cast<int16_t>(a), static_cast<int16_t>(b), f);
    const int32_t right = between(static_cast<int32_t>(a) >> 16, static_cast<int32_t>(b) >> 16, f);
    return (static_cast<uint32_t>(left) & 0xffff) | static_cast<uint32_t>(right) << 16;
}

void resample_stereo_plain(uint8_t* out, const uint8_t* in, size_t frames, uint32_t position,
                           uint32_t increment) {
    for (uint32_t i = 0; i < static_cast<uint32_t>(frames); ++i) {
        const uint32_t p = position + i * increment;
        const uint8_t* at = in + 4 * size_t{p >> 16};
        store(out, i, between_frames(load<uint32_t>(at, 0), load<uint32_t>(at, 1), p & 0xffff));
    }
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
    resample_stereo_plain(out + 4 * done, in, frames - done,
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
