// A channel's waves at some places of the spectrum, brought down to the zero frequency and reduced: sample
// (x, y) of a carrier's planes is the channel times exp(-2 pi i (dx x + dy y) / 512) under a window of two
// or three blocks both ways round the middle of block (x, y), hop x hop pixels.
//
// The channel's own slow changes, which would leak into every carrier at the borders, are taken out; what a
// window has beyond the border counts for nothing.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/progress.h"
#include "removal/picture.h"
#include "restoration/plane.h"
#include "restoration/row_kernels.h"

namespace tessaline {

// A place in the spectrum, in cells from the zero frequency.
struct Carrier {
  int32_t dx, dy;
};

constexpr int32_t kMostCarriers = 8;

// The factors of a carrier's wave, one for every `hop` pixels.
struct Wave {
  std::vector<float> cosine, sine;

  Wave(double cells, int32_t hop, int32_t count);
};

class Demodulation {
 public:
  // For pictures of that size; hop is 4 or 8. False: no memory. May throw std::bad_alloc.
  bool Prepare(int32_t width, int32_t height, int32_t hop, const std::vector<Carrier>& carriers,
               int32_t threads);

  // `sigma`, in pixels: of the Gaussian that tells a channel's slow changes. True: stopped.
  bool Measure(const PictureView& picture, int32_t channel, double sigma, Parallel& parallel,
               const Progress& progress);

  int32_t columns() const { return columns_; }
  int32_t rows() const { return rows_; }
  const Plane& real(int32_t carrier) const { return real_[carrier]; }
  const Plane& imaginary(int32_t carrier) const { return imaginary_[carrier]; }

  // The window's variance, in pixels, and what it leaves of a wave so many cells from a carrier.
  double windowVariance() const;
  double WindowGain(const Carrier& distance) const;

 private:
  // What a carrier's window leaves of a constant, at every place along one axis.
  struct AlongAxis {
    std::vector<float> real, imaginary, share;  // share: 1 / the part of the window inside the picture
    AlongAxis(int32_t cells, int32_t window, int32_t side, int32_t places);
  };
  struct CarrierTables {
    Wave waveX, waveY;
    AlongAxis x, y;
  };

  void LoadRow(const PictureView& picture, int32_t channel, int32_t y, float* levels, float* phases) const;
  void MeasureBands(const PictureView& picture, int32_t channel, int32_t first, int32_t last, float* memory);
  void SettleRow(int32_t carrier, int32_t y);

  int32_t window_ = 0;  // of kReductionWindows
  int32_t hop_ = 0, windowSide_ = 0, columns_ = 0, rows_ = 0, chunks_ = 0;
  ptrdiff_t phaseFloats_ = 0, threadFloats_ = 0;
  std::vector<CarrierWindow> windows_;
  std::vector<CarrierTables> tables_;
  std::vector<Plane> real_, imaginary_;  // after the carriers', the zero frequency's
  OwnedBlock<float> memory_;             // of every thread
};

}  // namespace tessaline
