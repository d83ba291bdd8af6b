// BGRA to NV12 with the coefficients of BT.601, limited range, in 13-bit fixed point:
//   Y = (2104 R + 4130 G +  802 B + 135168) >> 13
//   U = (-1214 R - 2384 G + 3598 B + 1052672) >> 13
//   V = (3598 R - 3013 G -  585 B + 1052672) >> 13
// The chroma of a block is the sum of its four pixels' values >> 2. With 8-bit inputs Y stays within 16 to 235, U and
// V within 16 to 240, so the limits of the range need no code.
#include "image/nv12_kernels.hpp"

#include <cstring>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

namespace kel::KEL_SIMD_LEVEL {
namespace {

struct coefficients {
    int16_t red, green, blue;
    int32_t offset;
};

constexpr int fraction_bits = 13;
constexpr coefficients luma = {2104, 4130, 802, 135168};
constexpr coefficients chroma_u = {-1214, -2384, 3598, 1052672};
constexpr coefficients chroma_v = {3598, -3013, -585, 1052672};

int value(const uint8_t* pixel, const coefficients& c) {
    return (c.red * pixel[2] + c.green * pixel[1] + c.blue * pixel[0] + c.offset) >> fraction_bits;
}

void convert_luma(const uint8_t* pixels, uint8_t* out, size_t count) {
    KEL_INDEPENDENT_ITERATIONS
    for (size_t i = 0; i < count; ++i) out[i] = static_cast<uint8_t>(value(pixels + 4 * i, luma));
}

void convert_chroma(const uint8_t* upper, const uint8_t* lower, uint8_t* out, size_t blocks) {
    KEL_INDEPENDENT_ITERATIONS
    for (size_t i = 0; i < blocks; ++i) {
        const uint8_t* a = upper + 8 * i;
        const uint8_t* b = lower + 8 * i;
        const int u =
            value(a, chroma_u) + value(a + 4, chroma_u) + value(b, chroma_u) + value(b + 4, chroma_u);
        const int v =
            value(a, chroma_v) + value(a + 4, chroma_v) + value(b, chroma_v) + value(b + 4, chroma_v);
        out[2 * i] = static_cast<uint8_t>(u >> 2);
        out[2 * i + 1] = static_cast<uint8_t>(v >> 2);
    }
}

void convert_plain(const nv12_row_pair& rows, size_t first_block) {
    const size_t blocks = rows.blocks - first_block;
    const uint8_t* upper = rows.upper + 8 * first_block;
    const uint8_t* lower = rows.lower + 8 * first_block;
    convert_luma(upper, rows.upper_luma + 2 * first_block, 2 * blocks);
    convert_luma(lower, rows.lower_luma + 2 * first_block, 2 * blocks);
    convert_chroma(upper, lower, rows.chroma + 2 * first_block, blocks);
}

#if defined(__SSE2__)

template <typename Register>
Register load(const uint8_t* bytes) {
    Register result;
    memcpy(&result, bytes, sizeof result);
    return result;
}

#if defined(__AVX2__)
// Bytes of a register by their places in another one.
struct byte_places {
    alignas(64) uint8_t place[64];
};

// Green of each pixel as two equal 16-bit numbers; 0x80 stands for a zero.
constexpr byte_places green_places = [] {
    byte_places places = {};
    for (int i = 0; i < 64; ++i) places.place[i] = static_cast<uint8_t>(i % 2 ? 0x80 : (i & 12) + 1);
    return places;
}();
#endif

// The registers of this level, and the few operations that know how wide they are.
#if defined(__AVX512VBMI__) && defined(__AVX512VNNI__)
using raw = __m512i;
raw multiply_add(raw sum, raw a, raw b) {
    return _mm512_dpwssd_epi32(sum, a, b);
}
raw green_twice(raw bgra) {
    return _mm512_shuffle_epi8(bgra, _mm512_load_si512(green_places.place));
}

// Two bytes of each 8-byte group of two registers.
template <int first, int second>
constexpr byte_places places_in_groups = [] {
    byte_places places = {};
    for (int i = 0; i < 64; ++i)
        places.place[i] = static_cast<uint8_t>((8 * (i / 2) + (i % 2 ? second : first)) & 127);
    return places;
}();

template <int first, int second>
raw gather(raw a, raw b, raw c, raw d) {
    const raw places = _mm512_load_si512(places_in_groups<first, second>.place);
    return _mm512_inserti64x4(_mm512_permutex2var_epi8(a, places, b),
                              _mm512_castsi512_si256(_mm512_permutex2var_epi8(c, places, d)), 1);
}
raw luma_bytes(raw a, raw b, raw c, raw d) {
    return gather<2, 6>(a, b, c, d);
}
raw chroma_bytes(raw a, raw b, raw c, raw d) {
    return gather<0, 2>(a, b, c, d);
}

#elif defined(__AVX2__)
using raw = __m256i;
raw multiply_add(raw sum, raw a, raw b) {
    return _mm256_add_epi32(sum, _mm256_madd_epi16(a, b));
}
raw green_twice(raw bgra) {
    return _mm256_shuffle_epi8(bgra, load<raw>(green_places.place));
}
// Narrowing works within 16-byte lanes; what comes out lane by lane is put in memory order.
raw in_order(raw a) {
    return _mm256_permutevar8x32_epi32(a, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}
raw high_halves(raw a, raw b) {
    return _mm256_packs_epi32(_mm256_srai_epi32(a, 16), _mm256_srai_epi32(b, 16));
}
raw even_words(raw a, raw b) {
    return _mm256_castps_si256(_mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), 0x88));
}
raw luma_bytes(raw a, raw b, raw c, raw d) {
    return in_order(_mm256_packus_epi16(high_halves(a, b), high_halves(c, d)));
}
raw chroma_bytes(raw a, raw b, raw c, raw d) {
    return in_order(_mm256_packus_epi16(even_words(a, b), even_words(c, d)));
}

#else
using raw = __m128i;
raw multiply_add(raw sum, raw a, raw b) {
    return _mm_add_epi32(sum, _mm_madd_epi16(a, b));
}
raw green_twice(raw bgra) {
    const raw green = _mm_and_si128(_mm_srli_epi32(bgra, 8), _mm_set1_epi32(0xff));
    return _mm_or_si128(green, _mm_slli_epi32(green, 16));
}
raw high_halves(raw a, raw b) {
    return _mm_packs_epi32(_mm_srai_epi32(a, 16), _mm_srai_epi32(b, 16));
}
raw even_words(raw a, raw b) {
    return _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b), 0x88));
}
raw luma_bytes(raw a, raw b, raw c, raw d) {
    return _mm_packus_epi16(high_halves(a, b), high_halves(c, d));
}
raw chroma_bytes(raw a, raw b, raw c, raw d) {
    return _mm_packus_epi16(even_words(a, b), even_words(c, d));
}
#endif

