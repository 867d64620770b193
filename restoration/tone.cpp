#include "restoration/tone.h"

namespace tessaline {

namespace {

constexpr int32_t kReduction = Noise::kReduction;
constexpr double kToneSigma = 8.0;  // more than half a dot of the coarsest screens

}  // namespace

bool Tone::Prepare(const PictureView& picture, const ToneCurve* curve) {
  curve_ = curve;
  channels_ = picture.channels;
  height_ = picture.height;
  if (curve == nullptr) return true;
  const int32_t width = ReducedSide(picture.width, kReduction), height = ReducedSide(height_, kReduction);
  for (int32_t c = 0; c < channels_; ++c) {
    if (!before_[c].Create(width, height) || !after_[c].Create(width, height)) return false;
  }
  return scratch_.Create(width, height);
}

void Tone::AddRow(int32_t count, const LevelRows& levels, const LevelRows& taken, Sums* sums) const {
  for (int32_t c = 0; c < channels_; ++c) {
    for (int32_t x = 0; x < count; ++x) {
      sums->before[c][x] += curve_->LightOf(levels[c][x]);
      sums->after[c][x] += curve_->LightOf(levels[c][x] - taken[c][x]);
    }
  }
}

void Tone::KeepBlocks(const PixelPart& part, const Sums& sums) {
  for (int32_t c = 0; c < channels_; ++c) {
    KeepBlockMeans(part, height_, sums.before[c], &before_[c]);
    KeepBlockMeans(part, height_, sums.after[c], &after_[c]);
  }
}

void Tone::Settle(Parallel& parallel) {
  const double done = VarianceOfBlocks(kReduction) + VarianceOfEnlarging(kReduction);
  const GaussianKernel kernel = GaussianOfRest(kToneSigma, done, kReduction);
  for (int32_t c = 0; c < channels_; ++c) {
    Blur(kernel, parallel, scratch_.width, &before_[c], &scratch_);
    Blur(kernel, parallel, scratch_.width, &after_[c], &scratch_);
    RowsInParallel(parallel, scratch_.height, [&](int32_t y, int32_t) {
      float* const before = before_[c].Row(y);
      const float* const after = after_[c].Row(y);
      for (int32_t x = 0; x < scratch_.width; ++x) {
        before[x] = curve_->LevelOf(before[x]) - curve_->LevelOf(after[x]);
      }
    });
  }
}

}  // namespace tessaline
