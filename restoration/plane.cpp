#include "restoration/plane.h"

#include <algorithm>

#include "removal/portable_math.h"
#include "restoration/row_kernels.h"

namespace tessaline {

bool Plane::Create(int32_t wantedWidth, int32_t wantedHeight) {
  return CreateIn(nullptr, wantedWidth, wantedHeight);
}

bool Plane::CreateIn(PlaneMemory* lent, int32_t wantedWidth, int32_t wantedHeight) {
  const size_t count = static_cast<size_t>(wantedWidth) * static_cast<size_t>(wantedHeight);
  float* const place = lent != nullptr ? lent->Take(count) : nullptr;
  samples = {place != nullptr ? place : AllocateBlock<float>(count).release(),
             PlaneDeleter{place != nullptr}};
  width = samples ? wantedWidth : 0;
  height = samples ? wantedHeight : 0;
  return samples != nullptr;
}

GaussianKernel::GaussianKernel(double sigma) {
  reach = std::min(static_cast<int32_t>(4.0 * sigma + 0.5), kMostReach);
  double values[kMostReach + 1] = {1.0};
  double total = 1.0;
  for (int32_t i = 1; i <= reach; ++i) {
    values[i] = PortableExp(-0.5 * i * i / (sigma * sigma));
    total += 2.0 * values[i];
  }
  for (int32_t i = 0; i <= reach; ++i) weights[i] = static_cast<float>(values[i] / total);
}

void BlurRow(const GaussianKernel& kernel, const float* row, int32_t width, float* blurred) {
  const auto mirrored = [&](int32_t x) {
    float sum = kernel.weights[0] * row[x];
    for (int32_t i = 1; i <= kernel.reach; ++i) {
      sum += kernel.weights[i] * (row[Reflected(x - i, width)] + row[Reflected(x + i, width)]);
    }
    return sum;
  };
  const int32_t first = std::min(kernel.reach, width);
  const int32_t last = std::max(first, width - kernel.reach);
  for (int32_t x = 0; x < first; ++x) blurred[x] = mirrored(x);
  for (int32_t x = last; x < width; ++x) blurred[x] = mirrored(x);
  for (int32_t x = first; x < last; ++x) blurred[x] = kernel.weights[0] * row[x];
  for (int32_t i = 1; i <= kernel.reach; ++i) {
    const float weight = kernel.weights[i];
    for (int32_t x = first; x < last; ++x) blurred[x] += weight * (row[x - i] + row[x + i]);
  }
}

namespace {

void BlurDown(const GaussianKernel& kernel, const Plane& plane, int32_t y, int32_t columns, float* blurred) {
  const float* const row = plane.Row(y);
  for (int32_t x = 0; x < columns; ++x) blurred[x] = kernel.weights[0] * row[x];
  for (int32_t i = 1; i <= kernel.reach; ++i) {
    const float weight = kernel.weights[i];
    const float* const above = plane.Row(Reflected(y - i, plane.height));
    const float* const below = plane.Row(Reflected(y + i, plane.height));
    for (int32_t x = 0; x < columns; ++x) blurred[x] += weight * (above[x] + below[x]);
  }
}

}  // namespace

void Blur(const GaussianKernel& kernel, Parallel& parallel, int32_t columns, Plane* plane, Plane* scratch) {
  if (kernel.reach == 0) return;
  RowsInParallel(parallel, plane->height,
                 [&](int32_t y, int32_t) { BlurRow(kernel, plane->Row(y), columns, scratch->Row(y)); });
  RowsInParallel(parallel, plane->height,
                 [&](int32_t y, int32_t) { BlurDown(kernel, *scratch, y, columns, plane->Row(y)); });
}

void EnlargeRow(const Plane& reduced, int32_t reduction, int32_t y, int32_t firstBlock, int32_t blocks,
                float* row) {
  // Parts of a block from the middle of the block that the row lies in.
  const int32_t blockY = y / reduction;
  const float towards = (static_cast<float>(y % reduction) - 0.5f * static_cast<float>(reduction - 1)) /
                        static_cast<float>(reduction);
  const int32_t otherY = std::clamp(blockY + (towards < 0.0f ? -1 : 1), 0, reduced.height - 1);
  const float* const own = reduced.Row(blockY);
  const float* const other = reduced.Row(otherY);
  const float share = std::abs(towards);
  const auto enlarge = ActiveRowKernels().enlarge[reduction == 8];
  const int32_t end = firstBlock + blocks;
  const auto atBorder = [&](int32_t block) {  // whose neighbour it is itself
    float ownThree[3], otherThree[3];
    for (int32_t i = 0; i < 3; ++i) {
      const int32_t x = std::clamp(block - 1 + i, 0, reduced.width - 1);
      ownThree[i] = own[x];
      otherThree[i] = other[x];
    }
    enlarge(1, ownThree + 1, otherThree + 1, share, row + (block - firstBlock) * reduction);
  };
  const int32_t first = std::max(firstBlock, 1), last = std::min(end, reduced.width - 1);
  if (firstBlock == 0) atBorder(0);
  if (end == reduced.width && reduced.width > 1) atBorder(end - 1);
  if (first < last)
    enlarge(last - first, own + first, other + first, share, row + (first - firstBlock) * reduction);
}

}  // namespace tessaline
