// A grey picture under a dot screen, in which a run finds the screen.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

namespace tessaline {

constexpr int32_t kScreenedSide = 700;  // pixels; in small pictures no pattern stands out
constexpr double kScreenAmplitude = 40.0;

// The screen alone at a pixel, -1..1: dots six pixels apart.
inline double ScreenAt(int32_t x, int32_t y) {
  constexpr double kPi = 3.14159265358979323846;
  return std::cos(kPi / 3 * x) * std::cos(kPi / 3 * y);
}

// 8-bit levels: a soft scene, the screen, and some noise.
inline std::vector<uint8_t> ScreenedPicture() {
  std::vector<uint8_t> levels;
  uint32_t random = 1;
  for (int32_t y = 0; y < kScreenedSide; ++y) {
    for (int32_t x = 0; x < kScreenedSide; ++x) {
      random = random * 1664525 + 1013904223;
      const double scene = 128 + 40 * std::sin(x / 60.0) * std::cos(y / 50.0);
      levels.push_back(static_cast<uint8_t>(scene + kScreenAmplitude * ScreenAt(x, y) + (random >> 24) % 12));
    }
  }
  return levels;
}

}  // namespace tessaline
