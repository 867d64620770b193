// Discrete Fourier transforms of 2, 4, 8 and 16 complex values held in variables. `V` is a number or a vector
// of numbers (each lane a transform of its own); Sign is that of the exponent. In place, natural order.
#pragma once

namespace tessaline {
namespace {

#define TESSALINE_INLINE __attribute__((always_inline)) inline

// Before a loop of 16 rounds at most: round by round, so that arrays of vectors stay in registers. By
// templates the compiler takes half as long again for the same code.
#if defined(__clang__)
#define TESSALINE_UNROLL _Pragma("unroll")
#else
#define TESSALINE_UNROLL _Pragma("GCC unroll 16")
#endif

// Under sanitizers each of the larger ones is compiled once, not into every transform of every length, which
// takes the compiler minutes; what they compute with are variables, and there is nothing to check.
#if defined(TESSALINE_BUTTERFLIES_BY_CALL)
#define TESSALINE_BUTTERFLY __attribute__((noinline, no_sanitize("address", "undefined", "thread"))) inline
#else
#define TESSALINE_BUTTERFLY TESSALINE_INLINE
#endif

template <typename V>
struct Complex {
  V re;
  V im;
};

template <typename V>
TESSALINE_INLINE Complex<V> operator+(const Complex<V>& a, const Complex<V>& b) {
  return {a.re + b.re, a.im + b.im};
}

template <typename V>
TESSALINE_INLINE Complex<V> operator-(const Complex<V>& a, const Complex<V>& b) {
  return {a.re - b.re, a.im - b.im};
}

// Times i or -i.
template <int Sign, typename V>
TESSALINE_INLINE Complex<V> QuarterTurn(const Complex<V>& a) {
  if constexpr (Sign > 0) return {-a.im, a.re};
  return {a.im, -a.re};
}

// Times cosine + Sign i sine.
template <int Sign, typename V, typename T>
TESSALINE_INLINE Complex<V> Rotate(const Complex<V>& a, const T& cosine, const T& sine) {
  if constexpr (Sign > 0) return {a.re * cosine - a.im * sine, a.im * cosine + a.re * sine};
  return {a.re * cosine + a.im * sine, a.im * cosine - a.re * sine};
}

// Times (1 + Sign i) / sqrt(2).
template <int Sign, typename T, typename V>
TESSALINE_INLINE Complex<V> EighthTurn(const Complex<V>& a) {
  constexpr T kSqrtHalf = static_cast<T>(0.7071067811865476);
  if constexpr (Sign > 0) return {(a.re - a.im) * kSqrtHalf, (a.im + a.re) * kSqrtHalf};
  return {(a.re + a.im) * kSqrtHalf, (a.im - a.re) * kSqrtHalf};
}

template <typename V>
TESSALINE_INLINE void Dft2(Complex<V>& a, Complex<V>& b) {
  const Complex<V> difference = a - b;
  a = a + b;
  b = difference;
}

template <int Sign, typename V>
TESSALINE_INLINE void Dft4(Complex<V>& a, Complex<V>& b, Complex<V>& c, Complex<V>& d) {
  const Complex<V> evenSum = a + c;
  const Complex<V> evenDifference = a - c;
  const Complex<V> oddSum = b + d;
  const Complex<V> oddDifference = QuarterTurn<Sign>(b - d);
  a = evenSum + oddSum;
  b = evenDifference + oddDifference;
  c = evenSum - oddSum;
  d = evenDifference - oddDifference;
}

// One transform of R values; T is the type of a lane.
template <int R, int Sign, typename T, typename V>
TESSALINE_BUTTERFLY void Dft(Complex<V> (&x)[R]) {
  if constexpr (R == 2) {
    Dft2(x[0], x[1]);
  } else if constexpr (R == 4) {
    Dft4<Sign>(x[0], x[1], x[2], x[3]);
  } else if constexpr (R == 8) {
    Dft4<Sign>(x[0], x[2], x[4], x[6]);
    Dft4<Sign>(x[1], x[3], x[5], x[7]);
    const Complex<V> odd1 = EighthTurn<Sign, T>(x[3]);
    const Complex<V> odd2 = QuarterTurn<Sign>(x[5]);
    const Complex<V> odd3 = QuarterTurn<Sign>(EighthTurn<Sign, T>(x[7]));
    const Complex<V> even[4] = {x[0], x[2], x[4], x[6]};
    const Complex<V> odd[4] = {x[1], odd1, odd2, odd3};
    for (int k = 0; k < 4; ++k) {
      x[k] = even[k] + odd[k];
      x[k + 4] = even[k] - odd[k];
    }
  } else {
    static_assert(R == 16);
    constexpr T kCos = static_cast<T>(0.9238795325112867);  // cos(pi / 8)
    constexpr T kSin = static_cast<T>(0.3826834323650898);  // sin(pi / 8)
    for (int j = 0; j < 4; ++j) Dft4<Sign>(x[j], x[j + 4], x[j + 8], x[j + 12]);
    // x[j + 4k] times exp(2 pi i j k / 16).
    x[5] = Rotate<Sign>(x[5], kCos, kSin);
    x[9] = EighthTurn<Sign, T>(x[9]);
    x[13] = Rotate<Sign>(x[13], kSin, kCos);
    x[6] = EighthTurn<Sign, T>(x[6]);
    x[10] = QuarterTurn<Sign>(x[10]);
    x[14] = QuarterTurn<Sign>(EighthTurn<Sign, T>(x[14]));
    x[7] = Rotate<Sign>(x[7], kSin, kCos);
    x[11] = QuarterTurn<Sign>(EighthTurn<Sign, T>(x[11]));
    x[15] = Rotate<Sign>(x[15], -kCos, -kSin);
    Complex<V> y[16];
    for (int k = 0; k < 4; ++k) {
      Dft4<Sign>(x[4 * k], x[4 * k + 1], x[4 * k + 2], x[4 * k + 3]);
      for (int l = 0; l < 4; ++l) y[k + 4 * l] = x[4 * k + l];
    }
    for (int k = 0; k < 16; ++k) x[k] = y[k];
  }
}

}  // namespace
}  // namespace tessaline
