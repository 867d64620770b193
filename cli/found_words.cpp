#include "cli/found_words.h"

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

// "period 1.92 px, angle 45.3 deg, 156.6 lpi at 300 dpi, height 3.35"
std::string LicensedPeakText(const SpectrumPeak& peak, const std::optional<Resolution>& resolution) {
  if (peak.scale == PeakScale::kLines) {
    return std::string(peak.dx == 0 ? "rows" : "columns") + " with an offset each, height " +
           Rounded(peak.height, 2);
  }
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
  const Resolution known = resolution.value_or(Resolution{});
  return tessaline::NamePattern(outcome.peaks, outcome.notches, known.horizontal, known.vertical);
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
