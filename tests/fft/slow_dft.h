// The judge of every fast transform: the definition, term by term, in extended precision.
#pragma once

#include <cmath>
#include <complex>
#include <cstdint>
#include <vector>

namespace tessaline::test {

using Wide = std::complex<long double>;

inline std::vector<Wide> CircleOf(size_t n, int sign) {
  const long double kTwoPi = 6.283185307179586476925286766559L;
  std::vector<Wide> circle(n);
  for (size_t j = 0; j < n; ++j) circle[j] = std::polar(1.0L, sign * kTwoPi * j / n);
  return circle;
}

// Result k of the transform of `data` with exp(sign 2 pi i m k / n); `circle` is CircleOf(n, sign).
inline Wide SlowDftAt(const std::vector<Wide>& data, const std::vector<Wide>& circle, size_t k) {
  Wide sum = 0;
  for (size_t m = 0; m < data.size(); ++m) sum += data[m] * circle[m * k % data.size()];
  return sum;
}

// Pseudo-random values in -1 .. 1, the same on every platform.
class Noise {
 public:
  double Next() {
    state_ = state_ * 6364136223846793005u + 1442695040888963407u;
    return static_cast<double>(static_cast<int64_t>(state_) >> 11) / 4503599627370496.0;
  }

 private:
  uint64_t state_ = 1;
};

template <typename T>
std::vector<T> NoiseRow(size_t complexValues) {
  Noise noise;
  std::vector<T> row(2 * complexValues);
  for (T& value : row) value = static_cast<T>(noise.Next());
  return row;
}

}  // namespace tessaline::test
