#include "removal/spectrum_gathering.h"

#include <algorithm>
#include <vector>

#include "image/pixel_kind.h"
#include "removal/portable_math.h"

namespace tessaline {
namespace {

// The level that half of the cells do not exceed.
int32_t MedianLevel(const ConstImageView& spectrum) {
  std::vector<int32_t> cells(static_cast<size_t>(kHostMax) + 1);
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    const auto* const row = spectrum.Row<uint16_t>(y);
    for (int32_t x = 0; x < kSpectrumCells; ++x) ++cells[row[x]];
  }
  int32_t level = 0;
  for (int32_t count = cells[0]; 2 * count < kSpectrumCells * kSpectrumCells; count += cells[++level]) {
  }
  return level;
}

// Adds powers over the usual one, which half of the cells do not exceed.
void AddPowers(const ConstImageView& powers, const ImageView& sums) {
  std::vector<double> cells;
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    const auto* const row = powers.Row<double>(y);
    cells.insert(cells.end(), row, row + kSpectrumCells);
  }
  const auto middle = cells.begin() + static_cast<ptrdiff_t>(cells.size() / 2);
  std::nth_element(cells.begin(), middle, cells.end());
  const double share = *middle > 0.0 ? 1.0 / *middle : 0.0;
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    const auto* const row = powers.Row<double>(y);
    auto* const sum = sums.Row<double>(y);
    for (int32_t x = 0; x < kSpectrumCells; ++x) sum[x] += share * row[x];
  }
}

}  // namespace

int32_t SpectrumGathering::Create() {
  pictures_ = 0;
  logSpans_ = 0;
  const bool isReady = sums_.Create(kSpectrumCells, kSpectrumCells, sizeof(double)) &&
                       powers_.Create(kSpectrumCells, kSpectrumCells, sizeof(double));
  return isReady ? kSuccess : kOutOfMemory;
}

void SpectrumGathering::Add(const Analysis& analysis) {
  const ConstImageView spectrum = analysis.rawGray16.view();
  const int32_t usual = MedianLevel(spectrum);
  // A little more than the level, or the scaling's truncation would not give one picture's levels back.
  constexpr double kAgainstTruncation = 1e-6;
  // Magnitudes over the usual one by level, as they are asked for: there are eight times as many cells as
  // levels.
  std::vector<double> magnitudes(static_cast<size_t>(kHostMax) + 1);
  const auto magnitudeOf = [&](uint16_t level) {
    double& magnitude = magnitudes[level];
    if (magnitude == 0.0) {
      const double exact = level > 0 ? level + kAgainstTruncation : 0.0;
      magnitude = PortableExp((exact - usual) * analysis.logSpan / double{kHostMax});
    }
    return magnitude;
  };
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    const auto* const levels = spectrum.Row<uint16_t>(y);
    auto* const sums = sums_.view().Row<double>(y);
    for (int32_t x = 0; x < kSpectrumCells; ++x) sums[x] += magnitudeOf(levels[x]);
  }
  AddPowers(analysis.powers.view(), powers_.view());
  ++pictures_;
  transformSize_ = analysis.transformSize;
  logSpans_ += analysis.logSpan;
}

double SpectrumGathering::meanLogSpan() const {
  return pictures_ > 0 ? logSpans_ / pictures_ : 0.0;
}

int32_t SpectrumGathering::Mean(Analysis* mean) const {
  // A sum in place of the mean: the scaling by the logarithm does not tell them apart.
  *mean = {};
  if (!mean->sums.Create(kSpectrumCells, kSpectrumCells, sizeof(double)) ||
      !mean->powers.Create(kSpectrumCells, kSpectrumCells, sizeof(double))) {
    return kOutOfMemory;
  }
  CopyImage(sums_.view(), mean->sums.view());
  CopyImage(powers_.view(), mean->powers.view());
  mean->transformSize = transformSize_;
  return FinishAnalysis(mean);
}

}  // namespace tessaline
