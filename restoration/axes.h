// What of a picture's channels is polished, each for itself: of colours their luma and two differences, of
// anything else the channels as they are.
#pragma once

#include <cstdint>

#include "removal/picture.h"

namespace tessaline {

// What a picture's three channels are.
enum class ChannelMeaning : int32_t {
  kRgb,        // their luma and two differences of colour are polished
  kOpponents,  // they are a lightness and two differences (Lab)
};

struct AxisRule {
  float noiseShare;  // of the mean square of what was taken out
  float mostNoise;   // variance, in levels of 255
  int32_t reach;     // of the window, to every side
  float alongEdge;   // times as much noise where a printed picture ends: the cut dots are more than the mesh
};
constexpr AxisRule kOnlyAxis = {0.22f, 150.0f, 1, 2.75f};  // grey, or one ink: its dots are the darkest
constexpr AxisRule kFirstAxis = {0.15f, 100.0f, 1, 4.0f};  // luma, lightness
constexpr AxisRule kOtherAxes = {1.20f, 50.0f, 2, 4.0f};   // differences of colour, which carry less detail

using AxisMatrix = float[kMostChannels][kMostChannels];
constexpr AxisMatrix kLuma = {
    {0.299f, 0.587f, 0.114f}, {-0.168736f, -0.331264f, 0.5f}, {0.5f, -0.418688f, -0.081312f}};
constexpr AxisMatrix kFromLuma = {{1.0f, 0.0f, 1.402f}, {1.0f, -0.344136f, -0.714136f}, {1.0f, 1.772f, 0.0f}};

// As many as there are channels.
struct Axes {
  int32_t count = 0;
  bool isMixed = false;  // by kLuma, else they are the channels

  const AxisRule& Rule(int32_t axis) const {
    return axis > 0 ? kOtherAxes : count == 1 ? kOnlyAxis : kFirstAxis;
  }

  Axes() = default;
  Axes(const PictureView& picture, ChannelMeaning meaning)
      : count(picture.channels), isMixed(meaning == ChannelMeaning::kRgb && count == kMostChannels) {}
};

}  // namespace tessaline
