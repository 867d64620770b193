#include "removal/padding_fill.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "removal/portable_math.h"

namespace tessaline {

namespace {

// From coarse to fine: the far padding gets a broad fade, the cells next to the image a close continuation.
constexpr float kBlurScales[] = {20.0f, 5.0f, 1.0f};
constexpr int32_t kMostHalfWidth = 20;
constexpr int32_t kMostTaps = 2 * kMostHalfWidth + 1;
constexpr int32_t kRingRows = kMostTaps + 1;  // the taps and the row that the image has not reached

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

struct Area {
  int32_t left, top, right, bottom;  // right and bottom: one past the last cell
};

bool HasRow(const Area& area, int32_t y) {
  return y >= area.top && y < area.bottom;
}

// The surface: N x N floats with the image standing in the middle of its padding. A blur carries the image no
// farther than a half width, so all cells beyond `reached` have one value in common, and it is not stored.
// Nor does a blur look deeper into the image than a margin: the `skipped` cells have no place in memory,
// which keeps that of a large picture's padding small and in one piece.
struct Surface {
  float* cells;
  int32_t size;
  Area image;
  Area skipped;
  Area reached;
  float beyond;  // the value of every cell outside `reached`

  // Cell (x, y) and, as far as the skipped ones, those to its right.
  float* At(int32_t x, int32_t y) const {
    const auto skippedWidth = static_cast<ptrdiff_t>(skipped.right) - skipped.left;
    const ptrdiff_t rowsAbove = std::clamp(y, skipped.top, skipped.bottom) - skipped.top;
    const ptrdiff_t before = HasRow(skipped, y) && x >= skipped.right ? rowsAbove + 1 : rowsAbove;
    return cells + static_cast<ptrdiff_t>(y) * size + x - before * skippedWidth;
  }
};

// What is left of the image inside a margin of the broadest blur's half width.
Area InnerArea(const Area& image) {
  const Area inner = {image.left + kMostHalfWidth, image.top + kMostHalfWidth, image.right - kMostHalfWidth,
                      image.bottom - kMostHalfWidth};
  return {inner.left, inner.top, std::max(inner.left, inner.right), std::max(inner.top, inner.bottom)};
}

Area Grown(const Area& area, int32_t cells, int32_t size) {
  return {std::max(area.left - cells, 0), std::max(area.top - cells, 0), std::min(area.right + cells, size),
          std::min(area.bottom + cells, size)};
}

// destination[x] = sum over taps of weights[t] * taps[t][x]; the destination overlaps no tap. Every cell sums
// its taps from the first to the last: results depend on the order.

// `Cells` neighbouring cells at once, their sums in registers.
template <int32_t Cells>
[[gnu::always_inline]] inline void WeightedSumBlock(const float* const* taps, const float* weights,
                                                    int32_t tapCount, float* destination, int32_t x) {
  typedef float Vector __attribute__((vector_size(16)));
  constexpr int32_t kLanes = sizeof(Vector) / sizeof(float);
  constexpr int32_t kVectors = Cells / kLanes;
  Vector sums[kVectors];
#pragma GCC unroll 8
  for (int32_t i = 0; i < kVectors; ++i) sums[i] = Vector{};
  for (int32_t t = 0; t < tapCount; ++t) {
#pragma GCC unroll 8
    for (int32_t i = 0; i < kVectors; ++i) {
      Vector tap;
      std::memcpy(&tap, taps[t] + x + i * kLanes, sizeof tap);
      sums[i] += weights[t] * tap;
    }
  }
  std::memcpy(destination + x, sums, sizeof sums);
}

void WeightedSum(const float* const* taps, const float* weights, int32_t tapCount, float* destination,
                 int32_t count) {
  int32_t x = 0;
  for (; x + 32 <= count; x += 32) WeightedSumBlock<32>(taps, weights, tapCount, destination, x);
  for (; x + 8 <= count; x += 8) WeightedSumBlock<8>(taps, weights, tapCount, destination, x);
  if (x < count && count >= 8) {
    // The last cells once more together with their neighbours: the same sums again.
    WeightedSumBlock<8>(taps, weights, tapCount, destination, count - 8);
    return;
  }
  for (; x < count; ++x) {
    float sum = 0.0f;
    for (int32_t t = 0; t < tapCount; ++t) sum += weights[t] * taps[t][x];
    destination[x] = sum;
  }
}

// What a blur in one direction makes of a cell with nothing but `value` around it. Not `value` itself: the
// weights' sum and the products are rounded.
float WeightedSumOf(const Gaussian& gaussian, float value) {
  float sum = 0.0f;
  for (int32_t t = 0; t <= 2 * gaussian.halfWidth; ++t) sum += gaussian.weights[t] * value;
  return sum;
}

// Columns begin .. end-1 of one reached row, blurred along the row; the edge cells repeat beyond the border.
// `extended` has room for the row and a half width on each side.
void BlurAlongRow(const Gaussian& gaussian, const Surface& surface, int32_t y, int32_t begin, int32_t end,
                  float* extended, float* blurred) {
  const Area& reached = surface.reached;
  const int32_t k = gaussian.halfWidth;
  const int32_t first = begin - k;  // the cell at extended[0]
  const int32_t last = end + k;
  const int32_t inner = std::max(first, reached.left);
  const int32_t innerEnd = std::min(last, reached.right);
  std::fill(extended, extended + (inner - first), reached.left > 0 ? surface.beyond : *surface.At(0, y));
  std::copy_n(surface.At(inner, y), innerEnd - inner, extended + (inner - first));
  std::fill(extended + (innerEnd - first), extended + (last - first),
            reached.right < surface.size ? surface.beyond : *surface.At(surface.size - 1, y));
  const float* taps[kMostTaps];
  for (int32_t t = 0; t <= 2 * k; ++t) taps[t] = extended + t;
  WeightedSum(taps, gaussian.weights.data(), 2 * k + 1, blurred + begin, end - begin);
}

// One stretch of rows of a blur, with memory of its own. Rows are blurred along themselves into a ring just
// ahead of the output row, which lets the result replace the surface as the sweep goes down. What it needs of
// the rows below its end, where the next stretch is sweeping at the same time, it blurs before anybody
// sweeps.
class BlurStretch {
 public:
  BlurStretch(const Gaussian& gaussian, const Surface& surface, const Area& blurred, int32_t begin,
              int32_t end, float* memory)
      : gaussian_(gaussian),
        surface_(surface),
        blurred_(blurred),
        begin_(begin),
        end_(end),
        ring_(memory),
        unreachedRow_(ring_ + kMostTaps * Width()),
        below_(unreachedRow_ + Width()),
        extended_(below_ + kMostHalfWidth * Width()) {}

