// The transforms of one picture, kept for masks that change while it does not: a preview that follows a
// slider goes back from them alone, a third of the way that Filter goes.
#pragma once

#include <cstdint>

#include "removal/steps.h"

namespace tessaline {

class KeptSpectra {
 public:
  // Transforms the channels; some 4 N^2 bytes each are kept. Returns 0, kUnknownPixelKind or kOutOfMemory,
  // then with nothing kept.
  int32_t Load(const PictureView& picture, Workspace& workspace);
  void Release() { *this = {}; }
  bool IsLoaded() const { return channels_ > 0; }

  // What the mask takes out of every channel, as FilteredRows take what it leaves: levels around 0. Returns
  // 0, kUnequalSizes for another mask or kOutOfMemory.
  int32_t TakeOut(const Mask& mask, Workspace& workspace, FilteredRows& rows) const;

 private:
  int32_t size_ = 0;  // N
  int32_t height_ = 0, channels_ = 0;
  OwnedBlock<float> columns_[kMostChannels];  // N / 2 + 1 columns of N complex values
};

}  // namespace tessaline
