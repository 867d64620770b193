// The tone of a print, kept as light.
//
// Dots of ink average in light. Notches average the levels that a scan is coded in, which darkens every
// screened tone; but the sidebands that they leave are fainter in levels than in light, whose dark tones a
// coding spreads. So levels are filtered, and then as much is added as gives back the light that the scan has
// round each pixel:
//
//   level(G * light(scan)) - level(G * light(what remains)),  G a Gaussian of 8 pixels.
#pragma once

#include <cstdint>

#include "platform/parallel.h"
#include "removal/picture.h"
#include "removal/tone_curve.h"
#include "restoration/noise.h"
#include "restoration/plane.h"
#include "restoration/sample_rows.h"

namespace tessaline {

class Tone {
 public:
  // Of a part of a row of blocks, sums of light for every column.
  struct Sums {
    float before[kMostChannels][Noise::kPart] = {}, after[kMostChannels][Noise::kPart] = {};
  };

  // For such pictures; without a curve there is nothing to do. False: no memory.
  bool Prepare(const PictureView& picture, const ToneCurve* curve);
  bool IsKept() const { return curve_ != nullptr; }

  // Adds a row of levels and of what was taken out of them.
  void AddRow(int32_t count, const LevelRows& levels, const LevelRows& taken, Sums* sums) const;
  // When all rows of the blocks were added. `part` begins with its blocks; a task a row of blocks.
  void KeepBlocks(const PixelPart& part, const Sums& sums);

  // When all blocks are there.
  void Settle(Parallel& parallel);
  // Then what is to be added to a channel, for row y of the pixels of some blocks.
  void Row(int32_t channel, int32_t y, int32_t firstBlock, int32_t blocks, float* row) const {
    EnlargeRow(before_[channel], Noise::kReduction, y, firstBlock, blocks, row);
  }

 private:
  const ToneCurve* curve_ = nullptr;
  int32_t channels_ = 0, height_ = 0;
  Plane before_[kMostChannels], after_[kMostChannels];  // light, reduced; then before_ has what is added
  Plane scratch_;
};

}  // namespace tessaline
