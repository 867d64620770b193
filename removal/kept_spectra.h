// The transforms of one picture, kept for masks that change while it does not: a preview that follows a
// slider goes back from them alone, a third of the way that Filter goes.
#pragma once

#include <cstdint>

#include "removal/steps.h"

namespace tessaline {

// What a mask takes of all frequencies of pictures with one transform size: made once for all of their
// channels.
class MaskShares {
 public:
  // Takes 2 N^2 bytes. Returns 0, kUnequalSizes for another mask or kOutOfMemory.
  int32_t Fill(const Mask& mask, int32_t transformSize, Workspace& workspace);

 private:
  friend class KeptSpectra;
  int32_t size_ = 0;            // N
  OwnedBlock<float> shares_;    // N / 2 + 1 columns of N shares of 1
  OwnedBlock<uint8_t> isUsed_;  // by column: takes anything
};

class KeptSpectra {
 public:
  // Transforms the channels; some 4 N^2 bytes each are kept. Returns 0, kUnknownPixelKind or kOutOfMemory,
  // then with nothing kept.
  int32_t Load(const PictureView& picture, Workspace& workspace);
  void Release() { *this = {}; }
  bool IsLoaded() const { return channels_ > 0; }

  int32_t transformSize() const { return size_; }

  // What the mask takes out of every channel, as FilteredRows take what it leaves: levels around 0. Returns
  // 0, kUnequalSizes for shares of another transform size or kOutOfMemory.
  int32_t TakeOut(const MaskShares& shares, Workspace& workspace, FilteredRows& rows) const;

 private:
  int32_t size_ = 0;  // N
  int32_t height_ = 0, channels_ = 0;
  OwnedBlock<float> columns_[kMostChannels];  // N / 2 + 1 columns of N complex values
};

}  // namespace tessaline
