#include "restoration/wear.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "image/pixel_kind.h"
#include "restoration/licensed_peaks.h"
#include "restoration/light.h"
#include "restoration/local_notches.h"

namespace tessaline {

namespace {

// A window is so many blocks of a dot each, both ways. They are compared with their neighbours, and so are
// the means of two by two.
constexpr int32_t kSide = 8, kHalf = kSide / 2;
constexpr int32_t kSmallestDot = 2, kLargestDot = 16;  // pixels
constexpr int32_t kLongestSide = kSide * kLargestDot;
constexpr size_t kFewestWindows = 16, kMostWindows = 400;  // these tell enough

// A worn print's dots differ more than paper and JPEG do, even in the flattest windows, and more than a trace
// of the screen's own, though far less than they differ from the paper, as threads do; and they do so one by
// one, where what was printed changes from one dot to the next less than over two.
constexpr double kFlat = 0.1;                                                     // of the windows
constexpr double kLeastVariance = 14.0 * kByteToHost * kByteToHost;               // of the blocks
constexpr double kLeastOfTaken = 0.015, kMostOfTaken = 0.08, kMostCoarse = 0.69;  // shares

constexpr double kCoarsePeriod = 7.0;  // pixels

double PeriodOf(const SpectrumPeak& peak) {
  return kSpectrumCells / std::hypot(peak.dx, peak.dy);
}

struct Window {
  double fine, coarse;  // variance from one block to the next, and from two by two to the next
  double taken;         // mean square
};

// Half the mean square of what neighbours differ by.
template <int kCount>
double HalfDifference(const double (&values)[kCount][kCount]) {
  double sum = 0.0;
  for (int i = 0; i < kCount; ++i) {
    for (int j = 0; j + 1 < kCount; ++j) {
      const double across = values[i][j + 1] - values[i][j], down = values[j + 1][i] - values[j][i];
      sum += across * across + down * down;
    }
  }
  return sum / (4 * kCount * (kCount - 1));
}

Window MeasureWindow(int32_t left, int32_t top, int32_t dot, const Axes& axes, const Noise& noise,
                     const TakenChannels& channels) {
  double fine[kSide][kSide] = {}, coarse[kHalf][kHalf] = {};
  float levels[kMostChannels][kLongestSide];
  const LevelRows rows = {levels[0], levels[1], levels[2]};
  const double share = 1.0 / (dot * dot);
  for (int32_t y = 0; y < kSide * dot; ++y) {
    channels.Load({top + y, left, kSide * dot}, rows);
    for (int32_t x = 0; x < kSide * dot; ++x) {
      fine[y / dot][x / dot] += share * double{axes.First(levels[0][x], levels[1][x], levels[2][x])};
    }
  }
  for (int32_t y = 0; y < kSide; ++y) {
    for (int32_t x = 0; x < kSide; ++x) coarse[y / 2][x / 2] += 0.25 * fine[y][x];
  }
  const int32_t middle = kSide / 2 * dot;
  return {HalfDifference(fine), HalfDifference(coarse), double{noise.TakenAt(left + middle, top + middle)}};
}

}  // namespace

bool IsCoarse(const Findings& findings) {
  if (!IsSquareLattice(findings) && !IsLocal(findings)) return false;
  return PeriodOf(LicensedByMagnitude(findings)[0]) >= kCoarsePeriod;
}

bool IsWorn(const PictureView& picture, const Findings& findings, const Axes& axes, const Gate& gate,
            const Noise& noise, const TakenChannels& channels) {
  const std::vector<SpectrumPeak> licensed = LicensedByMagnitude(findings);
  if (licensed.empty()) return false;
  const auto dot = static_cast<int32_t>(std::lround(std::max(PeriodOf(licensed[0]), double{kSmallestDot})));
  if (dot > kLargestDot) return false;
  const int32_t side = kSide * dot;
  const int32_t across = picture.width / side, all = across * (picture.height / side);
  const int32_t step =
      std::max(static_cast<int32_t>((static_cast<size_t>(all) + kMostWindows - 1) / kMostWindows), 1);
  std::vector<Window> windows;
  for (int32_t i = 0; i < all; i += step) {
    const int32_t left = i % across * side, top = i / across * side;
    if (!gate.IsOpen(left, top, side, side)) continue;
    windows.push_back(MeasureWindow(left, top, dot, axes, noise, channels));
  }
  if (windows.size() < kFewestWindows) return false;
  std::sort(windows.begin(), windows.end(), [](const Window& a, const Window& b) { return a.fine < b.fine; });
  const double variance = windows[static_cast<size_t>(kFlat * static_cast<double>(windows.size()))].fine;
  std::vector<double> taken, coarse;
  for (const Window& window : windows) taken.push_back(window.taken);
  for (size_t i = 0; i < windows.size() / 2; ++i) coarse.push_back(windows[i].coarse / windows[i].fine);
  const double share = variance / Percentile(0.5, taken);
  return variance > kLeastVariance && share > kLeastOfTaken && share < kMostOfTaken &&
         Percentile(0.5, coarse) < kMostCoarse;
}

}  // namespace tessaline
