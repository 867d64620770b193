#include "removal/tone_curve.h"

#include <algorithm>
#include <cmath>

#include "image/pixel_kind.h"
#include "removal/portable_math.h"

namespace tessaline {

namespace {

constexpr int32_t kSteps = 2048;

// A table of kSteps + 1 values at `place` in steps; beyond it the outermost slopes go on.
float Between(const std::vector<float>& table, float place) {
  const auto step = static_cast<size_t>(std::clamp(place, 0.0f, static_cast<float>(kSteps - 1)));
  return table[step] + (place - static_cast<float>(step)) * (table[step + 1] - table[step]);
}

ToneCurve MakeSrgb() {
  constexpr double kToe = 0.04045, kToeSlope = 12.92, kOffset = 0.055, kExponent = 2.4;
  std::vector<float> light(kSteps + 1);
  for (int32_t i = 0; i <= kSteps; ++i) {
    const double level = double(i) / kSteps;
    light[i] = static_cast<float>(
        level <= kToe ? level / kToeSlope
                      : PortableExp(kExponent * PortableLog((level + kOffset) / (1.0 + kOffset))));
  }
  ToneCurve curve;
  curve.Create(light.data(), kSteps + 1);
  return curve;
}

}  // namespace

const ToneCurve& ToneCurve::Srgb() {
  static const ToneCurve curve = MakeSrgb();
  return curve;
}

bool ToneCurve::Create(const float* light, int32_t count) {
  if (count < 2) return false;
  const double black = light[0], span = double(light[count - 1]) - black;
  if (!(span > 0.0) || !std::isfinite(span)) return false;
  for (int32_t i = 1; i < count; ++i) {
    if (!(light[i] >= light[i - 1])) return false;
  }
  lightOfLevel_.resize(kSteps + 1);
  for (int32_t i = 0; i <= kSteps; ++i) {
    const double place = double(i) * (count - 1) / kSteps;
    const auto from = std::min(static_cast<int32_t>(place), count - 2);
    const double between = light[from] + (place - from) * (double(light[from + 1]) - light[from]);
    lightOfLevel_[i] = static_cast<float>((between - black) / span * kHostMax);
  }
  levelOfRoot_.resize(kSteps + 1);
  for (int32_t i = 0, step = 0; i <= kSteps; ++i) {
    const double wanted = double(i) * i / (double(kSteps) * kSteps) * kHostMax;
    while (step < kSteps - 1 && lightOfLevel_[step + 1] < wanted) ++step;
    const double rise = double(lightOfLevel_[step + 1]) - lightOfLevel_[step];
    const double part = rise > 0.0 ? std::clamp((wanted - lightOfLevel_[step]) / rise, 0.0, 1.0) : 0.0;
    levelOfRoot_[i] = static_cast<float>((step + part) / kSteps * kHostMax);
  }
  return true;
}

float ToneCurve::LightOf(float level) const {
  return Between(lightOfLevel_, level * (kSteps / kHostMax));
}

float ToneCurve::LevelOf(float light) const {
  if (light >= 0.0f) return Between(levelOfRoot_, std::sqrt(light * (1.0f / kHostMax)) * kSteps);
  const float rise = lightOfLevel_[1] - lightOfLevel_[0];
  return rise > 0.0f ? light / rise * (kHostMax / kSteps) : 0.0f;
}

void ToneCurve::DecodeRow(int32_t width, float* levels) const {
  for (int32_t x = 0; x < width; ++x) levels[2 * x] = LightOf(levels[2 * x]);
}

}  // namespace tessaline
