// Planes of floating point samples, and the two forms in which the restoration smooths them: Gaussians, and
// planes reduced by blocks of 4 x 4, on which wide Gaussians are cheap.
#pragma once

#include <array>
#include <cmath>
#include <cstdint>

#include "platform/memory.h"
#include "platform/parallel.h"

namespace tessaline {

struct Plane {
  int32_t width = 0;
  int32_t height = 0;
  OwnedBlock<float> samples;

  // All 0. False: no memory.
  bool Create(int32_t wantedWidth, int32_t wantedHeight);
  float* Row(int32_t y) { return samples.get() + static_cast<size_t>(y) * static_cast<size_t>(width); }
  const float* Row(int32_t y) const { return const_cast<Plane*>(this)->Row(y); }
};

// Where a place beyond the border is found inside: the border mirrors, the outermost sample twice.
inline int32_t Reflected(int32_t place, int32_t count) {
  while (place < 0 || place >= count) place = place < 0 ? -1 - place : 2 * count - 1 - place;
  return place;
}

// task(y, worker) for every row, in portions that are worth a thread's while.
template <typename Task>
void RowsInParallel(Parallel& parallel, int32_t rows, const Task& task) {
  constexpr int32_t kPortion = 8;
  ForEachTask(
      parallel, (rows + kPortion - 1) / kPortion,
      [&](int32_t portion, int32_t worker) {
        for (int32_t y = portion * kPortion; y < rows && y < (portion + 1) * kPortion; ++y) task(y, worker);
      },
      [](int32_t) { return false; });
}

// The right half of a Gaussian, cut off at four sigma and normed.
struct GaussianKernel {
  explicit GaussianKernel(double sigma);

  static constexpr int32_t kMostReach = 15;
  int32_t reach = 0;
  std::array<float, kMostReach + 1> weights{};
};

// Blurs in place; borders mirror. `scratch` has the plane's shape.
void Blur(const GaussianKernel& kernel, Parallel& parallel, Plane* plane, Plane* scratch);

// Reduced planes: sample (x, y) is the mean of the block from (4x, 4y) on, cut off at the borders.
constexpr int32_t kReduction = 4;
inline int32_t ReducedSide(int32_t side) {
  return (side + kReduction - 1) / kReduction;
}
void ReducePlane(const Plane& plane, Parallel& parallel, Plane* reduced);

// Row y, `width` samples, of the plane that a reduced one stands for, bilinear between the blocks' middles.
void EnlargeRow(const Plane& reduced, int32_t y, int32_t width, float* row);

// A Gaussian of `sigma` samples as it is to be taken on a reduced plane whose making has done a part of the
// work already, a blur of that variance.
inline GaussianKernel GaussianOfRest(double sigma, double varianceDone) {
  const double rest = sigma * sigma - varianceDone;
  return GaussianKernel(rest > 0.0 ? std::sqrt(rest) / kReduction : 0.0);
}
constexpr double kVarianceOfBlocks = (kReduction * kReduction - 1) / 12.0;
constexpr double kVarianceOfEnlarging = kReduction * kReduction / 6.0;

}  // namespace tessaline
