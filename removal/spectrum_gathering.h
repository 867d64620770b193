// Several pictures decided on together: the frames of a film, whose pattern is the same in all of them while
// grain and scenery are not.
//
// The magnitudes of the pictures' spectra are averaged cell by cell, each over what is usual in its own
// picture, so that a dark frame weighs as much as a bright one. What comes and goes evens out; a pattern
// stays as high as it is. (AddSpectrum sums parts of one picture as they are.)
#pragma once

#include <cstdint>

#include "removal/steps.h"

namespace tessaline {

class SpectrumGathering {
 public:
  // Takes the memory, and begins. Returns 0 or kOutOfMemory.
  int32_t Create();

  // All pictures must have the same transform size.
  void Add(const Analysis& analysis);
  int32_t pictures() const { return pictures_; }
  double meanLogSpan() const;  // of the pictures added

  // The mean of all pictures added, to decide on. Returns 0 or kOutOfMemory.
  int32_t Mean(Analysis* mean) const;

 private:
  Image sums_;    // doubles
  Image powers_;  // likewise
  int32_t pictures_ = 0;
  int32_t transformSize_ = 0;
  double logSpans_ = 0;
};

}  // namespace tessaline
