#include "removal/spectrum_image.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "buffers/buffer_table.h"
#include "buffers/levels.h"
#include "platform/cpu.h"
#include "removal/peak_detection.h"
#include "removal/portable_math.h"

namespace tessaline {

namespace {

[[gnu::always_inline]] inline void MagnitudesLoop(const float* __restrict complexRow,
                                                  float* __restrict magnitudes, int32_t count) {
  for (int32_t x = 0; x < count; ++x) {
    const float re = complexRow[2 * x];
    const float im = complexRow[2 * x + 1];
    magnitudes[x] = __builtin_sqrtf(re * re + im * im);
  }
}

void MagnitudesBaseline(const float* complexRow, float* magnitudes, int32_t count) {
  MagnitudesLoop(complexRow, magnitudes, count);
}

[[gnu::target("avx2")]] void MagnitudesAvx2(const float* complexRow, float* magnitudes, int32_t count) {
  MagnitudesLoop(complexRow, magnitudes, count);
}

double* SumRow(int32_t sumSlot, int32_t y) {
  return reinterpret_cast<double*>(BufferRow(sumSlot, y));
}

}  // namespace

void AccumulateMagnitudes(int32_t planeSlot, int32_t sumSlot) {
  static const auto takeMagnitudes =
      DetectVectorLevel() >= VectorLevel::kAvx2 ? MagnitudesAvx2 : MagnitudesBaseline;
  const int32_t blockSide = ShapeOf(planeSlot).width / kSpectrumCells;
  constexpr int32_t kMostBlockSide = 16;
  float magnitudes[kMostBlockSide * kSpectrumCells];
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    double* const sums = SumRow(sumSlot, y);
    for (int32_t blockRow = 0; blockRow < blockSide; ++blockRow) {
      const auto* const plane =
          reinterpret_cast<const float*>(BufferRow(planeSlot, y * blockSide + blockRow));
      takeMagnitudes(plane, magnitudes, kSpectrumCells * blockSide);
      const float* block = magnitudes;
      for (int32_t x = 0; x < kSpectrumCells; ++x, block += blockSide) {
        double sum = 0.0;
        for (int32_t i = 0; i < blockSide; ++i) sum += double{block[i]};
        sums[x] += sum;
      }
    }
  }
  MarkDirty(sumSlot);
}

double ScaleSpectrumByLog(int32_t sumSlot, int32_t gray16Slot) {
  double minimum = DBL_MAX;
  double maximum = -DBL_MAX;
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    if (y == kSpectrumCentre) continue;
    const double* const sums = SumRow(sumSlot, y);
    for (int32_t x = 0; x < kSpectrumCells; ++x) {
      if (x == kSpectrumCentre) continue;
      minimum = std::min(minimum, sums[x]);
      maximum = std::max(maximum, sums[x]);
    }
  }
  ClearBuffer(gray16Slot);
  minimum = std::max(minimum, DBL_MIN);  // the log of 0 would leave no number to scale with
  if (!(maximum > minimum) || !std::isfinite(maximum)) return 0.0;

  const double logMinimum = PortableLog(minimum);
  const double logSpan = PortableLog(maximum) - logMinimum;
  if (!(logSpan > 0.0)) return 0.0;
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    const double* const sums = SumRow(sumSlot, y);
    auto* const gray16 = reinterpret_cast<uint16_t*>(BufferRow(gray16Slot, y));
    for (int32_t x = 0; x < kSpectrumCells; ++x) {
      const double sum = std::clamp(sums[x], minimum, DBL_MAX);
      const double level = (PortableLog(sum) - logMinimum) * double{kHostMax} / logSpan;
      gray16[x] = static_cast<uint16_t>(std::clamp(level, 0.0, double{kHostMax}));
    }
  }
  return logSpan;
}

}  // namespace tessaline