  static size_t MemoryFor(int32_t n) {
    return (kRingRows + kMostHalfWidth) * static_cast<size_t>(n) + static_cast<size_t>(n) + kMostTaps;
  }

  void LookAround() {
    const int32_t k = gaussian_.halfWidth;
    std::fill(unreachedRow_, unreachedRow_ + surface_.size, WeightedSumOf(gaussian_, surface_.beyond));
    for (int32_t y = begin_ - k; y < begin_ + k; ++y) BlurRow(y, RingRow(y));
    for (int32_t y = end_; y < end_ + k; ++y) BlurRow(y, BelowRow(y));
  }

  void Sweep() {
    const int32_t k = gaussian_.halfWidth;
    for (int32_t y = begin_; y < end_; ++y) {
      if (y + k < end_) {
        BlurRow(y + k, RingRow(y + k));
      } else if (HasRow(surface_.reached, y + k)) {
        std::copy(BelowRow(y + k), BelowRow(y + k) + surface_.size, RingRow(y + k));
      }
      if (HasRow(surface_.image, y)) {
        BlurAlongColumns(y, blurred_.left, surface_.image.left);
        BlurAlongColumns(y, surface_.image.right, blurred_.right);
      } else {
        BlurAlongColumns(y, blurred_.left, blurred_.right);
      }
    }
  }

