#include "restoration/dots.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "image/pixel_kind.h"
#include "restoration/licensed_peaks.h"
#include "restoration/light.h"
#include "restoration/local_notches.h"
#include "restoration/row_kernels.h"

namespace tessaline {

namespace {

constexpr double kCoarsePeriod = 7.0;       // pixels
constexpr double kRoughCoarsePeriod = 6.0;  // likewise, where what is left is rough

// What a print has left is looked at in windows of so many dots both ways.
constexpr int32_t kSide = 8;
constexpr int32_t kSmallestDot = 2, kLargestDot = 16;  // pixels
constexpr int32_t kLongestSide = kSide * kLargestDot;
constexpr size_t kFewestWindows = 16, kMostWindows = 400;  // these tell enough

// Even the flattest windows of a rough print vary over some pixels, which paper, JPEG and grain do less;
// hardly more over seven than over five, as a picture's texture would; and less than that does.
constexpr double kFlat = 0.1;                                        // of the windows
constexpr double kLeastRise = 12.0 * kByteToHost * kByteToHost;      // of the variance from 3 x 3 to 5 x 5
constexpr double kMostGrowth = 1.21;                                 // from 5 x 5 to 7 x 7
constexpr double kMostVariance = 200.0 * kByteToHost * kByteToHost;  // of 3 x 3

// Of 3 x 3, 5 x 5 and 7 x 7 pixels.
constexpr int32_t kReaches = 3;
struct Variances {
  double of[kReaches] = {};
};

// Their means over rows of so many levels that follow each other.
class RowVariances {
 public:
  explicit RowVariances(int32_t columns) : columns_(columns - 2 * kReaches) {}

  // The row's levels, to be filled in; then it counts. Less `middle`, which keeps the squares precise.
  float* NextRow() { return row_; }
  void Add(float middle) {
    for (int32_t x = 0; x < columns_ + 2 * kReaches; ++x) row_[x] -= middle;
    const int32_t place = count_++ % kRows;
    for (int32_t k = 0; k < kReaches; ++k) {
      ActiveRowKernels().sumValues[k](columns_, row_ + kReaches, sums_[k][place], squares_[k][place]);
      if (count_ >= kRows) AddWindows(k);
    }
  }
  Variances Mean() const {
    Variances mean = variances_;
    for (double& variance : mean.of) variance /= columns_ * (count_ - kRows + 1);
    return mean;
  }

 private:
  static constexpr int32_t kRows = 2 * kReaches + 1;

  // Those round the row in the middle.
  void AddWindows(int32_t k) {
    float sums[kLongestSide] = {}, squares[kLongestSide] = {};
    for (int32_t y = -k - 1; y <= k + 1; ++y) {
      const int32_t place = (count_ + kReaches + y) % kRows;
      for (int32_t x = 0; x < columns_; ++x) sums[x] += sums_[k][place][x];
      for (int32_t x = 0; x < columns_; ++x) squares[x] += squares_[k][place][x];
    }
    const float share = 1.0f / static_cast<float>((2 * k + 3) * (2 * k + 3));
    for (int32_t x = 0; x < columns_; ++x) {
      const float mean = share * sums[x];
      variances_.of[k] += double{share * squares[x] - mean * mean};
    }
  }

  float row_[kLongestSide] = {};
  float sums_[kReaches][kRows][kLongestSide] = {}, squares_[kReaches][kRows][kLongestSide] = {};
  Variances variances_;
  int32_t columns_, count_ = 0;
};

Variances MeasureWindow(int32_t left, int32_t top, int32_t side, const Axes& axes,
                        const TakenChannels& channels) {
  float levels[kMostChannels][kLongestSide];
  const LevelRows rows = {levels[0], levels[1], levels[2]};
  RowVariances variances(side);
  float middle = 0.0f;
  for (int32_t y = 0; y < side; ++y) {
    channels.Load({top + y, left, side}, rows);
    float* const values = variances.NextRow();
    for (int32_t x = 0; x < side; ++x) values[x] = axes.First(levels[0][x], levels[1][x], levels[2][x]);
    if (y == 0) middle = values[0];
    variances.Add(middle);
  }
  return variances.Mean();
}

// Of dots of so many pixels: the variance in the flattest windows where these are rough, else 0.
double RoughVariance(const PictureView& picture, int32_t dot, const Axes& axes, const Gate& gate,
                     const TakenChannels& channels) {
  const int32_t side = kSide * dot;
  const int32_t across = picture.width / side, all = across * (picture.height / side);
  const int32_t step =
      std::max(static_cast<int32_t>((static_cast<size_t>(all) + kMostWindows - 1) / kMostWindows), 1);
  std::vector<double> variances[kReaches];
  for (int32_t i = 0; i < all; i += step) {
    const int32_t left = i % across * side, top = i / across * side;
    if (!gate.IsOpen(left, top, side, side)) continue;
    const Variances window = MeasureWindow(left, top, side, axes, channels);
    for (int32_t k = 0; k < kReaches; ++k) variances[k].push_back(window.of[k]);
  }
  if (variances[0].size() < kFewestWindows) return 0.0;
  const double near = Percentile(kFlat, variances[0]), middle = Percentile(kFlat, variances[1]),
               wide = Percentile(kFlat, variances[2]);
  const bool isRough = middle - near > kLeastRise && wide < kMostGrowth * middle && near < kMostVariance;
  return isRough ? wide : 0.0;
}

}  // namespace

DotsLeft DotsOf(const PictureView& picture, bool isWhole, const Findings& findings, const Axes& axes,
                const Gate& gate, const TakenChannels& channels) {
  const std::vector<SpectrumPeak> licensed = LicensedByMagnitude(findings);
  if (licensed.empty()) return {};
  const double period = kSpectrumCells / std::hypot(licensed[0].dx, licensed[0].dy);
  const auto dot = static_cast<int32_t>(std::lround(std::max(period, double{kSmallestDot})));
  const double rough =
      isWhole && dot <= kLargestDot ? RoughVariance(picture, dot, axes, gate, channels) : 0.0;
  if (rough > 0.0) {
    const bool isCoarse = period >= kRoughCoarsePeriod;
    return {isCoarse ? Dots::kRoughCoarse : Dots::kRough, static_cast<float>(rough)};
  }
  const bool isKnown = IsSquareLattice(findings) || IsLocal(findings);
  return {period >= kCoarsePeriod && isKnown ? Dots::kCoarse : Dots::kFine};
}

}  // namespace tessaline
