// Sine and cosine: how near to the truth, and the same bits on every machine.
#include "base/exact_trig.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <functional>
#include <random>

namespace {

// Arguments of every size, and the doubles around multiples of pi/2, where reduction loses most. The generator is
// fixed, so that every machine sees the same.
void for_arguments(int count, const std::function<void(double)>& check) {
    std::mt19937_64 random(1);
    for (int i = 0; i < count; ++i) {
        const auto bits = random();
        const double fraction = static_cast<double>(bits >> 11) * 0x1p-53;
        check(std::ldexp(fraction, static_cast<int>(bits % 64) - 37));
        check(fraction * -6.283185307179586);
        const double near = static_cast<double>(bits & 0x3ffffff) * 0x1.921fb54442d18p+0;
        for (double x : {near, std::nextafter(near, 0.0), std::nextafter(near, 1e9)}) {
            if (x <= 0x1p26) check(x);
        }
    }
}

#if LDBL_MANT_DIG > DBL_MANT_DIG  // elsewhere the bits below are the proof

TEST(ExactMath, ErrorIsWithinTheDocumentedBound) {
    long double worst = 0;
    const auto compare = [&](double got, long double truth) {
        const double unit = std::ldexp(1.0, std::ilogb(static_cast<double>(truth)) - 52);
        worst = std::max(worst, std::fabs(got - truth) / unit);
    };
    for_arguments(200000, [&](double x) {
        compare(kel::exact_sin(x), std::sin(static_cast<long double>(x)));
        compare(kel::exact_cos(x), std::cos(static_cast<long double>(x)));
    });
    EXPECT_LT(worst, 0.8L);
    EXPECT_GT(worst, 0.4L);  // below it the comparison itself would be at fault
}

#endif

TEST(ExactMath, BitsAreTheSameOnEveryMachine) {
    uint64_t hash = 0xcbf29ce484222325;
    for_arguments(20000, [&](double x) {
        for (double value : {kel::exact_sin(x), kel::exact_cos(x)}) {
            hash = (hash ^ std::bit_cast<uint64_t>(value)) * 0x100000001b3;
        }
    });
    EXPECT_EQ(hash, 18232626926421323038u);
}

TEST(ExactMath, EndsOfTheDomain) {
    EXPECT_EQ(kel::exact_sin(0.0), 0.0);
    EXPECT_EQ(kel::exact_cos(0.0), 1.0);
    EXPECT_EQ(kel::exact_sin(0x1p26), -kel::exact_sin(-0x1p26));
    for (double x : {std::nextafter(0x1p26, 1e9), -1e300, HUGE_VAL, -HUGE_VAL, std::nan("")}) {
        EXPECT_TRUE(std::isnan(kel::exact_sin(x))) << x;
        EXPECT_TRUE(std::isnan(kel::exact_cos(x))) << x;
    }
}

}  // namespace
