// The spectrum of a tile of 128 x 128 samples, in which the lines of a screen are sharp even where the page
// is so warped that they run into each other in the picture's.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/memory.h"
#include "removal/picture.h"
#include "removal/spectrum_grid.h"
#include "restoration/plane.h"

namespace tessaline {

// A peak of a tile's spectrum; its partner at (-dx, -dy) belongs to it. One cell is kCells cells of the
// picture's grid.
struct LocalPeak {
  int32_t dx, dy;    // cells of the tile's spectrum from the zero frequency
  double height;     // natural log of its magnitude over what is usual around it
  double level;      // natural log of the magnitude
  double amplitude;  // of the wave, 0..32768
  double background;

  double Ruling() const;    // distance from the zero frequency, in cells
  bool IsNearAxis() const;  // where lines of text and level edges have theirs
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
  // Then also where two inks of a coarse screen beat, nearer to the zero frequency.
  const std::vector<LocalPeak>& beats() const { return beats_; }
  static constexpr int32_t kBeatReach = 1;  // cells of a beat, both ways
  // The level that is usual in a ring round a place.
  double UsualAround(int32_t dx, int32_t dy) const;
  // The level at a place, or at its neighbours if they are higher.
  double HighestAround(int32_t dx, int32_t dy) const;

  // Marks the cells of a peak that FindPeaks found, and their mirror images.
  void Take(const LocalPeak& peak);
  bool IsTaken(int32_t dx, int32_t dy) const { return taken_[IndexOf(dx, dy)] > 0.0f; }

  // Makes shares of the marked cells, grown and softened, and of the beats, times what the mask allows of
  // each cell (0..255, picture's grid).
  void ShareOut(const ConstImageView& mask);

  // Another tile in place of the one that was loaded, for the same shares, of which not all is printed:
  // `printed` has 1 for the samples that are, inside the picture, and 0 for the others, rows of kSide. What
  // is smooth of the print is left out, and what the shares take goes on beyond it as waves do.
  void LoadPrinted(const PictureView& picture, int32_t x, int32_t y, const float* printed);

  // What the shares take, put under the window again and added to `sums`: for every channel kSide rows,
  // `stride` floats apart, the channels `channelStride` apart. Columns beyond `columns` are left out, and
  // `skipped` first ones.
  void AddTaken(int32_t skipped, int32_t columns, size_t stride, size_t channelStride, float* sums);

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
  void LoadSamples(const PictureView& picture, int32_t x, int32_t y);
  void Transform(float* pair) const;
  void TransformBack(float* pair) const;
  void TakeOf(float* pair) const;
  void LeaveSmoothOut(const float* printed, float* pair);
  void SumPowers();
  void AddBeats();
  void AddBeatNear(int32_t dx, int32_t dy);
  bool IsHighest(int32_t dx, int32_t dy, int32_t reach) const;
  LocalPeak PeakAt(int32_t dx, int32_t dy, double background) const;
  void ShapeTaken();
  void TakeDown(const LocalPeak& beat, const ConstImageView& mask);

  int32_t channels_ = 0;
  OwnedBlock<float> samples_;  // two channels to a complex plane; their spectrum, once a tile is loaded
  OwnedBlock<float> waves_;    // likewise, of one pair
  OwnedBlock<float> levels_;   // natural log of the magnitude
  OwnedBlock<float> taken_, scratch_;
  Plane weights_, smooth_, blurred_;
  float window_[kSide];
  double windowSum_ = 0.0;
  float table_[kSide / 4 + 1];
  std::vector<LocalPeak> peaks_, beats_;
};

}  // namespace tessaline
