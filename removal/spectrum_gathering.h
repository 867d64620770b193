// Several pictures decided on together: the frames of a film, whose pattern is the same in all of them while
// grain and scenery are not.
//
// The magnitudes of the pictures' spectra are averaged cell by cell, each over what is usual in its own
// picture, so that a dark frame weighs as much as a bright one. What comes and goes evens out; a pattern
// stays as high as it is.
#pragma once

#include <cstdint>

#include "buffers/buffer_table.h"
#include "removal/removal_run.h"

namespace tessaline {

class SpectrumGathering {
 public:
  // Takes the memory, and begins. Returns 0 or kOutOfMemory.
  int32_t Create();
  // Forgets the pictures that were added.
  void Clear();

  // During a run's detect call. All pictures must have the same transform size.
  void Add(const SpectrumFacts& spectrum);
  int32_t pictures() const { return pictures_; }
  double meanLogSpan() const;  // of the pictures added

  // The mean of all pictures added, as a run hands a spectrum to a detector; valid until the next call of
  // Clear, Add or this. Returns 0 or kOutOfMemory.
  int32_t Mean(SpectrumFacts* mean);

 private:
  OwnedBuffer sums_;       // doubles
  OwnedBuffer rawGray16_;  // made from them by Mean()
  OwnedBuffer gray16_;
  int32_t pictures_ = 0;
  int32_t transformSize_ = 0;
  double logSpans_ = 0;
};

}  // namespace tessaline
