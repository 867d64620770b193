// The variance of what the notches left, which is in proportion to what they took out at the same place:
// gathered while that is at hand, then smoothed.
#pragma once

#include <cstdint>

#include "platform/progress.h"
#include "restoration/axes.h"
#include "restoration/plane.h"
#include "restoration/sample_rows.h"

namespace tessaline {

// A block's mean for every kReduction columns of a row of blocks: `sums` has the blocks' sums by column. The
// picture is so high; `part` begins with the blocks.
void KeepBlockMeans(const PixelPart& part, int32_t height, const float* sums, Plane* means);

class Noise {
 public:
  static constexpr int32_t kReduction = 8;
  static constexpr int32_t kPart = 64 * kReduction;  // pixels that are gathered at once

  // Of a part of a row of blocks, a sum for every column.
  struct Squares {
    float sums[kMostChannels][kPart] = {};
  };

  // For such pictures. False: no memory.
  bool Prepare(const PictureView& picture, const Axes& axes);

  // Adds a row of what was taken out of the channels.
  void AddRow(int32_t count, const LevelRows& taken, Squares* squares) const;
  // When all rows of the blocks were added. `part` begins with its blocks; a task a row of blocks.
  void KeepBlocks(const PixelPart& part, const Squares& squares);

  // When all blocks are there: works the noise out. `amount` scales it, 0 for none. True: stopped.
  bool Settle(float amount, const DotsLeft& left, Parallel& parallel, const Progress& progress);
  // By what rules.
  const Axes& axes() const { return axes_; }

  // Of an axis, row y of the pixels of some blocks.
  void Row(int32_t axis, int32_t y, int32_t firstBlock, int32_t blocks, float* row) const {
    EnlargeRow(noise_[axis], kReduction, y, firstBlock, blocks, row);
  }
  int32_t blocks() const { return noise_[0].width; }
  // Whether there is any in a part of the picture, or close to it.
  bool IsAny(int32_t x, int32_t y, int32_t columns, int32_t rows) const;

 private:
  Axes axes_;
  int32_t height_ = 0;          // of the picture
  Plane noise_[kMostChannels];  // variance by axis, reduced
  Plane scratch_;               // likewise
};

}  // namespace tessaline
