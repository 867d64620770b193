#include "restoration/light.h"

#include <algorithm>
#include <cmath>

#include "image/pixel_kind.h"
#include "restoration/decision.h"
#include "restoration/licensed_peaks.h"

namespace tessaline {

namespace {

// Of one ink. At medium tones such a screen is darkened by less than a level; weaves lie below.
constexpr double kLeastPrintAmplitude = 12.0 * kByteToHost;
static_assert(kLeastPrintAmplitude <= kMostAmplitude);  // is told apart
constexpr double kMostApart = 0.04;     // of two periods; a cell at a period of 16 pixels is 3 percent
constexpr double kMostOffSquare = 3.0;  // degrees
constexpr double kInksApart = 8.0;      // degrees

bool AreSquare(const SpectrumPeak& a, const SpectrumPeak& b) {
  return std::abs(a.period / b.period - 1.0) < kMostApart &&
         std::abs(std::abs(a.angle - b.angle) - 90.0) < kMostOffSquare;
}

bool IsOfSquare(const SpectrumPeak& a, const std::vector<SpectrumPeak>& peaks) {
  return a.isLicensed && std::any_of(peaks.begin(), peaks.end(), [&](const SpectrumPeak& b) {
           return b.isLicensed && b.scale == a.scale && AreSquare(a, b);
         });
}

// Only inks repeat alike in several directions: two squares of the strongest peak's period, one turned
// against the other.
bool AreSeveralInks(const Findings& findings) {
  const std::vector<SpectrumPeak>& peaks = findings.peaks;
  const auto strongest =
      std::max_element(peaks.begin(), peaks.end(), [](const SpectrumPeak& a, const SpectrumPeak& b) {
        return a.isLicensed < b.isLicensed ||
               (a.isLicensed == b.isLicensed && MagnitudeOf(a) < MagnitudeOf(b));
      });
  const SpectrumPeak* first = nullptr;
  for (const SpectrumPeak& peak : peaks) {
    if (std::abs(peak.period / strongest->period - 1.0) >= kMostApart || !IsOfSquare(peak, peaks)) continue;
    if (first == nullptr) first = &peak;
    const double turned = std::fmod(std::abs(peak.angle - first->angle), 90.0);
    if (std::min(turned, 90.0 - turned) >= kInksApart) return true;
  }
  return false;
}

}  // namespace

bool IsDotScreen(const Findings& findings) {
  if (!IsSquareLattice(findings)) return false;
  return findings.strongAmplitude >= kLeastPrintAmplitude || AreSeveralInks(findings);
}

bool IsSquareLattice(const Findings& findings) {
  const auto& peaks = findings.peaks;
  return std::any_of(peaks.begin(), peaks.end(),
                     [&](const SpectrumPeak& peak) { return IsOfSquare(peak, peaks); });
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
