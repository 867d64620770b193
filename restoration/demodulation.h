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
#include "restoration/sample_rows.h"

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

// By carrier, which of a picture's channels it is looked for in.
using CarrierChannels = std::vector<int32_t>;

class Demodulation {
 public:
  // For pictures of that size with so many channels; hop is 4 or 8. Planes are made in `lent` as far as it
  // goes. False: no memory. May throw std::bad_alloc.
  bool Prepare(int32_t width, int32_t height, int32_t channels, int32_t hop,
               const std::vector<Carrier>& carriers, int32_t threads, PlaneMemory* lent);

  // What is to be measured, one after the other, so that no carrier is missed where it is strong, by some of
  // the picture's rows: each carrier in the channel that it is strongest in, or all carriers in each of the
  // channels where one of them is in different inks at different places. To be asked before Measure.
  std::vector<CarrierChannels> ChannelsToMeasure(const PictureView& picture, Parallel& parallel);

  // `sigma`, in pixels: of the Gaussian that tells a channel's slow changes. True: stopped.
  bool Measure(const PictureView& picture, const CarrierChannels& channels, double sigma, Parallel& parallel,
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

  // Some rows of blocks, and a chunk of their columns.
  struct Part {
    int32_t firstRow, endRow, firstColumn;
  };
  // The carriers that are looked for in a channel.
  struct ChannelCarriers {
    int32_t channel;
    std::vector<int32_t> carriers;
    std::vector<CarrierWindow> windows;
  };

  void Distribute(const CarrierChannels& channels);
  void LoadRow(const PictureView& picture, int32_t y, int32_t firstColumn, float* memory) const;
  void MeasurePart(const PictureView& picture, const Part& part, float* memory);
  void SmoothSlow(int32_t channel, double sigma, Parallel& parallel);
  void SettleRow(int32_t carrier, int32_t channel, int32_t y);
  float* Window(float* memory, size_t index) const { return memory + index * windowFloats_; }

  int32_t window_ = 0;  // of kReductionWindows
  int32_t hop_ = 0, windowSide_ = 0, columns_ = 0, rows_ = 0, chunks_ = 0;
  int32_t width_ = 0, height_ = 0;
  size_t windowFloats_ = 0, threadFloats_ = 0;
  std::vector<ChannelCarriers> looked_;
  std::vector<CarrierWindow> windows_;
  std::vector<CarrierTables> tables_;
  std::vector<Plane> real_, imaginary_;
  Plane slow_[kMostChannels], scratch_;
  OwnedBlock<float> memory_;  // of every thread
};

}  // namespace tessaline
