#include "removal/padding_fill.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "buffers/buffer_table.h"
#include "buffers/result_codes.h"
#include "platform/cpu.h"
#include "platform/memory.h"
#include "removal/portable_math.h"

namespace tessaline {

namespace {

// From coarse to fine: the far padding gets a broad fade, the cells next to the image a close continuation.
constexpr float kBlurScales[] = {20.0f, 5.0f, 1.0f};
constexpr int32_t kMostTaps = 2 * 20 + 1;
constexpr size_t kCacheLineFloats = 16;

struct Gaussian {
  int32_t halfWidth;
  std::array<float, kMostTaps> weights;  // halfWidth * 2 + 1 in use, sum 1
};

// Weights exp(-(d^2 / s^2)): the exponent has no factor of one half, so `scale` is sqrt(2) standard
// deviations. Deliberate; do not "correct" it to the textbook form.
Gaussian MakeGaussian(float scale) {
  Gaussian gaussian{static_cast<int32_t>(scale + 0.999f), {}};
  float sum = 0.0f;
  for (int32_t d = -gaussian.halfWidth; d <= gaussian.halfWidth; ++d) {
    const float exponent = static_cast<float>(d * d) / (scale * scale);
    const float weight = static_cast<float>(PortableExp(-double{exponent}));
    gaussian.weights[d + gaussian.halfWidth] = weight;
    sum += weight;
  }
  for (int32_t i = 0; i <= 2 * gaussian.halfWidth; ++i) gaussian.weights[i] /= sum;
  return gaussian;
}

// The surface: N x N floats with the image standing in the middle of its padding.
struct Surface {
  float* cells;
  int32_t size;
  int32_t imageLeft, imageTop, imageWidth, imageHeight;

