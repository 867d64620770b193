// Half dots along the rim of a printed picture, taken down along the edge.
//
// Where a screen ends, so does what the notches know of it, and along the edge a row of cut dots stays. The
// polish cannot tell them from the edge itself: its windows reach over it. So near the border of the gate
// every pixel looks along the line through it, of eight directions, on which the picture changes least: there
// the edge is level, and what changes is noise of a known variance.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/progress.h"
#include "restoration/axes.h"
#include "restoration/gate.h"
#include "restoration/noise.h"
#include "restoration/plane.h"
#include "restoration/taken_channels.h"

namespace tessaline {

class Rim {
 public:
  // Of the gate that the channels are taken through. False: no memory. May throw std::bad_alloc.
  bool Find(const Gate& gate, const PictureView& picture, const Axes& axes);

  // The channels change only where the gate is open. True: stopped, and nothing has changed.
  bool Smooth(const Noise& noise, const Gate& gate, Parallel& parallel, const Progress& progress,
              TakenChannels* channels);

 private:
  struct Tile {
    int32_t x, y;  // pixels
  };
  struct Patch;

  void SmoothTile(const Tile& tile, const Noise& noise, const Gate& gate, const TakenChannels& channels,
                  float* smoothed) const;
  float* SmoothedOf(int32_t tile) const;

  int32_t width_ = 0, height_ = 0;
  Axes axes_;
  Plane part_;  // 1 in blocks along the gate's border, else 0
  std::vector<Tile> tiles_;
  OwnedBlock<float> smoothed_;  // of all tiles: they look at each other's pixels as they were
};

}  // namespace tessaline
