// log and exp with the same bits on every platform. The C libraries of Linux and Windows differ in the last
// digit, which is enough to move a truncated level by one; these use nothing but correctly rounded +, -, *
// and /. Errors are below 2 units in the last place, which is all their callers need.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>

namespace tessaline {

// Natural logarithm of a positive, finite, normal value.
inline double PortableLog(double value) {
  constexpr double kLn2High =
      6.93147180369123816490e-01;  // its last 20 bits are zero: exponent x this is exact
  constexpr double kLn2Low = 1.90821492927058770002e-10;
  constexpr double kSqrtHalf = 0.70710678118654752;
  // The value's bits taken apart, in a form that loops can do for several values at once: 2^52 holds a small
  // integer in its last bits.
  constexpr uint64_t kFractionBits = (uint64_t{1} << 52) - 1;
  constexpr double kIntegerHolder = 4503599627370496.0;
  const auto bits = std::bit_cast<uint64_t>(value);
  const double biased = std::bit_cast<double>(bits >> 52 | std::bit_cast<uint64_t>(kIntegerHolder));
  const double half = std::bit_cast<double>((bits & kFractionBits) | std::bit_cast<uint64_t>(0.5));
  const bool isSmall = half < kSqrtHalf;
  const double fraction = isSmall ? half * 2.0 : half;
  const double exponent = biased - (kIntegerHolder + 1022.0) - (isSmall ? 1.0 : 0.0);
  // ln f = 2 artanh s, s = (f - 1) / (f + 1), |s| <= 0.1716: the term s^23 / 23 is below 2^-61.
  const double s = (fraction - 1.0) / (fraction + 1.0);
  const double square = s * s;
  double tail = 0.0;
  for (int n = 23; n >= 3; n -= 2) tail = (tail + 1.0 / n) * square;
  return exponent * kLn2High + (exponent * kLn2Low + 2.0 * (s + s * tail));
}

// e to the power of a value in -700 .. 700.
inline double PortableExp(double value) {
  constexpr double kLn2High = 6.93147180369123816490e-01;
  constexpr double kLn2Low = 1.90821492927058770002e-10;
  constexpr double kInverseLn2 = 1.44269504088896338700;
  const double exponent = std::floor(value * kInverseLn2 + 0.5);
  const double rest = (value - exponent * kLn2High) - exponent * kLn2Low;  // |rest| <= 0.35
  double sum = 1.0;
  for (int n = 15; n >= 1; --n) sum = 1.0 + sum * rest / n;
  return std::ldexp(sum, static_cast<int>(exponent));
}

}  // namespace tessaline
