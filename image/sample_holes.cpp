#include "image/sample_holes.h"

#include <array>
#include <cmath>
#include <limits>

namespace tessaline {
namespace {

struct Place {
  int32_t x, y;
};

float& At(const FloatChannel& channel, Place place) {
  return channel.first[place.x * channel.pixelStride + place.y * channel.rowStride];
}

// What stands where no wave has come yet, and where the next one comes; neither is usable.
constexpr float kUnreached = std::numeric_limits<float>::infinity(), kNext = -kUnreached;

constexpr std::array<Place, 4> kSteps = {{{-1, 0}, {1, 0}, {0, -1}, {0, 1}}};

// Of the four around a place, those within the channel.
template <typename Visit>
void VisitNeighbours(const FloatChannel& channel, Place place, const Visit& visit) {
  for (const Place& step : kSteps) {
    const Place beside = {place.x + step.x, place.y + step.y};
    if (beside.x >= 0 && beside.y >= 0 && beside.x < channel.width && beside.y < channel.height) {
      visit(beside);
    }
  }
}

std::vector<Place> UnusablePlaces(const FloatChannel& channel) {
  std::vector<Place> places;
  for (int32_t y = 0; y < channel.height; ++y) {
    for (int32_t x = 0; x < channel.width; ++x) {
      if (!IsUsableSample(At(channel, {x, y}))) places.push_back({x, y});
    }
  }
  return places;
}

}  // namespace

bool IsUsableSample(float sample) {
  constexpr float kLargest = 1e6f;  // false for what is no number, too
  return std::abs(sample) <= kLargest;
}

void SampleHoles::Bridge(const FloatChannel& channel) {
  struct Bridged {
    Place place;
    float value;
  };
  const std::vector<Place> unusable = UnusablePlaces(channel);
  for (const Place& place : unusable) holes_.push_back({&At(channel, place), At(channel, place)});
  for (const Place& place : unusable) At(channel, place) = kUnreached;

  // In waves from the edges of the holes inwards. A wave is gathered before it is written, so that none of it
  // takes the value of another.
  std::vector<Place> candidates = unusable;
  std::vector<Bridged> wave;
  while (!candidates.empty()) {
    wave.clear();
    for (const Place& place : candidates) {
      bool isFound = false;
      VisitNeighbours(channel, place, [&](Place beside) {
        if (isFound || !IsUsableSample(At(channel, beside))) return;
        isFound = true;
        wave.push_back({place, At(channel, beside)});
      });
    }
    candidates.clear();
    for (const auto& [place, value] : wave) At(channel, place) = value;
    for (const auto& [place, value] : wave) {
      VisitNeighbours(channel, place, [&](Place beside) {
        float& sample = At(channel, beside);
        if (sample != kUnreached) return;
        candidates.push_back(beside);
        sample = kNext;
      });
    }
  }
  for (const Place& place : unusable) {
    if (!IsUsableSample(At(channel, place))) At(channel, place) = 0;
  }
}

void SampleHoles::PutBack() const {
  for (const Hole& hole : holes_) *hole.sample = hole.value;
}

}  // namespace tessaline
