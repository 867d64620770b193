#include "removal/pattern_name.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>

#include "removal/spectrum_grid.h"

namespace tessaline {
namespace {

std::string Rounded(double value, int digits) {
  char text[40];
  std::snprintf(text, sizeof text, "%.*f", digits, value);
  return text;
}

// "an 87.0", "a 121.6": as the number is spoken.
std::string WithArticle(const std::string& number) {
  const std::string whole = number.substr(0, number.find('.'));
  const bool beginsWithVowel = whole[0] == '8' || whole == "11" || whole == "18";
  return (beginsWithVowel ? "an " : "a ") + number;
}

// A repeat of the picture, as fine as it is known.
struct Wave {
  double x, y;  // cycles per pixel, y downwards

  double Cycles() const { return std::hypot(x, y); }
  double Degrees() const {  // 0..180, counter-clockwise from the x axis
    return std::fmod(std::atan2(-y, x) * 180 / std::numbers::pi + 180, 180);
  }
};

// A peak is known to its cell; the notch round it to a fraction of that.
Wave WaveOf(const SpectrumPeak& peak, const std::vector<Notch>& notches) {
  for (const Notch& notch : notches) {
    for (const int32_t side : {1, -1}) {  // on the centre row either side may stand for the pair
      if (std::abs(side * notch.dx - peak.dx) > 1 || std::abs(side * notch.dy - peak.dy) > 1) continue;
      return {side * notch.cyclesPerPixelX, side * notch.cyclesPerPixelY};
    }
  }
  return {peak.dx / static_cast<double>(kSpectrumCells), peak.dy / static_cast<double>(kSpectrumCells)};
}

bool AreOfOneRuling(const Wave& a, const Wave& b) {
  constexpr double kMostApart = 0.04;  // a cell at a period of 16 pixels is 3 percent
  return std::abs(a.Cycles() / b.Cycles() - 1) < kMostApart;
}

bool AreSquare(const Wave& a, const Wave& b) {
  constexpr double kMostOff = 3;  // degrees
  return std::abs(std::abs(a.Degrees() - b.Degrees()) - 90) < kMostOff;
}

bool IsScreen(const Wave& wave, const std::vector<Wave>& all) {
  return std::any_of(all.begin(), all.end(), [&](const Wave& other) {
    return AreOfOneRuling(wave, other) && AreSquare(wave, other);
  });
}

// The angles of all screens of the first wave's ruling, whole degrees of 0..89, in order.
std::vector<int> ScreenAngles(const std::vector<Wave>& waves) {
  constexpr int kSameScreen = 2;  // degrees
  std::vector<int> angles;
  for (const Wave& wave : waves) {
    if (!AreOfOneRuling(waves[0], wave) || !IsScreen(wave, waves)) continue;
    const int angle = static_cast<int>(std::lround(wave.Degrees())) % 90;
    const bool isKnown = std::any_of(angles.begin(), angles.end(), [angle](int other) {
      const int apart = std::abs(angle - other);
      return std::min(apart, 90 - apart) <= kSameScreen;
    });
    if (!isKnown) angles.push_back(angle);
  }
  std::sort(angles.begin(), angles.end());
  return angles;
}

// "15, 45 and 75"
std::string Listed(const std::vector<int>& numbers) {
  std::string text;
  for (size_t i = 0; i < numbers.size(); ++i) {
    if (i > 0) text += i + 1 == numbers.size() ? " and " : ", ";
    text += std::to_string(numbers[i]);
  }
  return text;
}

// "rows", "rows and columns"; empty where none have offsets.
std::string LinesWithOffsets(const std::vector<SpectrumPeak>& peaks) {
  std::string lines;
  for (const bool areRows : {true, false}) {
    const bool haveOffsets = std::any_of(peaks.begin(), peaks.end(), [&](const SpectrumPeak& peak) {
      return peak.isLicensed && peak.scale == PeakScale::kLines && (peak.dx == 0) == areRows;
    });
    if (haveOffsets) lines += (lines.empty() ? "" : " and ") + std::string(areRows ? "rows" : "columns");
  }
  return lines;
}

}  // namespace

PatternName NamePattern(const std::vector<SpectrumPeak>& peaks, const std::vector<Notch>& notches,
                        double pixelsPerInchX, double pixelsPerInchY) {
  std::vector<Wave> waves;
  for (const SpectrumPeak& peak : peaks) {
    if (peak.isLicensed && peak.verdict == PeakVerdict::kUsed) waves.push_back(WaveOf(peak, notches));
  }
  if (waves.empty()) return {"a pattern"};
  if (const std::string lines = LinesWithOffsets(peaks); !lines.empty()) return {"offsets of " + lines, true};
  const Wave& highest = waves[0];
  const bool isKnown = pixelsPerInchX > 0.0;
  const double lines = std::hypot(highest.x * pixelsPerInchX, highest.y * pixelsPerInchY);
  const std::string ruling = isKnown ? Rounded(lines, 1) + " lpi " : "";
  const std::string period = isKnown ? "" : " of period " + Rounded(1 / highest.Cycles(), 2) + " px";
  const bool isScreen = IsScreen(highest, waves);
  const std::vector<int> angles =
      isScreen ? ScreenAngles(waves)
               : std::vector<int>{static_cast<int>(std::lround(highest.Degrees())) % 180};
  const std::string at = period + " at " + Listed(angles) + " deg";
  if (angles.size() > 1) return {ruling + "screens" + at, true};
  return {(isKnown ? WithArticle(ruling) : "a ") + (isScreen ? "screen" : "line pattern") + at};
}

}  // namespace tessaline