 private:
  size_t Width() const { return static_cast<size_t>(surface_.size); }
  float* RingRow(int32_t y) const {
    const int32_t taps = 2 * gaussian_.halfWidth + 1;
    return ring_ + static_cast<size_t>((y + taps) % taps) * Width();
  }
  float* BelowRow(int32_t y) const { return below_ + static_cast<size_t>(y - end_) * Width(); }

  // Nothing for a row that is not reached.
  void BlurRow(int32_t y, float* destination) {
    if (!HasRow(surface_.reached, y)) return;
    const auto blurColumns = [&](int32_t begin, int32_t end) {
      if (begin < end) BlurAlongRow(gaussian_, surface_, y, begin, end, extended_, destination);
    };
    // Columns under the image are needed only by padding rows less than a half width away.
    const int32_t k = gaussian_.halfWidth;
    if (y < surface_.image.top + k || y >= surface_.image.bottom - k) {
      blurColumns(blurred_.left, blurred_.right);
    } else {
      blurColumns(blurred_.left, surface_.image.left);
      blurColumns(surface_.image.right, blurred_.right);
    }
  }

  void BlurAlongColumns(int32_t y, int32_t begin, int32_t end) {
    if (begin >= end) return;
    const int32_t k = gaussian_.halfWidth;
    const float* rows[kMostTaps];
    for (int32_t t = 0; t <= 2 * k; ++t) {
      const int32_t tapRow = std::clamp(y + t - k, 0, surface_.size - 1);
      rows[t] = (HasRow(surface_.reached, tapRow) ? RingRow(tapRow) : unreachedRow_) + begin;
    }
    WeightedSum(rows, gaussian_.weights.data(), 2 * k + 1, surface_.At(begin, y), end - begin);
  }

