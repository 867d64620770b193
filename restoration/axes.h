// What of a picture's channels is polished, each for itself: of colours their luma and two differences, of
// anything else the channels as they are.
#pragma once

#include <algorithm>
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
// Of dots so far apart that what the notches leave of them is wider than the window.
constexpr AxisRule kOnlyCoarseAxis = {0.30f, 200.0f, 2, 2.75f};
constexpr AxisRule kFirstCoarseAxis = {0.20f, 130.0f, 2, 4.0f};
// Of dots that differ by themselves or wander, so that flat places stay rough over some pixels. More, where
// these places ask for it (noise.cpp).
constexpr AxisRule kOnlyRoughAxis = {0.44f, 300.0f, 2, 2.75f};
constexpr AxisRule kFirstRoughAxis = {0.44f, 300.0f, 2, 4.0f};
constexpr AxisRule kOtherRoughAxes = {1.20f, 50.0f, 3, 4.0f};
// And where they are far apart too.
constexpr AxisRule kOnlyRoughCoarseAxis = {0.44f, 300.0f, 3, 2.75f};
constexpr AxisRule kOtherRoughCoarseAxes = {2.40f, 100.0f, 3, 4.0f};

using AxisMatrix = float[kMostChannels][kMostChannels];
constexpr AxisMatrix kLuma = {
    {0.299f, 0.587f, 0.114f}, {-0.168736f, -0.331264f, 0.5f}, {0.5f, -0.418688f, -0.081312f}};
constexpr AxisMatrix kFromLuma = {{1.0f, 0.0f, 1.402f}, {1.0f, -0.344136f, -0.714136f}, {1.0f, 1.772f, 0.0f}};

// What a screen's dots are like.
enum class Dots : int32_t { kFine, kCoarse, kRough, kRoughCoarse };

struct DotsLeft {
  Dots dots = Dots::kFine;
  // Of rough ones the variance in the flattest windows, on the scale 0 .. 32768 of the first axis; else 0.
  float flatVariance = 0.0f;
};

// As many as there are channels.
struct Axes {
  int32_t count = 0;
  bool isMixed = false;     // by kLuma, else they are the channels
  Dots dots = Dots::kFine;  // known once the pattern is taken out

  const AxisRule& Rule(int32_t axis) const {
    const bool isOnly = count == 1, isFirst = axis == 0;
    switch (dots) {
      case Dots::kRoughCoarse:
        return isOnly ? kOnlyRoughCoarseAxis : isFirst ? kFirstRoughAxis : kOtherRoughCoarseAxes;
      case Dots::kRough:
        return isOnly ? kOnlyRoughAxis : isFirst ? kFirstRoughAxis : kOtherRoughAxes;
      case Dots::kCoarse:
        return isOnly ? kOnlyCoarseAxis : isFirst ? kFirstCoarseAxis : kOtherAxes;
      case Dots::kFine:
        break;
    }
    return isOnly ? kOnlyAxis : isFirst ? kFirstAxis : kOtherAxes;
  }
  // Of the windows.
  int32_t MostReach() const { return count > 1 ? std::max(Rule(0).reach, Rule(1).reach) : Rule(0).reach; }

  // The first axis of a pixel's channels, of which only those that there are count.
  float First(float a, float b, float c) const {
    return isMixed ? kLuma[0][0] * a + kLuma[0][1] * b + kLuma[0][2] * c : a;
  }

  Axes() = default;
  Axes(const PictureView& picture, ChannelMeaning meaning)
      : count(picture.channels), isMixed(meaning == ChannelMeaning::kRgb && count == kMostChannels) {}
};

}  // namespace tessaline
