#include "glue/host/color_rows.h"

#include <algorithm>
#include <array>

#include "image/pixel_kind.h"
#include "removal/portable_math.h"

namespace tessaline {

namespace {

constexpr float kThird = 0.33333334f;
constexpr float kByteToUnit = 0.003921569f;
constexpr float kHostToUnit = 3.0517578e-5f;
static_assert(kByteToUnit == 1.0f / 255.0f && kHostToUnit == 1.0f / 32768.0f);
static_assert(kByteMax * kByteToHost == kHostMax, "the top of the one scale is the top of the other");

// value to the power of `exponent`, value > 0.
float Power(float value, double exponent) {
  return static_cast<float>(PortableExp(exponent * PortableLog(value)));
}

// ------------------------------------------------------------------------------------------------------- Lab

// How a sample of either width stands on the 0..255 scale, and how it is stored from there.
struct ByteSamples {
  using Sample = uint8_t;
  static constexpr int32_t kLevels = 256;
  static float Load(Sample sample) { return sample; }
  static Sample Store(float level) { return static_cast<Sample>(level); }
};
struct HostSamples {
  using Sample = uint16_t;
  static constexpr int32_t kLevels = 32769;
  static float Load(Sample sample) { return static_cast<float>(sample) * kHostToByte; }
  static Sample Store(float level) { return static_cast<Sample>(level * kByteToHost); }
};

float ClampToByteScale(float level) {
  return std::clamp(level, 0.0f, kByteMax);
}

template <typename Samples>
void FetchLabRow(typename Samples::Sample* row, int32_t pixels) {
  for (int32_t x = 0; x < pixels; ++x, row += 3) {
    const float p0 = Samples::Load(row[0]);
    const float p1 = Samples::Load(row[1]);
    const float p2 = Samples::Load(row[2]);
    const float mean = (p0 + p1 + p2 + 1.0f) * kThird;
    const float lightness = (Power(mean + 0.05f, 0.8) - 0.09102821f) * 3.032f;
    const float c1 = (p0 - p1) * 0.33333f + 127.5f;
    const float c2 = ((p0 + p1) * 0.5f - p2) * 0.83333f + 127.5f;
    // The lightness is not clamped: of white samples it is 255.3, which as a 2-byte level lies 37 above
    // 32768.
    row[0] = Samples::Store(lightness);
    row[1] = Samples::Store(ClampToByteScale(c1));
    row[2] = Samples::Store(ClampToByteScale(c2));
  }
}

float LightnessOf(float p0) {
  const float lightness = Power(p0 + 0.05f, 1.28);
  return (lightness - 0.21611336f) * 0.21190332f;
}

// LightnessOf by level: a logarithm and an exponential per pixel would cost more than everything else in the
// copy back together.
template <typename Samples>
const std::array<float, Samples::kLevels>& LightnessTable() {
  static const auto table = [] {
    std::array<float, Samples::kLevels> levels{};
    for (int32_t level = 0; level < Samples::kLevels; ++level) {
      levels[level] = LightnessOf(Samples::Load(static_cast<typename Samples::Sample>(level)));
    }
    return levels;
  }();
  return table;
}

template <typename Samples>
void CopyBackLabRow(typename Samples::Sample* row, int32_t pixels) {
  const auto& lightnessOfLevel = LightnessTable<Samples>();
  for (int32_t x = 0; x < pixels; ++x, row += 3) {
    const int32_t level = row[0];
    const float base =
        level < Samples::kLevels ? lightnessOfLevel[level] : LightnessOf(Samples::Load(row[0]));
    const float a = (Samples::Load(row[1]) - 127.5f) * 3.0f * 0.5f;
    const float b = (Samples::Load(row[2]) - 127.5f) * 1.2f;
    row[0] = Samples::Store(ClampToByteScale(base + a + b * kThird + 0.5f));
    row[1] = Samples::Store(ClampToByteScale(base - a + b * kThird + 0.5f));
    row[2] = Samples::Store(ClampToByteScale(base - 2.0f * b * kThird + 0.5f));
  }
}

}  // namespace

void FetchLabRow8(uint8_t* row, int32_t pixels) {
  FetchLabRow<ByteSamples>(row, pixels);
}
void FetchLabRow16(uint16_t* row, int32_t pixels) {
  FetchLabRow<HostSamples>(row, pixels);
}
void CopyBackLabRow8(uint8_t* row, int32_t pixels) {
  CopyBackLabRow<ByteSamples>(row, pixels);
}
void CopyBackLabRow16(uint16_t* row, int32_t pixels) {
  CopyBackLabRow<HostSamples>(row, pixels);
}

// ------------------------------------------------------------------------------------------------------ CMYK

void FetchCmykRow8(uint8_t* row, int32_t pixels) {
  const uint8_t* from = row;
  for (int32_t x = 0; x < pixels; ++x, from += 4, row += 3) {
    const float k = (kByteMax - from[3]) * kByteToUnit + 0.0001f;
    const float s = 1.0f - k;
    const auto invert = [k, s](uint8_t ink) {
      return kByteMax - std::min((kByteMax - ink) * kByteToUnit * s + k, 1.0f) * kByteMax;
    };
    const float c = invert(from[0]) * 1.15f;
    const float m = invert(from[1]);
    const float y = invert(from[2]) * 0.85f;
    const float mean = (m + c + y) / 3.0f;
    row[0] = StoreByte(0.8f * c + 0.2f * mean);
    row[1] = StoreByte(0.6f * m + 0.4f * mean);
    row[2] = StoreByte(0.8f * y + 0.2f * mean);
  }
}

void CopyBackCmykRow8(uint8_t* row, int32_t pixels) {
  for (int32_t x = pixels - 1; x >= 0; --x) {
    const uint8_t* const from = row + int64_t{3} * x;
    uint8_t* const to = row + int64_t{4} * x;
    const float a = (kByteMax - from[0]) * kByteToUnit;
    const float b = (kByteMax - from[1]) * kByteToUnit;
    const float c = (kByteMax - from[2]) * kByteToUnit;
    const float k = std::min({a, b, c}) * 0.9302325f + 0.0001f;  // below 1, so s is not 0
    const float s = 1.0f - k;
    to[0] = StoreByte((1.0f - (a - k) / s) * kByteMax * 0.9090909f);
    to[1] = StoreByte((1.0f - (b - k) / s) * kByteMax);
    to[2] = StoreByte((1.0f - (c - k) / s) * kByteMax);
    to[3] = StoreByte(s * kByteMax);
  }
}

void FetchCmykRow16(uint16_t* row, int32_t pixels) {
  const uint16_t* from = row;
  for (int32_t x = 0; x < pixels; ++x, from += 4, row += 3) {
    const float k = from[3] * kHostToUnit + 0.001f;
    const float s = 1.0f - k;
    const auto invert = [k, s](uint16_t ink) {
      return StoreHost(kHostMax - std::min(ink * kHostToUnit * s + k, 1.0f) * kHostMax);
    };
    const uint16_t converted[3] = {invert(from[0]), invert(from[1]), invert(from[2])};
    std::copy(std::begin(converted), std::end(converted), row);
  }
}

void CopyBackCmykRow16(uint16_t* row, int32_t pixels) {
  for (int32_t x = pixels - 1; x >= 0; --x) {
    const uint16_t* const from = row + int64_t{3} * x;
    uint16_t* const to = row + int64_t{4} * x;
    const float a = (kHostMax - from[0]) * kHostToUnit;
    const float b = (kHostMax - from[1]) * kHostToUnit;
    const float c = (kHostMax - from[2]) * kHostToUnit;
    // No level gives a k of exactly 1: 0.999 lies between two of them. Above 1, s is negative, and so is a -
    // k.
    const float k = std::min({a, b, c}) + 0.001f;
    const float s = 1.0f - k;
    to[0] = StoreHost((a - k) / s * kHostMax);
    to[1] = StoreHost((b - k) / s * kHostMax);
    to[2] = StoreHost((c - k) / s * kHostMax);
    to[3] = StoreHost(k * kHostMax);
  }
}

}  // namespace tessaline