  const Gaussian& gaussian_;
  const Surface& surface_;
  Area blurred_;
  int32_t begin_, end_;
  float* ring_;
  float* unreachedRow_;
  float* below_;
  float* extended_;
};

// Blurs the surface along rows and columns but leaves the image cells as they are: the image is placed back
// after every blur, so blurred values under it would never be seen. `memory`: for as many stretches as there
// are threads.
void BlurPadding(const Gaussian& gaussian, Surface* surface, float* memory, Parallel& parallel) {
  const Area blurred = Grown(surface->reached, gaussian.halfWidth, surface->size);
  const int32_t rows = blurred.bottom - blurred.top;
  constexpr int32_t kFewestRows = 4 * kMostHalfWidth;
  const int32_t stretches = std::clamp(rows / kFewestRows, 1, parallel.threads());
  const auto stretch = [&](int32_t index) {
    const auto edge = [&](int32_t i) {
      return blurred.top + static_cast<int32_t>(int64_t{rows} * i / stretches);
    };
    return BlurStretch(gaussian, *surface, blurred, edge(index), edge(index + 1),
                       memory + static_cast<size_t>(index) * BlurStretch::MemoryFor(surface->size));
  };
  const auto goOn = [](int32_t) { return false; };
  ForEachTask(
      parallel, stretches, [&](int32_t i, int32_t) { stretch(i).LookAround(); }, goOn);
  ForEachTask(
      parallel, stretches, [&](int32_t i, int32_t) { stretch(i).Sweep(); }, goOn);
  surface->reached = blurred;
  surface->beyond = WeightedSumOf(gaussian, WeightedSumOf(gaussian, surface->beyond));
}

// The margin of the image.
void PlaceImageMargin(const RealPlane& plane, const Surface& surface, Parallel& parallel) {
  const Area& image = surface.image;
  const Area& skipped = surface.skipped;
  ForEachRow(parallel, image.bottom - image.top, [&](int32_t imageY) {
    const int32_t y = image.top + imageY;
    const float* const samples = plane.Row(imageY);
    const auto place = [&](int32_t begin, int32_t end) {
      float* const cells = surface.At(begin, y);
      for (int32_t x = begin; x < end; ++x) cells[x - begin] = samples[2 * (x - image.left)];
    };
    const int32_t leftEnd = HasRow(skipped, y) ? std::min(skipped.left, image.right) : image.right;
    place(image.left, leftEnd);
    place(std::max(skipped.right, leftEnd), image.right);
  });
}

// The padding of one row of the plane from the surface, turned round so that the image starts at (0, 0); the
// image has its own samples already.
void WriteBackRow(const Surface& surface, const RealPlane& plane, int32_t y) {
  const int32_t n = surface.size;
  const Area& image = surface.image;
  const int32_t surfaceY = (y + image.top) % n;
  const bool isReached = HasRow(surface.reached, surfaceY);
  float* sample = plane.Row(y);
  const auto writeBeyond = [&](int32_t begin, int32_t end) {
    for (int32_t x = begin; x < end; ++x, sample += 2) *sample = surface.beyond;
  };
  const auto write = [&](int32_t begin, int32_t end) {
    if (!isReached) return writeBeyond(begin, end);
    const int32_t reached = std::clamp(surface.reached.left, begin, end);
    const int32_t reachedEnd = std::clamp(surface.reached.right, begin, end);
    writeBeyond(begin, reached);
    const float* const cells = surface.At(reached, surfaceY);
    for (int32_t x = reached; x < reachedEnd; ++x, sample += 2) *sample = cells[x - reached];
    writeBeyond(reachedEnd, end);
  };
  if (HasRow(image, surfaceY)) {
    sample += 2 * static_cast<ptrdiff_t>(image.right - image.left);
  } else {
    write(image.left, image.right);
  }
  write(image.right, n);
  write(0, image.left);
}

// The rows of the plane that the image's edges do not reach, whole lines of them.
ConstantRows UnreachedRows(const Surface& surface, const RealPlane& plane) {
  const int32_t first = surface.reached.bottom - surface.image.top;
  const int32_t last = surface.size + surface.reached.top - surface.image.top;
  const int32_t perLine = plane.rowsPerLine;
  const int32_t wholeFirst = (first + perLine - 1) / perLine * perLine;
  const int32_t wholeLast = last / perLine * perLine;
  return {wholeFirst, std::max(wholeFirst, wholeLast), surface.beyond};
}

}  // namespace

bool PaddingFill::Prepare(int32_t size, int32_t workers) {
  if (size == size_ && workers == workers_) return true;
  size_ = 0;
  const auto n = static_cast<size_t>(size);
  surface_ = AllocateBlock<float>(n * n);
  blurs_ = AllocateBlock<float>(BlurStretch::MemoryFor(size) * static_cast<size_t>(workers));
  if (!surface_ || !blurs_) return false;
  size_ = size;
  workers_ = workers;
  return true;
}

ConstantRows PaddingFill::Fill(const RealPlane& plane, int32_t horizontalPadding, int32_t verticalPadding,
                               float mean, Parallel& parallel) {
  const int32_t n = size_;
  const int32_t left = horizontalPadding / 2, top = verticalPadding / 2;
  const Area image = {left, top, left + n - horizontalPadding, top + n - verticalPadding};
  Surface surface = {surface_.get(), n, image, InnerArea(image), image, mean};
  PlaceImageMargin(plane, surface, parallel);
  for (const float scale : kBlurScales) BlurPadding(MakeGaussian(scale), &surface, blurs_.get(), parallel);
  const ConstantRows constant = UnreachedRows(surface, plane);
  ForEachRow(parallel, n, [&](int32_t y) {
    if (y < constant.first || y >= constant.last) WriteBackRow(surface, plane, y);
  });
  return constant;
}

}  // namespace tessaline
