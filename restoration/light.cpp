#include "restoration/light.h"

#include <algorithm>
#include <cmath>

#include "image/pixel_kind.h"
#include "restoration/decision.h"

namespace tessaline {

namespace {

// At medium tones such a screen is darkened by little more than a level.
constexpr double kLeastPrintAmplitude = 16.0 * kByteToHost;
static_assert(kLeastPrintAmplitude <= kMostAmplitude);  // is told apart
constexpr double kMostApart = 0.04;     // of two periods; a cell at a period of 16 pixels is 3 percent
constexpr double kMostOffSquare = 3.0;  // degrees

bool AreSquare(const SpectrumPeak& a, const SpectrumPeak& b) {
  return std::abs(a.period / b.period - 1.0) < kMostApart &&
         std::abs(std::abs(a.angle - b.angle) - 90.0) < kMostOffSquare;
}

}  // namespace

bool IsDotScreen(const Findings& findings) {
  return findings.strongAmplitude >= kLeastPrintAmplitude && IsSquareLattice(findings);
}

bool IsSquareLattice(const Findings& findings) {
  const auto& peaks = findings.peaks;
  return std::any_of(peaks.begin(), peaks.end(), [&](const SpectrumPeak& a) {
    return a.isLicensed && std::any_of(peaks.begin(), peaks.end(), [&](const SpectrumPeak& b) {
             return b.isLicensed && b.scale == a.scale && AreSquare(a, b);
           });
  });
}

const ToneCurve* LightFor(const LightWish& wish, const Findings& findings) {
  switch (wish.light) {
    case Light::kAuto:
      return wish.curve != nullptr && IsDotScreen(findings) ? wish.curve : nullptr;
    case Light::kCoded:
      return nullptr;
    case Light::kLinear:
      break;
  }
  return wish.curve != nullptr ? wish.curve : &ToneCurve::Srgb();
}

}  // namespace tessaline
