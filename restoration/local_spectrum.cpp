#include "restoration/local_spectrum.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <utility>

#include "fft/fft_dispatch.h"
#include "fft/float_fft.h"
#include "fft/unit_roots.h"
#include "removal/portable_math.h"

namespace tessaline {

namespace {

constexpr uint32_t kLog2Side = 7;
static_assert(LocalSpectrum::kSide == 1 << kLog2Side);

constexpr int32_t kNearestPeak = 10, kNearestTaken = 8;  // cells from the zero frequency
constexpr int32_t kContinuingPasses = 6;                 // half of what is not known yet comes with each
constexpr double kSmoothSigma = 5.0;                     // samples, of a print without its screen
constexpr int32_t kNearestBeat = 5, kBeatRing = 2;
constexpr double kSureInk = 1.4, kRulingsApart = 0.15, kSureBeat = 0.6;  // heights, and a share
constexpr int32_t kRingFrom = 3, kRingTo = 8;                            // of what is usual around a peak
constexpr int32_t kTakenReach = 3;                                       // cells of a peak, both ways
constexpr double kWeakest = 0.7, kShareOfHeight = 0.3;                   // heights that are taken with a peak
constexpr float kPowerWeights[] = {0.58f, 0.21f};                        // a Gaussian of 0.7 cells
constexpr float kTakenWeights[] = {0.343f, 0.243f, 0.0855f};             // and of 1.2

// Blurs a plane whose borders meet, in place, by the right half of a symmetric kernel.
template <size_t kTerms>
void BlurWrapped(const float (&weights)[kTerms], float* plane, float* scratch) {
  constexpr int32_t kSide = LocalSpectrum::kSide;
  const auto pass = [&](const float* from, float* to, int32_t along, int32_t across) {
    for (int32_t line = 0; line < kSide; ++line) {
      const float* const values = from + line * across;
      for (int32_t i = 0; i < kSide; ++i) {
        float sum = weights[0] * values[i * along];
        for (int32_t k = 1; k < static_cast<int32_t>(kTerms); ++k) {
          sum += weights[k] *
                 (values[((i - k) & (kSide - 1)) * along] + values[((i + k) & (kSide - 1)) * along]);
        }
        to[line * across + i * along] = sum;
      }
    }
  };
  pass(plane, scratch, 1, kSide);
  pass(scratch, plane, kSide, 1);
}

double Ranked(std::vector<float>& values, size_t share) {
  const auto middle = values.begin() + static_cast<ptrdiff_t>((values.size() - 1) / share);
  std::nth_element(values.begin(), middle, values.end());
  return double{*middle};
}

void TransposeComplex(float* plane) {
  constexpr int32_t kSide = LocalSpectrum::kSide, kBlock = 8;
  const auto swap = [&](int32_t row, int32_t column) {
    float* const a = plane + 2 * (row * kSide + column);
    float* const b = plane + 2 * (column * kSide + row);
    std::swap(a[0], b[0]);
    std::swap(a[1], b[1]);
  };
  for (int32_t top = 0; top < kSide; top += kBlock) {
    for (int32_t left = top; left < kSide; left += kBlock) {
      for (int32_t row = top; row < top + kBlock; ++row) {
        for (int32_t column = std::max(left, row + 1); column < left + kBlock; ++column) swap(row, column);
      }
    }
  }
}

}  // namespace

double LocalPeak::Ruling() const {
  return std::sqrt(static_cast<double>(dx * dx + dy * dy));
}

bool LocalPeak::IsNearAxis() const {
  return std::min(std::abs(dx), std::abs(dy)) <= 1 + 0.1 * std::max(std::abs(dx), std::abs(dy));
}

bool LocalSpectrum::Prepare() {
  samples_ = AllocateBlock<float>(2 * kCount * ((kMostChannels + 1) / 2));
  waves_ = AllocateBlock<float>(2 * kCount);
  levels_ = AllocateBlock<float>(kCount);
  taken_ = AllocateBlock<float>(kCount);
  scratch_ = AllocateBlock<float>(kCount);
  windowSum_ = 0.0;
  for (int32_t i = 0; i < kSide; ++i) {
    window_[i] = static_cast<float>(UnitRoot(2 * kSide, i).sine);
    windowSum_ += double{window_[i]};
  }
  uint32_t log2Side;
  MakeCosineTable(&log2Side, kSide, table_);
  return samples_ && waves_ && levels_ && taken_ && scratch_ && weights_.Create(kSide, kSide) &&
         smooth_.Create(kSide, kSide) && blurred_.Create(kSide, kSide);
}

void LocalSpectrum::Transform(float* pair) const {
  for (int32_t pass = 0; pass < 2; ++pass) {
    for (int32_t line = 0; line < kSide; ++line) FloatFft(pair + 2 * line * kSide, kLog2Side, table_);
    if (pass == 0) TransposeComplex(pair);
  }
}

void LocalSpectrum::TransformBack(float* pair) const {
  for (int32_t pass = 0; pass < 2; ++pass) {
    for (int32_t line = 0; line < kSide; ++line) FloatFftInverse(pair + 2 * line * kSide, kLog2Side, table_);
    if (pass == 0) TransposeComplex(pair);
  }
}

void LocalSpectrum::Load(const PictureView& picture, int32_t x, int32_t y) {
  LoadSamples(picture, x, y);
  for (int32_t c = 0; c < channels_; c += 2) Transform(Pair(c));
  SumPowers();
  std::fill_n(taken_.get(), kCount, 0.0f);
}

void LocalSpectrum::LoadSamples(const PictureView& picture, int32_t x, int32_t y) {
  channels_ = picture.channels;
  std::fill_n(samples_.get(), 2 * kCount * ((kMostChannels + 1) / 2), 0.0f);
  const int32_t first = std::clamp(x, 0, picture.width - 1);
  const int32_t inside = std::min(x + kSide, picture.width) - first;
  for (int32_t c = 0; c < channels_; ++c) {
    float* const plane = Pair(c) + c % 2;
    double sum = 0.0;
    for (int32_t row = 0; row < kSide; ++row) {
      float levels[kSide];
      LoadPart(picture, {c, Reflected(y + row, picture.height), first, inside}, levels);
      for (int32_t column = 0; column < kSide; ++column) {
        // What the mirror shows of samples that were not loaded, in tiny pictures, is the outermost that was.
        const int32_t place = Reflected(x + column, picture.width) - first;
        const float level = levels[std::clamp(place, 0, inside - 1)];
        plane[2 * (row * kSide + column)] = level;
        sum += double{level};
      }
    }
    const auto mean = static_cast<float>(sum / static_cast<double>(kCount));
    for (int32_t row = 0; row < kSide; ++row) {
      for (int32_t column = 0; column < kSide; ++column) {
        float& sample = plane[2 * (row * kSide + column)];
        sample = (sample - mean) * (window_[row] * window_[column]);
      }
    }
  }
}

// The mean of what is printed round every sample; under the window, as the samples are.
void LocalSpectrum::LeaveSmoothOut(const float* printed, float* pair) {
  const GaussianKernel kernel(kSmoothSigma);
  for (int32_t k = 0; k < 2; ++k) {
    float* const smooth = smooth_.Row(0);
    for (size_t i = 0; i < kCount; ++i) smooth[i] = printed[i] * pair[2 * i + k];
    Blur(kernel, SerialWork(), kSide, &smooth_, &blurred_);
    for (int32_t row = 0; row < kSide; ++row) {
      for (int32_t column = 0; column < kSide; ++column) {
        const size_t i = size_t{kSide} * row + column;
        if (printed[i] == 0.0f) {
          pair[2 * i + k] = 0.0f;
        } else if (weights_.samples[i] > 0.0f) {
          pair[2 * i + k] -= smooth[i] / weights_.samples[i] * (window_[row] * window_[column]);
        }
      }
    }
  }
}

void LocalSpectrum::LoadPrinted(const PictureView& picture, int32_t x, int32_t y, const float* printed) {
  LoadSamples(picture, x, y);
  for (int32_t row = 0; row < kSide; ++row) {
    for (int32_t column = 0; column < kSide; ++column) {
      weights_.Row(row)[column] = printed[kSide * row + column] * (window_[row] * window_[column]);
    }
  }
  Blur(GaussianKernel(kSmoothSigma), SerialWork(), kSide, &weights_, &blurred_);
  float* const waves = waves_.get();
  for (int32_t c = 0; c < channels_; c += 2) {
    float* const pair = Pair(c);
    LeaveSmoothOut(printed, pair);
    for (int32_t pass = 0; pass < kContinuingPasses; ++pass) {
      std::copy_n(pair, 2 * kCount, waves);
      Transform(waves);
      TakeOf(waves);
      for (size_t i = 0; i < kCount; ++i) {
        if (printed[i] > 0.0f) continue;
        pair[2 * i] = waves[2 * i];
        pair[2 * i + 1] = waves[2 * i + 1];
      }
    }
    Transform(pair);
  }
}

void LocalSpectrum::TakeOf(float* pair) const {
  for (size_t i = 0; i < kCount; ++i) {
    pair[2 * i] *= taken_[i];
    pair[2 * i + 1] *= taken_[i];
  }
  TransformBack(pair);
}

// Two real channels share a complex plane: what both hold at a frequency is half of what the plane holds
// there and at the opposite one.
void LocalSpectrum::SumPowers() {
  float* const powers = levels_.get();
  std::fill_n(powers, kCount, 0.0f);
  for (int32_t c = 0; c < channels_; c += 2) {
    const float* const pair = Pair(c);
    for (int32_t dx = 0; dx < kSide; ++dx) {
      for (int32_t dy = 0; dy < kSide; ++dy) {
        const float *const z = pair + 2 * IndexOf(dx, dy), *const opposite = pair + 2 * IndexOf(-dx, -dy);
        powers[IndexOf(dx, dy)] +=
            0.5f * (z[0] * z[0] + z[1] * z[1] + opposite[0] * opposite[0] + opposite[1] * opposite[1]);
      }
    }
  }
  BlurWrapped(kPowerWeights, powers, scratch_.get());
  for (size_t i = 0; i < kCount; ++i) {
    const double power = std::isfinite(powers[i]) ? std::max(double{powers[i]}, 1.0) : 1.0;
    powers[i] = static_cast<float>(0.5 * PortableLog(power));
  }
}

double LocalSpectrum::HighestAround(int32_t dx, int32_t dy) const {
  float highest = 0.0f;
  for (int32_t v = -1; v <= 1; ++v) {
    for (int32_t u = -1; u <= 1; ++u) highest = std::max(highest, levels_[IndexOf(dx + u, dy + v)]);
  }
  return highest;
}

double LocalSpectrum::UsualAround(int32_t dx, int32_t dy) const {
  static const std::vector<std::pair<int32_t, int32_t>> ring = [] {
    std::vector<std::pair<int32_t, int32_t>> cells;
    for (int32_t v = -kRingTo; v <= kRingTo; ++v) {
      for (int32_t u = -kRingTo; u <= kRingTo; ++u) {
        const int32_t square = u * u + v * v;
        if (square >= kRingFrom * kRingFrom && square <= kRingTo * kRingTo) cells.emplace_back(u, v);
      }
    }
    return cells;
  }();
  std::vector<float> around(ring.size());
  for (size_t i = 0; i < ring.size(); ++i)
    around[i] = levels_[IndexOf(dx + ring[i].first, dy + ring[i].second)];
  return Ranked(around, 2);
}

const std::vector<LocalPeak>& LocalSpectrum::FindPeaks() {
  peaks_.clear();
  beats_.clear();
  for (int32_t dx = -kSide / 2; dx < kSide / 2; ++dx) {
    for (int32_t dy = -kSide / 2; dy <= 0; ++dy) {
      if ((dy == 0 && dx >= 0) || dx * dx + dy * dy < kNearestPeak * kNearestPeak || !IsHighest(dx, dy, 2))
        continue;
      const LocalPeak peak = PeakAt(dx, dy, UsualAround(dx, dy));
      if (peak.height >= kLeastHeight) peaks_.push_back(peak);
    }
  }
  AddBeats();
  return peaks_;
}

bool LocalSpectrum::IsHighest(int32_t dx, int32_t dy, int32_t reach) const {
  const float level = levels_[IndexOf(dx, dy)];
  for (int32_t v = -reach; v <= reach; ++v) {
    for (int32_t u = -reach; u <= reach; ++u) {
      if (levels_[IndexOf(dx + u, dy + v)] > level) return false;
    }
  }
  return true;
}

LocalPeak LocalSpectrum::PeakAt(int32_t dx, int32_t dy, double background) const {
  const double level = levels_[IndexOf(dx, dy)];
  return {dx,        dy, level - background, level, 2.0 * PortableExp(level) / (windowSum_ * windowSum_),
          background};
}

// Two inks over each other give a rosette, at the difference of their frequencies: half a ruling and less
// from the zero frequency, which in coarse screens is where the picture is.
void LocalSpectrum::AddBeats() {
  std::vector<LocalPeak> inks;
  double level = 0.0, ruling = 0.0;
  for (const LocalPeak& peak : peaks_) {
    if (peak.level > level) level = peak.level, ruling = peak.Ruling();
  }
  for (const LocalPeak& peak : peaks_) {
    if (peak.height >= kSureInk && std::abs(peak.Ruling() - ruling) <= kRulingsApart * ruling)
      inks.push_back(peak);
  }
  for (size_t i = 0; i < inks.size(); ++i) {
    for (size_t j = 0; j < i; ++j) {
      AddBeatNear(inks[i].dx - inks[j].dx, inks[i].dy - inks[j].dy);
      AddBeatNear(inks[i].dx + inks[j].dx, inks[i].dy + inks[j].dy);
    }
  }
}

void LocalSpectrum::AddBeatNear(int32_t dx, int32_t dy) {
  const auto isBeat = [](int32_t x, int32_t y) {
    const int32_t square = x * x + y * y;
    return square >= kNearestBeat * kNearestBeat && square < kNearestPeak * kNearestPeak;
  };
  if (dy > 0 || (dy == 0 && dx > 0)) dx = -dx, dy = -dy;
  int32_t x = dx, y = dy;
  for (int32_t v = -kBeatReach; v <= kBeatReach; ++v) {
    for (int32_t u = -kBeatReach; u <= kBeatReach; ++u) {
      if (levels_[IndexOf(dx + u, dy + v)] > levels_[IndexOf(x, y)]) x = dx + u, y = dy + v;
    }
  }
  if (!isBeat(x, y) || !IsHighest(x, y, 1)) return;
  if (std::any_of(beats_.begin(), beats_.end(),
                  [&](const LocalPeak& beat) { return beat.dx == x && beat.dy == y; })) {
    return;
  }
  // What is usual at its distance: the picture's own frequencies rise towards zero.
  const double ruling = std::hypot(x, y);
  std::vector<float> around;
  for (int32_t v = -kNearestPeak; v <= 0; ++v) {
    for (int32_t u = -kNearestPeak; u <= kNearestPeak; ++u) {
      const double apart = std::min(std::hypot(u - x, v - y), std::hypot(u + x, v + y));
      if (std::abs(std::hypot(u, v) - ruling) <= 1.0 && apart > kBeatRing)
        around.push_back(levels_[IndexOf(u, v)]);
    }
  }
  const LocalPeak peak = PeakAt(x, y, Ranked(around, 10));
  if (peak.height >= kSureBeat) beats_.push_back(peak);
}

void LocalSpectrum::Take(const LocalPeak& peak) {
  const double least = peak.background + std::max(kWeakest, kShareOfHeight * peak.height);
  for (int32_t dx = peak.dx - kTakenReach; dx <= peak.dx + kTakenReach; ++dx) {
    for (int32_t dy = peak.dy - kTakenReach; dy <= peak.dy + kTakenReach; ++dy) {
      if (double{levels_[IndexOf(dx, dy)]} < least) continue;
      taken_[IndexOf(dx, dy)] = taken_[IndexOf(-dx, -dy)] = 1.0f;
    }
  }
}

// Grows the marked cells by their four neighbours and softens them.
void LocalSpectrum::ShapeTaken() {
  std::copy_n(taken_.get(), kCount, scratch_.get());
  for (int32_t dx = 0; dx < kSide; ++dx) {
    for (int32_t dy = 0; dy < kSide; ++dy) {
      if (scratch_[IndexOf(dx, dy)] == 0.0f) continue;
      taken_[IndexOf(dx - 1, dy)] = taken_[IndexOf(dx + 1, dy)] = taken_[IndexOf(dx, dy - 1)] =
          taken_[IndexOf(dx, dy + 1)] = 1.0f;
    }
  }
  BlurWrapped(kTakenWeights, taken_.get(), scratch_.get());
}

// Down to what is usual at its distance, for the picture's own are there too.
void LocalSpectrum::TakeDown(const LocalPeak& beat, const ConstImageView& mask) {
  for (int32_t dx = beat.dx - kBeatReach; dx <= beat.dx + kBeatReach; ++dx) {
    for (int32_t dy = beat.dy - kBeatReach; dy <= beat.dy + kBeatReach; ++dy) {
      const uint8_t allowed = mask.Row(kSpectrumCentre + kCells * dy)[kSpectrumCentre + kCells * dx];
      const double excess = std::max(double{levels_[IndexOf(dx, dy)]} - beat.background, 0.0);
      const auto share = static_cast<float>((1.0 - PortableExp(-excess)) * allowed / 255.0);
      float &here = taken_[IndexOf(dx, dy)], &opposite = taken_[IndexOf(-dx, -dy)];
      here = opposite = std::max(here, share);
    }
  }
}

void LocalSpectrum::ShareOut(const ConstImageView& mask) {
  ShapeTaken();
  for (int32_t dx = -kSide / 2; dx < kSide / 2; ++dx) {
    for (int32_t dy = -kSide / 2; dy < kSide / 2; ++dy) {
      float& share = taken_[IndexOf(dx, dy)];
      const uint8_t allowed = mask.Row(kSpectrumCentre + kCells * dy)[kSpectrumCentre + kCells * dx];
      if (dx * dx + dy * dy < kNearestTaken * kNearestTaken) share = 0.0f;
      share *= static_cast<float>(allowed) / 255.0f;
    }
  }
  for (const LocalPeak& beat : beats_) TakeDown(beat, mask);
}

void LocalSpectrum::AddTaken(int32_t skipped, int32_t columns, size_t stride, size_t channelStride,
                             float* sums) {
  for (int32_t c = 0; c < channels_; c += 2) TakeOf(Pair(c));
  for (int32_t c = 0; c < channels_; ++c) {
    const float* const plane = Pair(c) + c % 2;
    float* const sum = sums + static_cast<size_t>(c) * channelStride;
    for (int32_t row = 0; row < kSide; ++row) {
      for (int32_t column = skipped; column < columns; ++column) {
        sum[static_cast<size_t>(row) * stride + static_cast<size_t>(column - skipped)] +=
            plane[2 * (row * kSide + column)] * (window_[row] * window_[column]);
      }
    }
  }
}

}  // namespace tessaline
