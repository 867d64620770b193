// Fills the part of the transform plane that the image does not cover, so that the periodic transform sees no
// jump between opposite image edges.
#pragma once

#include <cstdint>

#include "fft/real_plane.h"
#include "platform/memory.h"
#include "platform/parallel.h"

namespace tessaline {

class PaddingFill {
 public:
  // For planes of size x size and so many threads. False, and not usable, without memory.
  bool Prepare(int32_t size, int32_t workers);

  // The image stands in columns 0 .. N-1-horizontalPadding of rows 0 .. N-1-verticalPadding of the plane and
  // keeps its samples bit for bit; the paddings are 0 .. N-1. Every other sample becomes part of a smooth
  // surface that runs from each image edge to the opposite one (around the periodic border), fading towards
  // `mean`. Rows that no edge reaches are not written: they are returned, whole lines of them, as the
  // constant that they are.
  ConstantRows Fill(const RealPlane& plane, int32_t horizontalPadding, int32_t verticalPadding, float mean,
                    Parallel& parallel);

 private:
  int32_t size_ = 0;
  int32_t workers_ = 0;
  OwnedBlock<float> surface_;  // size x size; only cells near the image's edges are ever touched
  OwnedBlock<float> blurs_;
};

}  // namespace tessaline
