// The spectrum of a tile of 128 x 128 samples, in which the lines of a screen are sharp even where the page
// is so warped that they run into each other in the picture's.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/memory.h"
#include "removal/picture.h"
#include "removal/spectrum_grid.h"

namespace tessaline {

// A peak of a tile's spectrum; its partner at (-dx, -dy) belongs to it. One cell is kCells cells of the
// picture's grid.
struct LocalPeak {
  int32_t dx, dy;    // cells of the tile's spectrum from the zero frequency
  double height;     // natural log of its magnitude over what is usual around it
  double level;      // natural log of the magnitude
  double amplitude;  // of the wave, 0..32768
  double background;

  double Ruling() const;  // distance from the zero frequency, in cells
};

class LocalSpectrum {
 public:
  static constexpr int32_t kSide = 128;
  static constexpr int32_t kHop = kSide / 2;  // from tile to tile: windows in and out add up to 1
  static constexpr int32_t kCells = kSpectrumCells / kSide;
  static constexpr double kLeastHeight = 1.1;  // of a peak

  // False: no memory.
  bool Prepare();

  // The tile whose first sample is (x, y), under a window; beyond the picture's borders it mirrors.
  void Load(const PictureView& picture, int32_t x, int32_t y);

  // All peaks outside the protected disc's least radius, of the upper half.
  const std::vector<LocalPeak>& FindPeaks();
  // The level at a place, or at its neighbours if they are higher.
  double HighestAround(int32_t dx, int32_t dy) const;

  // Marks the cells of a peak that FindPeaks found, and their mirror images.
  void Take(const LocalPeak& peak);
  bool IsTaken(int32_t dx, int32_t dy) const { return taken_[IndexOf(dx, dy)] > 0.0f; }

  // What the marked cells hold, grown and softened, times a share of each cell (0..255, picture's grid), put
  // under the window again and added to `sums`: for every channel kSide rows, `stride` floats apart, the
  // channels `channelStride` apart. Columns beyond `columns` are left out, and `skipped` first ones.
  void AddTaken(const ConstImageView& mask, int32_t skipped, int32_t columns, size_t stride,
                size_t channelStride, float* sums);

 private:
  static constexpr size_t kCount = size_t{kSide} * kSide;
  static constexpr int32_t kWrap = kSide - 1;

  // Columns of the spectrum stand one after the other.
  static size_t IndexOf(int32_t dx, int32_t dy) {
    return static_cast<size_t>(dx & kWrap) * kSide + static_cast<size_t>(dy & kWrap);
  }
  float* Pair(int32_t channel) const {
    return samples_.get() + static_cast<size_t>(channel / 2) * 2 * kCount;
  }
  void Transform(float* pair) const;
  void TransformBack(float* pair) const;
  void SumPowers();
  void ShapeTaken();

  int32_t channels_ = 0;
  OwnedBlock<float> samples_;  // two channels to a complex plane
  OwnedBlock<float> levels_;   // natural log of the magnitude
  OwnedBlock<float> taken_, scratch_;
  float window_[kSide];
  float table_[kSide / 4 + 1];
  std::vector<LocalPeak> peaks_;
};

}  // namespace tessaline
