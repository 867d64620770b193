// Sums of two doubles (about 106 bits), and sines and cosines in them. Constant expressions at compile time
// and the same bits everywhere at run time: nothing but correctly rounded +, - and *.
#pragma once

namespace tessaline {

struct DoubleDouble {
  double high;
  double low;  // at most half a unit in the last place of `high`
};

constexpr DoubleDouble TwoSum(double a, double b) {
  const double sum = a + b;
  const double roundedB = sum - a;
  return {sum, (a - (sum - roundedB)) + (b - roundedB)};
}

// Needs |a| >= |b|.
constexpr DoubleDouble QuickTwoSum(double a, double b) {
  const double sum = a + b;
  return {sum, b - (sum - a)};
}

// Exact product by splitting the factors at 27 bits; no fused operation, which not every processor has.
constexpr DoubleDouble TwoProduct(double a, double b) {
  constexpr double kSplitter = 134217729.0;  // 2^27 + 1
  const double product = a * b;
  const double aScaled = kSplitter * a;
  const double aHigh = aScaled - (aScaled - a);
  const double aLow = a - aHigh;
  const double bScaled = kSplitter * b;
  const double bHigh = bScaled - (bScaled - b);
  const double bLow = b - bHigh;
  return {product, ((aHigh * bHigh - product) + aHigh * bLow + aLow * bHigh) + aLow * bLow};
}

constexpr DoubleDouble operator+(DoubleDouble a, DoubleDouble b) {
  const DoubleDouble high = TwoSum(a.high, b.high);
  const DoubleDouble low = TwoSum(a.low, b.low);
  const DoubleDouble sum = QuickTwoSum(high.high, high.low + low.high);
  return QuickTwoSum(sum.high, sum.low + low.low);
}

constexpr DoubleDouble operator-(DoubleDouble a) {
  return {-a.high, -a.low};
}

constexpr DoubleDouble operator-(DoubleDouble a, DoubleDouble b) {
  return a + -b;
}

constexpr DoubleDouble operator*(DoubleDouble a, DoubleDouble b) {
  const DoubleDouble product = TwoProduct(a.high, b.high);
  return QuickTwoSum(product.high, product.low + (a.high * b.low + a.low * b.high));
}

// Long division by a small whole number: two exact remainders.
constexpr DoubleDouble operator/(DoubleDouble a, double b) {
  const double first = a.high / b;
  const DoubleDouble rest = a - TwoProduct(first, b);
  const double second = rest.high / b;
  const DoubleDouble rest2 = rest - TwoProduct(second, b);
  return QuickTwoSum(first, second) + DoubleDouble{rest2.high / b, 0.0};
}

constexpr DoubleDouble kHalfPi{1.5707963267948966, 6.123233995736766e-17};

struct DoubleDoubleSinCos {
  DoubleDouble sine;
  DoubleDouble cosine;
};

// Taylor series, for 0 <= angle <= pi / 4 (a little more does no harm): the first term left out, angle^29 /
// 29!, is below 2^-112.
constexpr DoubleDoubleSinCos SinCos(DoubleDouble angle) {
  DoubleDoubleSinCos sum{{0.0, 0.0}, {0.0, 0.0}};
  DoubleDouble term{1.0, 0.0};
  for (int power = 0; power <= 28; ++power) {
    DoubleDouble& part = power % 2 != 0 ? sum.sine : sum.cosine;
    part = power % 4 < 2 ? part + term : part - term;
    term = term * angle / (power + 1.0);
    if (term.high < 1e-40) break;
  }
  return sum;
}

// The cosine of exactly this double, 0 <= angle <= pi / 2, within two units in the last place and with the
// same bits everywhere, which the C libraries' cosines have not.
constexpr double PortableCos(double angle) {
  constexpr double kQuarterPi = 0.7853981633974483;
  const bool isNearZero = angle <= kQuarterPi;
  // cos(angle) = sin(pi / 2 - angle); the first difference is exact.
  const double rest = isNearZero ? angle : (kHalfPi.high - angle) + kHalfPi.low;
  const double square = rest * rest;
  // Taylor series from its end; the first term left out is below 2^-58 of the sum.
  double tail = 0.0;
  for (int power = isNearZero ? 16 : 17; power >= 2; power -= 2) {
    tail = (1.0 - tail) * (square / (power * (power - 1)));
  }
  return isNearZero ? 1.0 - tail : rest - rest * tail;
}

}  // namespace tessaline
