#include "restoration/plane.h"

#include <algorithm>

#include "removal/portable_math.h"

namespace tessaline {

bool Plane::Create(int32_t wantedWidth, int32_t wantedHeight) {
  samples = AllocateBlock<float>(static_cast<size_t>(wantedWidth) * static_cast<size_t>(wantedHeight));
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

namespace {

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

void BlurDown(const GaussianKernel& kernel, const Plane& plane, int32_t y, float* blurred) {
  const float* const row = plane.Row(y);
  for (int32_t x = 0; x < plane.width; ++x) blurred[x] = kernel.weights[0] * row[x];
  for (int32_t i = 1; i <= kernel.reach; ++i) {
    const float weight = kernel.weights[i];
    const float* const above = plane.Row(Reflected(y - i, plane.height));
    const float* const below = plane.Row(Reflected(y + i, plane.height));
    for (int32_t x = 0; x < plane.width; ++x) blurred[x] += weight * (above[x] + below[x]);
  }
}

}  // namespace

void Blur(const GaussianKernel& kernel, Parallel& parallel, Plane* plane, Plane* scratch) {
  if (kernel.reach == 0) return;
  RowsInParallel(parallel, plane->height,
                 [&](int32_t y, int32_t) { BlurRow(kernel, plane->Row(y), plane->width, scratch->Row(y)); });
  RowsInParallel(parallel, plane->height,
                 [&](int32_t y, int32_t) { BlurDown(kernel, *scratch, y, plane->Row(y)); });
}

void ReducePlane(const Plane& plane, Parallel& parallel, Plane* reduced) {
  RowsInParallel(parallel, reduced->height, [&](int32_t y, int32_t) {
    float* const means = reduced->Row(y);
    const int32_t endY = std::min((y + 1) * kReduction, plane.height);
    for (int32_t x = 0; x < reduced->width; ++x) {
      const int32_t endX = std::min((x + 1) * kReduction, plane.width);
      float sum = 0.0f;
      for (int32_t v = y * kReduction; v < endY; ++v) {
        for (int32_t u = x * kReduction; u < endX; ++u) sum += plane.Row(v)[u];
      }
      means[x] = sum / static_cast<float>((endY - y * kReduction) * (endX - x * kReduction));
    }
  });
}

void EnlargeRow(const Plane& reduced, int32_t y, int32_t width, float* row) {
  // Quarters of a block from the middle of the block that the sample lies in: -3/8, -1/8, 1/8 and 3/8.
  const auto offset = [](int32_t place) {
    return (static_cast<float>(place % kReduction) - 0.5f * (kReduction - 1)) / kReduction;
  };
  const auto nextTo = [](int32_t place, float towards, int32_t count) {
    return std::clamp(place + (towards < 0.0f ? -1 : 1), 0, count - 1);
  };
  const int32_t blockY = y / kReduction;
  const float towardsY = offset(y);
  const float* const own = reduced.Row(blockY);
  const float* const other = reduced.Row(nextTo(blockY, towardsY, reduced.height));
  const float weightY = std::abs(towardsY);
  const auto mixed = [&](int32_t x) { return own[x] + weightY * (other[x] - own[x]); };
  for (int32_t blockX = 0; blockX < reduced.width; ++blockX) {
    const float left = mixed(std::max(blockX - 1, 0)), middle = mixed(blockX),
                right = mixed(std::min(blockX + 1, reduced.width - 1));
    for (int32_t x = blockX * kReduction; x < std::min(width, (blockX + 1) * kReduction); ++x) {
      const float towards = offset(x);
      row[x] = middle + std::abs(towards) * ((towards < 0.0f ? left : right) - middle);
    }
  }
}

}  // namespace tessaline
