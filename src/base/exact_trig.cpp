// Sine and cosine from additions and multiplications alone, in one fixed order, never contracted.
#include "base/exact_trig.hpp"

#include <cstdint>
#include <limits>

namespace kel {
namespace {

// A number as the unevaluated sum of two.
struct Pair {
    double high;
    double low;
};

// a + b and its exact rounding error (D. Knuth, The Art of Computer Programming, volume 2, 4.2.2).
Pair two_sum(double a, double b) {
    const double sum = a + b;
    const double b_part = sum - a;
    const double a_part = sum - b_part;
    return {sum, (a - a_part) + (b - b_part)};
}

// x minus the nearest multiple of pi/2.
struct Reduced {
    Pair rest;         // within about pi/4 of 0
    unsigned quarter;  // the multiple, modulo 4
};

constexpr double largest = 0x1p26;

// pi/2 in parts of 26 bits (the last of 53): a multiple below 2^27 times a part is exact.
constexpr double half_pi_1 = 0x1.921fb5p+0;
constexpr double half_pi_2 = 0x1.110b46p-26;
constexpr double half_pi_3 = 0x1.1a6263p-54;
constexpr double half_pi_4 = 0x1.8a2e03707344ap-81;
constexpr double two_over_pi = 0x1.45f306dc9c883p-1;

Reduced reduce(double x) {
    const auto multiple = static_cast<int32_t>(x * two_over_pi + (x < 0 ? -0.5 : 0.5));
    const double n = multiple;
    const Pair first = two_sum(x - n * half_pi_1, -(n * half_pi_2));
    const Pair second = two_sum(first.high, -(n * half_pi_3));
    const Pair rest = two_sum(second.high, first.low + second.low - n * half_pi_4);
    return {rest, static_cast<unsigned>(multiple) & 3};
}

// Taylor's series; the first term left out is below 2^-58 of the result for |r| up to pi/4.
double sine_near_zero(Pair r) {
    const double z = r.high * r.high;
    double series = 1.0 / 355687428096000;
    series = series * z - 1.0 / 1307674368000;
    series = series * z + 1.0 / 6227020800;
    series = series * z - 1.0 / 39916800;
    series = series * z + 1.0 / 362880;
    series = series * z - 1.0 / 5040;
    series = series * z + 1.0 / 120;
    series = series * z - 1.0 / 6;
    return r.high + (r.high * z * series + r.low * (1 - 0.5 * z));
}

double cosine_near_zero(Pair r) {
    const double z = r.high * r.high;
    double series = 1.0 / 20922789888000;
    series = series * z - 1.0 / 87178291200;
    series = series * z + 1.0 / 479001600;
    series = series * z - 1.0 / 3628800;
    series = series * z + 1.0 / 40320;
    series = series * z - 1.0 / 720;
    series = series * z + 1.0 / 24;
    const double half = 0.5 * z;
    const double leading = 1 - half;
    return leading + (((1 - leading) - half) + (z * z * series - r.high * r.low));
}

double sine_of_quarter(const Reduced& x, unsigned quarter) {
    const double value = quarter & 1 ? cosine_near_zero(x.rest) : sine_near_zero(x.rest);
    return quarter & 2 ? -value : value;
}

bool in_domain(double x) {
    return x >= -largest && x <= largest;
}

}  // namespace

double exact_sin(double x) {
    if (!in_domain(x)) return std::numeric_limits<double>::quiet_NaN();
    const Reduced reduced = reduce(x);
    return sine_of_quarter(reduced, reduced.quarter);
}

double exact_cos(double x) {
    if (!in_domain(x)) return std::numeric_limits<double>::quiet_NaN();
    const Reduced reduced = reduce(x);
    return sine_of_quarter(reduced, reduced.quarter + 1);
}

}  // namespace kel