  float* Row(int32_t y) const { return cells + static_cast<size_t>(y) * size; }
  int32_t imageRight() const { return imageLeft + imageWidth; }
  int32_t imageBottom() const { return imageTop + imageHeight; }
  bool IsImageRow(int32_t y) const { return y >= imageTop && y < imageBottom(); }
};

// destination[x] = sum over taps of weights[t] * taps[t][x]; the destination overlaps no tap. Every cell sums
// its taps in the same order whatever the vector length, so all builds and processors give the same bits.

// `Sums` vectors of neighbouring cells at once: enough running sums to hide the latency of an addition.
template <int VectorBytes, int32_t Sums>
[[gnu::always_inline]] inline void WeightedSumBlock(const float* const* taps, const float* weights,
                                                    int32_t tapCount, float* destination, int32_t x) {
  typedef float Vector __attribute__((vector_size(VectorBytes)));
  constexpr int32_t kLanes = VectorBytes / sizeof(float);
  Vector sums[Sums];
#pragma GCC unroll 8
  for (int32_t i = 0; i < Sums; ++i) sums[i] = Vector{};
  for (int32_t t = 0; t < tapCount; ++t) {
#pragma GCC unroll 8
    for (int32_t i = 0; i < Sums; ++i) {
      Vector tap;
      std::memcpy(&tap, taps[t] + x + i * kLanes, sizeof tap);
      sums[i] += weights[t] * tap;
    }
  }
  std::memcpy(destination + x, sums, sizeof sums);
}

template <int VectorBytes>
[[gnu::always_inline]] inline void WeightedSumLoop(const float* const* taps, const float* weights,
                                                   int32_t tapCount, float* destination, int32_t count) {
  constexpr int32_t kLanes = VectorBytes / sizeof(float);
  constexpr int32_t kSums = 8;
  int32_t x = 0;
  for (; x + kSums * kLanes <= count; x += kSums * kLanes) {
    WeightedSumBlock<VectorBytes, kSums>(taps, weights, tapCount, destination, x);
  }
  for (; x + kLanes <= count; x += kLanes)
    WeightedSumBlock<VectorBytes, 1>(taps, weights, tapCount, destination, x);
  if (x == count) return;
  if (count >= kLanes) {
    // The last cells once more together with their neighbours: the same sums again.
    WeightedSumBlock<VectorBytes, 1>(taps, weights, tapCount, destination, count - kLanes);
    return;
  }
  for (; x < count; ++x) {
    float sum = 0.0f;
    for (int32_t t = 0; t < tapCount; ++t) sum += weights[t] * taps[t][x];
    destination[x] = sum;
  }
}

void WeightedSumBaseline(const float* const* taps, const float* weights, int32_t tapCount, float* destination,
                         int32_t count) {
  WeightedSumLoop<16>(taps, weights, tapCount, destination, count);
}

[[gnu::target("avx2")]] void WeightedSumAvx2(const float* const* taps, const float* weights, int32_t tapCount,
                                             float* destination, int32_t count) {
  WeightedSumLoop<32>(taps, weights, tapCount, destination, count);
}

[[gnu::target("avx512f,avx512dq,avx512vl,avx512bw,prefer-vector-width=512")]] void WeightedSumAvx512(
    const float* const* taps, const float* weights, int32_t tapCount, float* destination, int32_t count) {
  WeightedSumLoop<64>(taps, weights, tapCount, destination, count);
}

void WeightedSum(const float* const* taps, const float* weights, int32_t tapCount, float* destination,
                 int32_t count) {
  // By VectorLevel.
  constexpr decltype(&WeightedSumBaseline) kVersions[] = {WeightedSumBaseline, WeightedSumAvx2,
                                                          WeightedSumAvx512};
  static const auto sum = kVersions[static_cast<int>(DetectVectorLevel())];
  sum(taps, weights, tapCount, destination, count);
}

// Columns begin .. end-1 of one row, blurred along the row; the edge cells repeat beyond the border.
// `extended` has room for the row and a half width on each side.
void BlurAlongRow(const Gaussian& gaussian, const float* row, int32_t size, int32_t begin, int32_t end,
                  float* extended, float* blurred) {
  const int32_t k = gaussian.halfWidth;
  const int32_t first = begin - k;  // the cell at extended[0]
  const int32_t last = end + k;
  const int32_t inner = std::max(first, 0);
  const int32_t innerEnd = std::min(last, size);
  std::fill(extended, extended + (inner - first), row[0]);
  std::copy(row + inner, row + innerEnd, extended + (inner - first));
  std::fill(extended + (innerEnd - first), extended + (last - first), row[size - 1]);
  const float* taps[kMostTaps];
  for (int32_t t = 0; t <= 2 * k; ++t) taps[t] = extended + t;
  WeightedSum(taps, gaussian.weights.data(), 2 * k + 1, blurred + begin, end - begin);
}

// Blurs the surface along rows and columns but leaves the image cells as they are: the image is placed back
// after every blur, so blurred values under it would never be seen. Rows are blurred into a ring just ahead
// of the output row, which lets the result replace the surface as the sweep goes down.
void BlurPadding(const Gaussian& gaussian, const Surface& surface, float* ring, float* extended) {
  const int32_t n = surface.size;
  const int32_t k = gaussian.halfWidth;
  const int32_t ringRows = 2 * k + 1;
  const auto ringRow = [&](int32_t y) { return ring + static_cast<size_t>(y % ringRows) * n; };

  const auto blurRow = [&](int32_t y) {
    const float* const row = surface.Row(y);
    float* const blurred = ringRow(y);
    // Columns under the image are needed only by padding rows less than a half width away.
    const bool nearPaddingRow = y < surface.imageTop + k || y >= surface.imageBottom() - k;
    if (nearPaddingRow) {
      BlurAlongRow(gaussian, row, n, 0, n, extended, blurred);
    } else {
      if (surface.imageLeft > 0) BlurAlongRow(gaussian, row, n, 0, surface.imageLeft, extended, blurred);
      if (surface.imageRight() < n)
        BlurAlongRow(gaussian, row, n, surface.imageRight(), n, extended, blurred);
    }
  };

  for (int32_t y = 0; y < std::min(k, n); ++y) blurRow(y);
  for (int32_t y = 0; y < n; ++y) {
    if (y + k < n) blurRow(y + k);
    const auto blurColumns = [&](int32_t begin, int32_t end) {
      if (begin >= end) return;
      const float* taps[kMostTaps];
      for (int32_t t = 0; t < ringRows; ++t) taps[t] = ringRow(std::clamp(y + t - k, 0, n - 1)) + begin;
      WeightedSum(taps, gaussian.weights.data(), ringRows, surface.Row(y) + begin, end - begin);
    };
    if (surface.IsImageRow(y)) {
      blurColumns(0, surface.imageLeft);
      blurColumns(surface.imageRight(), n);
    } else {
      blurColumns(0, n);
    }
  }
}

void PlaceImage(int32_t planeSlot, const Surface& surface) {
  for (int32_t y = 0; y < surface.imageHeight; ++y) {
    const auto* const plane = reinterpret_cast<const float*>(BufferRow(planeSlot, y));
    float* const row = surface.Row(y + surface.imageTop) + surface.imageLeft;
    for (int32_t x = 0; x < surface.imageWidth; ++x) row[x] = plane[2 * x];
  }
}

// Real parts from the surface, turned round so that the image starts at (0, 0) again; imaginary parts 0.
void WriteBack(const Surface& surface, int32_t planeSlot) {
  const int32_t n = surface.size;
  const int32_t untilWrap = n - surface.imageLeft;
  for (int32_t y = 0; y < n; ++y) {
    const float* const row = surface.Row((y + surface.imageTop) % n);
    auto* const plane = reinterpret_cast<float*>(BufferRow(planeSlot, y));
    for (int32_t x = 0; x < untilWrap; ++x) {
      plane[2 * x] = row[x + surface.imageLeft];
      plane[2 * x + 1] = 0.0f;
    }
    for (int32_t x = untilWrap; x < n; ++x) {
      plane[2 * x] = row[x - untilWrap];
      plane[2 * x + 1] = 0.0f;
    }
  }
  MarkDirty(planeSlot);
}

}  // namespace

float MeanLevel(int32_t planeSlot) {
  const BufferShape plane = ShapeOf(planeSlot);
  if (plane.width == 0 || plane.bytesPerPixel != 8) return 0.0f;
  double total = 0.0;
  for (int32_t y = 0; y < plane.height; ++y) {
    const auto* const row = reinterpret_cast<const float*>(BufferRow(planeSlot, y));
    // Eight running sums in a fixed order: one alone would wait for each addition.
    double sums[8] = {};
    int32_t x = 0;
    for (; x + 8 <= plane.width; x += 8) {
      for (int32_t i = 0; i < 8; ++i) sums[i] += double{row[2 * (x + i)]};
    }
    for (; x < plane.width; ++x) sums[0] += double{row[2 * x]};
    for (const double sum : sums) total += sum;
  }
  return static_cast<float>(total / (double(plane.width) * plane.height));
}

int32_t FillPadding(int32_t planeSlot, int32_t horizontalPadding, int32_t verticalPadding,
                    int32_t surfaceSlot) {
  const BufferShape plane = ShapeOf(planeSlot);
  const int32_t n = plane.width;
  if (n == 0 || plane.height != n || plane.bytesPerPixel != 8 || horizontalPadding < 0 ||
      horizontalPadding >= n || verticalPadding < 0 || verticalPadding >= n) {
    return kUnequalSizes;
  }
  OwnedBuffer ownSurface;
  if (surfaceSlot == 0) {
    const int32_t result = ownSurface.Create("FT padding float", n, n, 4);
    if (result != kSuccess) return result;
    surfaceSlot = ownSurface.slot();
  }
  const BufferShape shape = ShapeOf(surfaceSlot);
  if (shape.width != n || shape.height != n || shape.bytesPerPixel != 4) return kUnequalSizes;
  const auto ringBlock = AllocateBlock<float>(static_cast<size_t>(kMostTaps) * n + kCacheLineFloats);
  const auto extended = AllocateBlock<float>(static_cast<size_t>(n) + kMostTaps);
  if (!ringBlock || !extended) return kOutOfMemory;
  // Rows of the ring start at cache lines: vectors that cross them take twice as long to load.
  const auto address = reinterpret_cast<uintptr_t>(ringBlock.get());
  constexpr size_t kLine = kCacheLineFloats * sizeof(float);
  float* const ring = ringBlock.get() + (kLine - address % kLine) % kLine / sizeof(float);

  const Surface surface = {reinterpret_cast<float*>(BufferRow(surfaceSlot, 0)),
                           n,
                           horizontalPadding / 2,
                           verticalPadding / 2,
                           n - horizontalPadding,
                           n - verticalPadding};
  // The mean takes in the padding as it stands: in the first channel zeros right of the image and copies of
  // its last row below, in later channels what the previous channel's transform left right of the image.
  // Deliberate: results depend on it.
  const float mean = MeanLevel(planeSlot);
  std::fill(surface.cells, surface.cells + static_cast<size_t>(n) * n, mean);
  PlaceImage(planeSlot, surface);
  for (const float scale : kBlurScales) BlurPadding(MakeGaussian(scale), surface, ring, extended.get());
  WriteBack(surface, planeSlot);
  return kSuccess;
}

}  // namespace tessaline
