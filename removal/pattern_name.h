// What a decision took for its pattern, as one says it.
#pragma once

#include <string>
#include <vector>

#include "removal/notches.h"

namespace tessaline {

// "an 87.0 lpi screen at 45 deg", "87.0 lpi screens at 15, 45 and 75 deg", "a line pattern of period 4.79 px
// at 99 deg", "offsets of rows and columns". A screen repeats in two directions square to each other and its
// angle is below 90; lines per inch where the resolution is known.
struct PatternName {
  std::string text;
  bool isPlural = false;
};

// By the licensed peaks that were used, highest first, as fine as the notches (CollectNotches) know them;
// without such a peak it is "a pattern". Pixels per inch both ways, 0 where nobody knows. May throw
// std::bad_alloc.
PatternName NamePattern(const std::vector<SpectrumPeak>& peaks, const std::vector<Notch>& notches,
                        double pixelsPerInchX, double pixelsPerInchY);

}  // namespace tessaline
