// What the notches left, taken down near what they took.
//
// A screen's sidebands reach beyond its notches, as a faint mesh round every edge. What remains is in
// proportion to what was taken out at the same place, so its variance is known, and a local Wiener filter
// over a few pixels takes it for noise. Where nothing was taken out nothing changes.
#pragma once

#include <cstdint>

#include "platform/progress.h"
#include "removal/picture.h"
#include "restoration/axes.h"
#include "restoration/noise.h"
#include "restoration/taken_channels.h"

namespace tessaline {

class Polish {
 public:
  // False: no memory.
  bool Prepare(const Axes& axes, int32_t threads);

  // Polishes what remains, as far as the gate is open, into the picture, of which no sample is looked at.
  void Store(const TakenChannels& channels, const Noise& noise, const Gate& gate, Parallel& parallel,
             const PictureView& picture, const Progress& progress) const;

 private:
  struct Tile;

  void StorePlainly(const Tile& tile) const;
  void StoreTile(const Tile& tile) const;
  void LoadRow(const Tile& tile, int32_t y) const;
  void MeasureGains(const Tile& tile, int32_t axis, int32_t y) const;
  void StoreRow(const Tile& tile, int32_t y) const;

  Axes axes_;
  OwnedBlock<float> memory_;  // of every thread
};

}  // namespace tessaline
