#include "removal/spectrum_gathering.h"

#include <algorithm>
#include <array>

#include "buffers/levels.h"
#include "buffers/pixel_conversion.h"
#include "buffers/result_codes.h"
#include "removal/peak_detection.h"
#include "removal/portable_math.h"
#include "removal/spectrum_image.h"

namespace tessaline {
namespace {

using LevelTable = std::array<double, static_cast<size_t>(kHostMax) + 1>;

const uint16_t* LevelRow(int32_t slot, int32_t y) {
  return reinterpret_cast<const uint16_t*>(BufferRow(slot, y));
}

// The level that half of the cells do not exceed.
int32_t MedianLevel(int32_t slot) {
  std::array<int32_t, std::tuple_size_v<LevelTable>> cells = {};
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    const uint16_t* const row = LevelRow(slot, y);
    for (int32_t x = 0; x < kSpectrumCells; ++x) ++cells[row[x]];
  }
  int32_t level = 0;
  for (int32_t count = cells[0]; 2 * count < kSpectrumCells * kSpectrumCells; count += cells[++level]) {
  }
  return level;
}

}  // namespace

int32_t SpectrumGathering::Create() {
  int32_t result = sums_.Create("Gathered", kSpectrumCells, kSpectrumCells, sizeof(double));
  if (result == kSuccess)
    result = rawGray16_.Create("Gathered before", kSpectrumCells, kSpectrumCells, kGray16);
  if (result == kSuccess) result = gray16_.Create("Gathered gray16", kSpectrumCells, kSpectrumCells, kGray16);
  if (result == kSuccess) Clear();
  return result;
}

void SpectrumGathering::Clear() {
  ClearBuffer(sums_.slot());
  pictures_ = 0;
  logSpans_ = 0;
}

void SpectrumGathering::Add(const SpectrumFacts& spectrum) {
  const int32_t usual = MedianLevel(spectrum.rawGray16Slot);
  // A little more than the level, or the scaling's truncation would not give one picture's levels back.
  constexpr double kAgainstTruncation = 1e-6;
  static LevelTable magnitudes;  // over the usual one; a table, for there are eight times as many cells
  for (size_t i = 0; i < magnitudes.size(); ++i) {
    const double level = i > 0 ? static_cast<double>(i) + kAgainstTruncation : 0.0;
    magnitudes[i] = PortableExp((level - usual) * spectrum.logSpan / double{kHostMax});
  }
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    const uint16_t* const levels = LevelRow(spectrum.rawGray16Slot, y);
    auto* const sums = reinterpret_cast<double*>(BufferRow(sums_.slot(), y));
    for (int32_t x = 0; x < kSpectrumCells; ++x) sums[x] += magnitudes[levels[x]];
  }
  ++pictures_;
  transformSize_ = spectrum.transformSize;
  logSpans_ += spectrum.logSpan;
}

double SpectrumGathering::meanLogSpan() const {
  return pictures_ > 0 ? logSpans_ / pictures_ : 0.0;
}

int32_t SpectrumGathering::Mean(SpectrumFacts* mean) {
  // A sum in place of the mean: the scaling by the logarithm does not tell them apart.
  const double logSpan = ScaleSpectrumByLog(sums_.slot(), rawGray16_.slot());
  *mean = {transformSize_, rawGray16_.slot(), gray16_.slot(), logSpan};
  const int32_t result = ConvertBuffer(rawGray16_.slot(), gray16_.slot());
  return result == kSuccess ? EnhanceSpectrum(gray16_.slot(), kPeakKernel) : result;
}

}  // namespace tessaline
