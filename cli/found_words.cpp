#include "cli/found_words.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <sstream>

namespace tessaline::cli {
namespace {

constexpr size_t kMostLines = 8;

std::string Rounded(double value, int digits) {
  std::ostringstream text;
  text.setf(std::ios::fixed);
  text.precision(digits);
  text << value;
  return text.str();
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
  double LinesPerInch(const Resolution& resolution) const {
    return std::hypot(x * resolution.horizontal, y * resolution.vertical);
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

// "period 1.92 px, angle 45.3 deg, 156.6 lpi at 300 dpi, height 3.35"
std::string LicensedPeakText(const SpectrumPeak& peak, const std::optional<Resolution>& resolution) {
  std::string text = "period " + Rounded(peak.period, 2) + " px, angle " + Rounded(peak.angle, 1) + " deg";
  if (resolution) {
    const double lines = LinesPerInch(peak, resolution->horizontal, resolution->vertical);
    text += ", " + Rounded(lines, 1) + " lpi at " + Rounded(resolution->horizontal, 0) + " dpi";
    if (IsAtHalfTheResolution(peak)) text += " (at half the resolution: perhaps aliased)";
  }
  return text + ", height " + Rounded(peak.height, 2);
}

std::string NotchText(const Notch& notch, const std::optional<Resolution>& resolution) {
  std::string text =
      "period " + Rounded(notch.periodPixels, 2) + " px, angle " + Rounded(notch.angleDegrees, 1) + " deg";
  if (resolution) {
    text += ", " + Rounded(LinesPerInch(notch, resolution->horizontal, resolution->vertical), 1) +
            " lpi at " + Rounded(resolution->horizontal, 0) + " dpi";
  }
  return text + ", " + std::to_string(notch.aboveThreshold) + " above the threshold";
}

std::vector<std::string> DescribePeaks(const EngineOutcome& outcome,
                                       const std::optional<Resolution>& resolution) {
  std::vector<std::string> peaks;
  size_t licensed = 0, used = 0;
  for (const SpectrumPeak& peak : outcome.peaks) {
    used += peak.verdict == PeakVerdict::kUsed;
    if (!peak.isLicensed) continue;
    if (licensed++ < kMostLines) peaks.push_back("auto: " + LicensedPeakText(peak, resolution));
  }
  std::vector<std::string> lines = {
      "auto: " + std::to_string(licensed) + (licensed == 1 ? " licensed peak, " : " licensed peaks, ") +
      std::to_string(used) + " in all, " + std::to_string(outcome.seedCells) + " cells"};
  lines.insert(lines.end(), peaks.begin(), peaks.end());
  if (licensed > kMostLines) {
    lines.push_back("auto: and " + std::to_string(licensed - kMostLines) +
                    " licensed peaks more (--report has all)");
  }
  return lines;
}

}  // namespace

PatternName NamePattern(const EngineOutcome& outcome, const std::optional<Resolution>& resolution) {
  std::vector<Wave> waves;  // highest first
  for (const SpectrumPeak& peak : outcome.peaks) {
    if (peak.isLicensed && peak.verdict == PeakVerdict::kUsed) waves.push_back(WaveOf(peak, outcome.notches));
  }
  if (waves.empty()) return {"a pattern"};
  const Wave& highest = waves[0];
  const std::string ruling = resolution ? Rounded(highest.LinesPerInch(*resolution), 1) + " lpi " : "";
  const std::string period = resolution ? "" : " of period " + Rounded(1 / highest.Cycles(), 2) + " px";
  const bool isScreen = IsScreen(highest, waves);
  const std::vector<int> angles =
      isScreen ? ScreenAngles(waves)
               : std::vector<int>{static_cast<int>(std::lround(highest.Degrees())) % 180};
  const std::string at = period + " at " + Listed(angles) + " deg";
  if (angles.size() > 1) return {ruling + "screens" + at, true};
  return {(resolution ? WithArticle(ruling) : "a ") + (isScreen ? "screen" : "line pattern") + at};
}

std::string CountNotches(const EngineOutcome& outcome, const std::optional<Resolution>& resolution) {
  const Notch& strongest = outcome.notches.front();
  std::string text = std::to_string(outcome.notches.size()) +
                     (outcome.notches.size() == 1 ? " peak" : " peaks, the strongest") + " of period " +
                     Rounded(strongest.periodPixels, 2) + " pixels at " + Rounded(strongest.angleDegrees, 1) +
                     " degrees";
  if (resolution) {
    text += ", " + Rounded(LinesPerInch(strongest, resolution->horizontal, resolution->vertical), 0) +
            " lines per inch";
  }
  return text;
}

std::vector<std::string> DescribeInLines(const EngineOutcome& outcome,
                                         const std::optional<Resolution>& resolution) {
  if (!outcome.patternFound) return {};
  if (outcome.isAutomatic) return DescribePeaks(outcome, resolution);
  std::vector<std::string> lines;
  for (const Notch& notch : outcome.notches) {
    if (lines.size() == kMostLines) {
      lines.push_back("and " + std::to_string(outcome.notches.size() - kMostLines) +
                      " peaks more (--report has all)");
      break;
    }
    lines.push_back(NotchText(notch, resolution));
  }
  return lines;
}

}  // namespace tessaline::cli
