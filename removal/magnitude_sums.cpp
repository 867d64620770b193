#include "removal/magnitude_sums.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>

#include "image/pixel_kind.h"
#include "platform/cpu.h"
#include "removal/portable_math.h"
#include "removal/spectrum_grid.h"

namespace tessaline {

namespace {

[[gnu::always_inline]] inline void MagnitudesLoop(const float* __restrict values,
                                                  float* __restrict magnitudes, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    const float re = values[2 * i];
    const float im = values[2 * i + 1];
    magnitudes[i] = __builtin_sqrtf(re * re + im * im);
  }
}

void MagnitudesBaseline(const float* values, float* magnitudes, int32_t count) {
  MagnitudesLoop(values, magnitudes, count);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void MagnitudesAvx2(const float* values, float* magnitudes, int32_t count) {
  MagnitudesLoop(values, magnitudes, count);
}
#else
constexpr auto MagnitudesAvx2 = MagnitudesBaseline;
#endif

// The power costs half as much again as the magnitude; it stays 0 where nobody wants it.
template <bool WithPowers>
struct BlockSum {
  double magnitude = 0.0;
  double power = 0.0;

  void Add(float value) {
    magnitude += double{value};
    if constexpr (WithPowers) power += double{value} * double{value};
  }
  void Leave(double* pair) const {
    pair[0] = magnitude;
    pair[1] = power;
  }
};

}  // namespace

void MagnitudeSums::AddTo(int32_t row, int32_t column, double magnitude, double power) {
  double* const pair = gathered_.get() + 2 * (static_cast<size_t>(column) * kSpectrumCells + row);
  pair[0] += magnitude;
  pair[1] += power;
}

void MagnitudeSums::Begin(const ImageView& sums, const ImageView& powers) {
  sums_ = sums;
  powers_ = powers;
  std::memset(gathered_.get(), 0, 2 * sizeof(double) * kSpectrumCells * kSpectrumCells);
}

bool MagnitudeSums::Prepare(int32_t transformSize, int32_t strips, int32_t workers) {
  if (transformSize == size_ && strips == strips_ && workers == workers_) return true;
  size_ = 0;
  edges_ = AllocateBlock<double>(2 * static_cast<size_t>(strips) * kSpectrumCells);
  gathered_ = AllocateBlock<double>(2 * static_cast<size_t>(kSpectrumCells) * kSpectrumCells);
  magnitudes_ = AllocateBlock<float>(static_cast<size_t>(workers) * static_cast<size_t>(transformSize));
  if (!edges_ || !gathered_ || !magnitudes_) return false;
  size_ = transformSize;
  strips_ = strips;
  workers_ = workers;
  return true;
}

void MagnitudeSums::Visit(int32_t kx, float* column, int32_t worker) {
  powers_.IsEmpty() ? VisitColumn<false>(kx, column, worker) : VisitColumn<true>(kx, column, worker);
}

// Columns kx and -kx hold the same magnitudes, top to bottom and bottom to top.
template <bool WithPowers>
void MagnitudeSums::VisitColumn(int32_t kx, const float* column, int32_t worker) {
  const auto takeMagnitudes = DetectVectorLevel() >= VectorLevel::kAvx2 ? MagnitudesAvx2 : MagnitudesBaseline;
  const int32_t half = size_ / 2;
  const int32_t blockSide = size_ / kSpectrumCells;
  float* const magnitudes = magnitudes_.get() + static_cast<size_t>(worker) * static_cast<size_t>(size_);
  takeMagnitudes(column, magnitudes + half, half);  // rows of the grid run from -N/2 on
  takeMagnitudes(column + size_, magnitudes, half);

  const int32_t place = kx + half;          // column of the centred spectrum,
  const int32_t mirroredPlace = half - kx;  // and of its mirror image
  const bool isStripEdge = kx % RealTransform::kStripColumns == 0;
  double* const edge =
      edges_.get() + 2 * static_cast<size_t>(kx / RealTransform::kStripColumns) * kSpectrumCells;
  const bool hasMirror = kx != 0 && kx != half;
  for (int32_t cell = 0; cell < kSpectrumCells; ++cell) {
    const float* const block = magnitudes + cell * blockSide;
    BlockSum<WithPowers> sum;
    for (int32_t i = 0; i < blockSide; ++i) sum.Add(block[i]);
    if (kx == half) {
      sum.Leave(edge + 2 * cell);  // the first column of the spectrum, and its own mirror image
      continue;
    }
    AddTo(cell, place / blockSide, sum.magnitude, sum.power);
    if (!hasMirror) continue;
    // Row y of the centred spectrum becomes row N - y: a block moves by one row.
    const int32_t last = (size_ - cell * blockSide) & (size_ - 1);
    BlockSum<WithPowers> mirroredSum;
    mirroredSum.Add(magnitudes[last]);
    for (int32_t i = 1; i < blockSide; ++i) mirroredSum.Add(magnitudes[size_ - cell * blockSide - i]);
    if (isStripEdge) {
      mirroredSum.Leave(edge + 2 * cell);
    } else {
      AddTo(cell, mirroredPlace / blockSide, mirroredSum.magnitude, mirroredSum.power);
    }
  }
}

void MagnitudeSums::End(Parallel& parallel) {
  const int32_t blockSide = size_ / kSpectrumCells;
  for (int32_t strip = 1; strip < strips_; ++strip) {
    const double* const edge = edges_.get() + 2 * static_cast<size_t>(strip) * kSpectrumCells;
    const int32_t mirroredCell = (size_ / 2 - strip * RealTransform::kStripColumns) / blockSide;
    for (int32_t cell = 0; cell < kSpectrumCells; ++cell) {
      AddTo(cell, mirroredCell, edge[2 * cell], edge[2 * cell + 1]);
    }
  }
  // A cache line of the images at a time.
  constexpr int32_t kColumnsAtOnce = 8;
  const auto addColumns = [&](int32_t group, int32_t) {
    const int32_t first = group * kColumnsAtOnce;
    for (int32_t y = 0; y < kSpectrumCells; ++y) {
      for (int32_t x = first; x < first + kColumnsAtOnce; ++x) {
        const double* const pair = gathered_.get() + 2 * (static_cast<size_t>(x) * kSpectrumCells + y);
        sums_.Row<double>(y)[x] += pair[0];
        if (!powers_.IsEmpty()) powers_.Row<double>(y)[x] += pair[1];
      }
    }
  };
  ForEachTask(parallel, kSpectrumCells / kColumnsAtOnce, addColumns, [](int32_t) { return false; });
}

double ScaleSpectrumByLog(const ConstImageView& sums, const ImageView& gray16) {
  double minimum = DBL_MAX;
  double maximum = -DBL_MAX;
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    if (y == kSpectrumCentre) continue;
    const double* const row = sums.Row<double>(y);
    for (int32_t x = 0; x < kSpectrumCells; ++x) {
      if (x == kSpectrumCentre) continue;
      minimum = std::min(minimum, row[x]);
      maximum = std::max(maximum, row[x]);
    }
  }
  ClearImage(gray16);
  minimum = std::max(minimum, DBL_MIN);  // the log of 0 would leave no number to scale with
  if (!(maximum > minimum) || !std::isfinite(maximum)) return 0.0;

  const double logMinimum = PortableLog(minimum);
  const double logSpan = PortableLog(maximum) - logMinimum;
  if (!(logSpan > 0.0)) return 0.0;
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    const double* const row = sums.Row<double>(y);
    auto* const levels = gray16.Row<uint16_t>(y);
    double scaled[kSpectrumCells];
    for (int32_t x = 0; x < kSpectrumCells; ++x) {
      const double sum = row[x] < minimum ? minimum : row[x] > DBL_MAX ? DBL_MAX : row[x];
      scaled[x] = (PortableLog(sum) - logMinimum) * double{kHostMax} / logSpan;
    }
    for (int32_t x = 0; x < kSpectrumCells; ++x) {
      levels[x] = static_cast<uint16_t>(std::clamp(scaled[x], 0.0, double{kHostMax}));
    }
  }
  return logSpan;
}

}  // namespace tessaline
