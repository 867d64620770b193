// What a run found, in terms of the picture: the repeating patterns, one by one.
#pragma once

#include <cstdint>
#include <vector>

#include "removal/steps.h"

namespace tessaline {

// Neighbouring pattern cells of the spectrum that belong together, with the mirror-symmetric half left out:
// one repeating pattern, or one harmonic of it.
struct Notch {
  int32_t dx;  // of the strongest cell, from the zero frequency; cells
  int32_t dy;  // downwards, never positive
  double periodPixels;
  double
      angleDegrees;  // of the direction across the pattern's lines, counter-clockwise from the x axis; 0..180
  double cyclesPerPixelX;  // the frequency that the two above come from
  double cyclesPerPixelY;  // downwards
  int32_t level;           // of the strongest cell after peak enhancement, 0..32768
  int32_t aboveThreshold;  // level minus what it had to exceed
  int32_t cells;
};

// What the findings mark, highest level first. Throws std::bad_alloc.
std::vector<Notch> CollectNotches(const Analysis& analysis, const Findings& findings);

// Lines per inch at so many pixels per inch both ways.
double LinesPerInch(const Notch& notch, double pixelsPerInchX, double pixelsPerInchY);
double LinesPerInch(const SpectrumPeak& peak, double pixelsPerInchX, double pixelsPerInchY);

// Whether a peak lies on the spectrum's edge, at two pixels a period along an axis: there a pattern that the
// scan was too coarse for cannot be told from one that it was just fine enough for. The axes decide, each for
// itself: a slanting wave of 0.4 cycles a pixel both ways is sampled well although its lines are 1.8 pixels
// apart.
bool IsAtHalfTheResolution(const SpectrumPeak& peak);

}  // namespace tessaline
