// BGRA to NV12 with the coefficients of BT.601, limited range, in 13-bit fixed point:
//   Y = (2104 R + 4130 G +  802 B + 135168) >> 13
//   U = (-1214 R - 2384 G + 3598 B + 1052672) >> 13
//   V = (3598 R - 3013 G -  585 B + 1052672) >> 13
// The chroma of a block is the sum of its four pixels' values >> 2. With 8-bit inputs Y stays within 16 to 235, U and
// V within 16 to 240, so the limits of the range need no code.
#include "video/nv12_kernels.hpp"

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

// The registers of this level: 16-byte lanes, and the few operations that know how wide they are.
#if defined(__AVX512VNNI__)
using raw = __m512i;
constexpr size_t lane_count = 4;
raw multiply_add(raw sum, raw a, raw b) {
    return _mm512_dpwssd_epi32(sum, a, b);
}
raw narrow_32(raw a, raw b) {
    return _mm512_packs_epi32(a, b);
}
raw narrow_16(raw a, raw b) {
    return _mm512_packus_epi16(a, b);
}
// Narrowing works within lanes: the 4-byte groups come out lane by lane and are put in memory order here.
raw in_order(raw a) {
    return _mm512_permutexvar_epi32(_mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15),
                                    a);
}
#elif defined(__AVX2__)
using raw = __m256i;
constexpr size_t lane_count = 2;
raw multiply_add(raw sum, raw a, raw b) {
    return _mm256_add_epi32(sum, _mm256_madd_epi16(a, b));
}
raw narrow_32(raw a, raw b) {
    return _mm256_packs_epi32(a, b);
}
raw narrow_16(raw a, raw b) {
    return _mm256_packus_epi16(a, b);
}
raw in_order(raw a) {
    return _mm256_permutevar8x32_epi32(a, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}
#else
using raw = __m128i;
constexpr size_t lane_count = 1;
raw multiply_add(raw sum, raw a, raw b) {
    return _mm_add_epi32(sum, _mm_madd_epi16(a, b));
}
raw narrow_32(raw a, raw b) {
    return _mm_packs_epi32(a, b);
}
raw narrow_16(raw a, raw b) {
    return _mm_packus_epi16(a, b);
}
raw in_order(raw a) {
    return a;
}
#endif

typedef uint32_t words __attribute__((vector_size(16 * lane_count)));
typedef int32_t sums __attribute__((vector_size(16 * lane_count)));
typedef uint16_t halves __attribute__((vector_size(16 * lane_count)));

constexpr size_t pixels_per_register = 4 * lane_count;
constexpr size_t registers_per_step = 4;
constexpr size_t blocks_per_step = registers_per_step * pixels_per_register / 2;

words load(const uint8_t* bytes) {
    words result;
    memcpy(&result, bytes, sizeof result);
    return result;
}

void store(uint8_t* bytes, raw value) {
    memcpy(bytes, &value, sizeof value);
}

// Pixels as pairs of 16-bit numbers.
struct pixel_pairs {
    raw blue_red, green_alpha;
    explicit pixel_pairs(words bgra)
        : blue_red(reinterpret_cast<raw>(bgra & 0x00ff00ffu)),
          green_alpha(reinterpret_cast<raw>(reinterpret_cast<halves>(bgra) >> 8)) {}
};

// The pair in every place of a register.
raw everywhere(int16_t low, int16_t high) {
    return reinterpret_cast<raw>(words{} +
                                 (static_cast<uint16_t>(low) | uint32_t{static_cast<uint16_t>(high)} << 16));
}

sums values(const pixel_pairs& pixels, const coefficients& c) {
    const raw offset = reinterpret_cast<raw>(sums{} + c.offset);
    const raw sum = multiply_add(offset, pixels.blue_red, everywhere(c.blue, c.red));
    return reinterpret_cast<sums>(multiply_add(sum, pixels.green_alpha, everywhere(c.green, 0))) >>
           fraction_bits;
}

raw narrow(sums a, sums b) {
    return narrow_32(reinterpret_cast<raw>(a), reinterpret_cast<raw>(b));
}

// The mean of each block for two registers of pixels, already summed over the two rows.
words block_means(sums a, sums b) {
    return reinterpret_cast<words>(multiply_add(raw{}, narrow(a, b), everywhere(1, 1))) >> 2;
}

size_t convert_steps(const nv12_row_pair& rows) {
    size_t block = 0;
    for (; block + blocks_per_step <= rows.blocks; block += blocks_per_step) {
        sums y_upper[registers_per_step], y_lower[registers_per_step];
        sums u[registers_per_step], v[registers_per_step];
        for (size_t i = 0; i < registers_per_step; ++i) {
            const size_t offset = 8 * block + i * sizeof(words);
            __builtin_prefetch(rows.upper + offset + rows.next_distance);
            __builtin_prefetch(rows.lower + offset + rows.next_distance);
            const pixel_pairs upper(load(rows.upper + offset));
            const pixel_pairs lower(load(rows.lower + offset));
            y_upper[i] = values(upper, luma);
            y_lower[i] = values(lower, luma);
            u[i] = values(upper, chroma_u) + values(lower, chroma_u);
            v[i] = values(upper, chroma_v) + values(lower, chroma_v);
        }
        store(rows.upper_luma + 2 * block,
              in_order(narrow_16(narrow(y_upper[0], y_upper[1]), narrow(y_upper[2], y_upper[3]))));
        store(rows.lower_luma + 2 * block,
              in_order(narrow_16(narrow(y_lower[0], y_lower[1]), narrow(y_lower[2], y_lower[3]))));
        const words first = block_means(u[0], u[1]) | block_means(v[0], v[1]) << 16;
        const words second = block_means(u[2], u[3]) | block_means(v[2], v[3]) << 16;
        store(rows.chroma + 2 * block,
              in_order(narrow_16(reinterpret_cast<raw>(first), reinterpret_cast<raw>(second))));
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
