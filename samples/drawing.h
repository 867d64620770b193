// A picture in memory, as the sample programs pass it on, and what several of them draw with.
#pragma once

#include <algorithm>
#include <cstddef>
#include <numbers>
#include <vector>

namespace tessaline::samples {

// Rows of `channels` interleaved samples each pixel, 0 (black) to 1 (white), as a screen shows them. One
// channel is grey, three are red, green and blue.
struct Picture {
  int width = 0;
  int height = 0;
  int channels = 0;
  std::vector<float> samples;

  Picture(int columns, int rows, int channelCount)
      : width(columns),
        height(rows),
        channels(channelCount),
        samples(static_cast<size_t>(columns) * rows * channelCount) {}

  float& At(int x, int y, int channel) { return samples[Index(x, y, channel)]; }
  float At(int x, int y, int channel) const { return samples[Index(x, y, channel)]; }

 private:
  size_t Index(int x, int y, int channel) const {
    return (static_cast<size_t>(y) * width + x) * channels + channel;
  }
};

inline constexpr double kTurn = 2 * std::numbers::pi;  // radians

// 0 up to `from`, 1 from `to` on, and smoothly between them; `from` may be the larger.
inline double Ramp(double from, double to, double value) {
  const double t = std::clamp((value - from) / (to - from), 0.0, 1.0);
  return t * t * (3 - 2 * t);
}

}  // namespace tessaline::samples