typedef uint16_t halves __attribute__((vector_size(sizeof(raw))));
typedef uint32_t words __attribute__((vector_size(sizeof(raw))));
typedef uint64_t blocks __attribute__((vector_size(sizeof(raw))));

constexpr size_t pixels_per_register = sizeof(raw) / 4;
constexpr size_t registers_per_step = 4;
constexpr size_t blocks_per_step = registers_per_step * pixels_per_register / 2;

void store(uint8_t* bytes, raw value) {
    memcpy(bytes, &value, sizeof value);
}

// Pixels as pairs of 16-bit numbers: (blue, red), and green in both.
struct pixel_pairs {
    raw blue_red, green;
    explicit pixel_pairs(raw bgra)
        : blue_red(reinterpret_cast<raw>(reinterpret_cast<words>(bgra) & 0x00ff00ffu)),
          green(green_twice(bgra)) {}
};

// The pair in every place of a register.
raw everywhere(int low, int high) {
    return reinterpret_cast<raw>(words{} + (static_cast<uint32_t>(low) & 0xffff) +
                                 (static_cast<uint32_t>(high) << 16));
}

// Each pixel's value in the upper half of its 32 bits: everything is multiplied by 8, green in two equal parts.
constexpr int scale_bits = 16 - fraction_bits;
words scaled_values(const pixel_pairs& pixels, const coefficients& c) {
    const raw offset = reinterpret_cast<raw>(words{} + (static_cast<uint32_t>(c.offset) << scale_bits));
    const int half_green = c.green << (scale_bits - 1);
    const raw sum = multiply_add(offset, pixels.blue_red, everywhere(c.blue * 8, c.red * 8));
    return reinterpret_cast<words>(multiply_add(sum, pixels.green, everywhere(half_green, half_green)));
}

// (U, V) of each pixel as 16-bit numbers.
halves chroma_values(const pixel_pairs& pixels) {
    return reinterpret_cast<halves>(scaled_values(pixels, chroma_u) >> 16 |
                                    (scaled_values(pixels, chroma_v) & 0xffff0000u));
}

// The mean (U, V) of each block in the lower half of its 64 bits.
raw block_means(const pixel_pairs& upper, const pixel_pairs& lower) {
    const halves columns = chroma_values(upper) + chroma_values(lower);
    const halves sums = columns + reinterpret_cast<halves>(reinterpret_cast<blocks>(columns) >> 32);
    return reinterpret_cast<raw>(sums >> 2);
}

size_t convert_steps(const nv12_row_pair& rows) {
    size_t block = 0;
    for (; block + blocks_per_step <= rows.blocks; block += blocks_per_step) {
        raw y_upper[registers_per_step], y_lower[registers_per_step], uv[registers_per_step];
        for (size_t i = 0; i < registers_per_step; ++i) {
            const size_t offset = 8 * block + i * sizeof(raw);
            __builtin_prefetch(rows.upper + offset + rows.next_distance);
            __builtin_prefetch(rows.lower + offset + rows.next_distance);
            const pixel_pairs upper(load<raw>(rows.upper + offset));
            const pixel_pairs lower(load<raw>(rows.lower + offset));
            y_upper[i] = reinterpret_cast<raw>(scaled_values(upper, luma));
            y_lower[i] = reinterpret_cast<raw>(scaled_values(lower, luma));
            uv[i] = block_means(upper, lower);
        }
        store(rows.upper_luma + 2 * block, luma_bytes(y_upper[0], y_upper[1], y_upper[2], y_upper[3]));
        store(rows.lower_luma + 2 * block, luma_bytes(y_lower[0], y_lower[1], y_lower[2], y_lower[3]));
        store(rows.chroma + 2 * block, chroma_bytes(uv[0], uv[1], uv[2], uv[3]));
    }
    return block;
}

#else

// Other processors: the plain loops are vectorised by the compiler.
size_t convert_steps(const nv12_row_pair&) {
    return 0;
}

#endif

void convert(const nv12_row_pair& rows) {
    convert_plain(rows, convert_steps(rows));
}

}  // namespace

extern const nv12_kernels nv12_table = {convert};

}  // namespace kel::KEL_SIMD_LEVEL
