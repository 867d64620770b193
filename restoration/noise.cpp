#include "restoration/noise.h"

#include <algorithm>
#include <numeric>

#include "image/pixel_kind.h"
#include "restoration/row_kernels.h"

namespace tessaline {

namespace {

constexpr double kNoiseSigma = 6.0;
// What windows vary by in flat places has to fall well below the noise to be taken down.
constexpr double kOfFlat = 4.0;
// Of such a print more is left than is taken out, and it is smoothed as widely as can be.
constexpr float kMostlyLeft = 1.6f;
static_assert(Noise::kReduction == kReductionWindows[1].hop);

// Where there is much noise there is more of it: the mean that the blocks themselves weigh.
double OwnMean(const Plane& plane) {
  double sum = 0.0, squares = 0.0;
  for (int32_t y = 0; y < plane.height; ++y) {
    const float* const row = plane.Row(y);
    for (int32_t x = 0; x < plane.width; ++x) {
      sum += row[x];
      squares += double{row[x]} * row[x];
    }
  }
  return sum > 0.0 ? squares / sum : 0.0;
}

}  // namespace

void KeepBlockMeans(const PixelPart& part, int32_t height, const float* sums, Plane* means) {
  constexpr int32_t kReduction = Noise::kReduction;
  const int32_t rows = std::min(kReduction, height - part.y);
  float* const kept = means->Row(part.y / kReduction) + part.first / kReduction;
  float blocks[Noise::kPart / kReduction] = {};
  const int32_t whole = part.count / kReduction, left = part.count % kReduction;
  ActiveRowKernels().addBlocks[1](whole, sums, blocks);
  for (int32_t x = 0; x < whole; ++x) kept[x] = blocks[x] / static_cast<float>(kReduction * rows);
  if (left == 0) return;
  const float* const rest = sums + whole * kReduction;
  kept[whole] = std::accumulate(rest, rest + left, 0.0f) / static_cast<float>(left * rows);
}

bool Noise::Prepare(const PictureView& picture, const Axes& axes) {
  axes_ = axes;
  height_ = picture.height;
  const int32_t width = ReducedSide(picture.width, kReduction),
                height = ReducedSide(picture.height, kReduction);
  for (int32_t axis = 0; axis < axes_.count; ++axis) {
    if (!noise_[axis].Create(width, height)) return false;
  }
  return scratch_.Create(width, height);
}

void Noise::AddRow(int32_t count, const LevelRows& taken, Squares* squares) const {
  const RowKernels& kernels = ActiveRowKernels();
  if (axes_.isMixed) {
    kernels.addMixedSquares(count, taken, kLuma, squares->sums[0], squares->sums[1], squares->sums[2]);
    return;
  }
  for (int32_t c = 0; c < axes_.count; ++c) kernels.addSquares(count, taken[c], squares->sums[c]);
}

void Noise::KeepBlocks(const PixelPart& part, const Squares& squares) {
  for (int32_t axis = 0; axis < axes_.count; ++axis) {
    KeepBlockMeans(part, height_, squares.sums[axis], &noise_[axis]);
  }
}

bool Noise::Settle(float amount, const DotsLeft& left, Parallel& parallel, const Progress& progress) {
  axes_.dots = left.dots;
  // The flattest places of a rough print know how much is left where little was taken out.
  const double taken = left.flatVariance > 0.0f ? OwnMean(noise_[0]) : 0.0;
  const float leastShare = taken > 0.0 ? static_cast<float>(kOfFlat * left.flatVariance / taken) : 0.0f;
  if (leastShare > kMostlyLeft) axes_.dots = Dots::kRoughCoarse;
  if (progress.Advance(0.0, 1.0)) return true;
  const double done = VarianceOfBlocks(kReduction) + VarianceOfEnlarging(kReduction);
  for (int32_t axis = 0; axis < axes_.count; ++axis) {
    Plane& noise = noise_[axis];
    const float share = std::max(axes_.Rule(axis).noiseShare, axis == 0 ? leastShare : 0.0f);
    Blur(GaussianOfRest(kNoiseSigma, done, kReduction), parallel, noise.width, &noise, &scratch_);
    RowsInParallel(parallel, noise.height, [&](int32_t y, int32_t) {
      float* const row = noise.Row(y);
      const float most = axes_.Rule(axis).mostNoise * (kByteToHost * kByteToHost);
      for (int32_t x = 0; x < noise.width; ++x) row[x] = amount * std::min(share * row[x], most);
    });
  }
  return progress.Advance(1.0, 1.0);
}

bool Noise::IsAny(int32_t x, int32_t y, int32_t columns, int32_t rows) const {
  const auto firstOf = [](int32_t place) { return std::max(place / kReduction - 1, 0); };
  const auto endOf = [](int32_t end, int32_t count) {
    return std::min((end + kReduction - 1) / kReduction + 1, count);
  };
  for (int32_t axis = 0; axis < axes_.count; ++axis) {
    const Plane& noise = noise_[axis];
    for (int32_t blockY = firstOf(y); blockY < endOf(y + rows, noise.height); ++blockY) {
      const float* const row = noise.Row(blockY);
      for (int32_t block = firstOf(x); block < endOf(x + columns, noise.width); ++block) {
        if (row[block] > 0.0f) return true;
      }
    }
  }
  return false;
}

}  // namespace tessaline
