// Sine and cosine with the same bits on every machine: they use only operations that IEEE 754 rounds in one way.
// (The C library's differ in the last bit from one processor to the next.)
#pragma once

namespace kel {

// Sine and cosine of x radians, |x| at most 2^26; not a number for anything else. The error is below 0.8 units in
// the last place.
double exact_sin(double x);
double exact_cos(double x);

}  // namespace kel
