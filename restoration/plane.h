// Planes of floating point samples, most of them reduced: one sample for every block of 4 x 4 or 8 x 8
// pixels, on which wide Gaussians are cheap.
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/memory.h"
#include "platform/parallel.h"

namespace tessaline {

// Memory that somebody lends for planes, whatever is in it.
class PlaneMemory {
 public:
  explicit PlaneMemory(std::span<float> lent) : left_(lent) {}
  // Null where so much is not left.
  float* Take(size_t count) {
    constexpr size_t kLine = 16;  // floats, of the processor's memory
    const size_t whole = (count + kLine - 1) / kLine * kLine;
    if (whole > left_.size()) return nullptr;
    float* const taken = left_.data();
    left_ = left_.subspan(whole);
    return taken;
  }

 private:
  std::span<float> left_;
};

struct PlaneDeleter {
  bool isLent = false;
  void operator()(float* block) const {
    if (!isLent) FreeAlignedBlock(block);
  }
};

struct Plane {
  int32_t width = 0;
  int32_t height = 0;
  std::unique_ptr<float[], PlaneDeleter> samples;

  // All 0. False: no memory.
  bool Create(int32_t wantedWidth, int32_t wantedHeight);
  // Of whatever values, in memory lent (may be null) as long as that is enough.
  bool CreateIn(PlaneMemory* lent, int32_t wantedWidth, int32_t wantedHeight);
  float* Row(int32_t y) { return samples.get() + static_cast<size_t>(y) * static_cast<size_t>(width); }
  const float* Row(int32_t y) const { return const_cast<Plane*>(this)->Row(y); }
};

// Where a place beyond the border is found inside: the border mirrors, the outermost sample twice.
inline int32_t Reflected(int32_t place, int32_t count) {
  while (place < 0 || place >= count) place = place < 0 ? -1 - place : 2 * count - 1 - place;
  return place;
}

// Fills `margin` samples to both sides of a row of `count`.
inline void MirrorBorders(float* row, int32_t count, int32_t margin) {
  for (int32_t i = 1; i <= margin; ++i) {
    row[-i] = row[Reflected(-i, count)];
    row[count - 1 + i] = row[Reflected(count - 1 + i, count)];
  }
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

// A Gaussian of `sigma` pixels as it is to be taken on a plane reduced by `reduction`, whose making has done
// a part of the work already, a blur of that variance.
inline GaussianKernel GaussianOfRest(double sigma, double varianceDone, int32_t reduction) {
  const double rest = sigma * sigma - varianceDone;
  return GaussianKernel(rest > 0.0 ? std::sqrt(rest) / reduction : 0.0);
}
constexpr double VarianceOfBlocks(int32_t reduction) {
  return (reduction * reduction - 1) / 12.0;
}
constexpr double VarianceOfEnlarging(int32_t reduction) {
  return reduction * reduction / 6.0;
}

// Blurs the first `columns` of a plane in place; borders mirror. `scratch` has the plane's shape.
void Blur(const GaussianKernel& kernel, Parallel& parallel, int32_t columns, Plane* plane, Plane* scratch);

// Blurs a row of whatever samples; its borders mirror. `blurred` is another row.
void BlurRow(const GaussianKernel& kernel, const float* row, int32_t width, float* blurred);

inline int32_t ReducedSide(int32_t side, int32_t reduction) {
  return (side + reduction - 1) / reduction;
}

// Row y of the plane that a reduced one stands for, bilinear between the blocks' middles: those of its
// samples that lie in blocks firstBlock .. firstBlock + blocks - 1, `reduction` (4 or 8) of each.
void EnlargeRow(const Plane& reduced, int32_t reduction, int32_t y, int32_t firstBlock, int32_t blocks,
                float* row);

}  // namespace tessaline
