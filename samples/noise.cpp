#include "samples/noise.h"

#include <cmath>

namespace tessaline::samples {
namespace {

uint64_t Mix(uint64_t z) {
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
  return z ^ (z >> 31);
}

double ToUnit(uint64_t bits) {
  return static_cast<double>(bits >> 11) * 0x1p-53;
}

double LatticeValue(int64_t x, int64_t y) {
  return ToUnit(
      Mix(static_cast<uint64_t>(x) * 0x9E3779B97F4A7C15u + static_cast<uint64_t>(y) * 0xD1B54A32D192ED03u));
}

}  // namespace

double Random::Uniform() {
  state_ += 0x9E3779B97F4A7C15u;
  return ToUnit(Mix(state_));
}

double Random::Normal() {
  double sum = -6;
  for (int i = 0; i < 12; ++i) sum += Uniform();  // each has variance 1/12
  return sum;
}

double ValueNoise(double x, double y) {
  const double left = std::floor(x);
  const double top = std::floor(y);
  const double fx = x - left;
  const double fy = y - top;
  // Quintic blend: the second derivative is continuous too, or shading would show the lattice.
  const double blendX = fx * fx * fx * (fx * (fx * 6 - 15) + 10);
  const double blendY = fy * fy * fy * (fy * (fy * 6 - 15) + 10);
  const auto column = static_cast<int64_t>(left);
  const auto row = static_cast<int64_t>(top);
  const double upper = std::lerp(LatticeValue(column, row), LatticeValue(column + 1, row), blendX);
  const double lower = std::lerp(LatticeValue(column, row + 1), LatticeValue(column + 1, row + 1), blendX);
  return std::lerp(upper, lower, blendY);
}

double FractalNoise(double x, double y, int octaves) {
  double sum = 0;
  double weight = 0.5;
  double total = 0;
  for (int i = 0; i < octaves; ++i) {
    sum += weight * ValueNoise(x, y);
    total += weight;
    weight *= 0.5;
    // Turned by atan(3/4) and doubled; the offset keeps the origins apart.
    const double turnedX = 2 * (0.8 * x - 0.6 * y) + 17.3;
    y = 2 * (0.6 * x + 0.8 * y) - 5.1;
    x = turnedX;
  }
  return sum / total;
}

}  // namespace tessaline::samples
