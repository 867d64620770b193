// What happens to a picture on its way through a press, a cable or a scanner: the patterns that tessaline
// takes out. All are regular and mean-preserving: averaged over one period, the samples give back the tone of
// the original within the range of paper and ink.
#pragma once

#include <cstdint>

#include "samples/drawing.h"

namespace tessaline::samples {

struct Frame {
  int left = 0, top = 0, right = 0, bottom = 0;  // pixels; the last two are beyond it

  bool Contains(int x, int y) const { return x >= left && x < right && y >= top && y < bottom; }
};

// How a picture is printed and scanned.
struct Press {
  int inks = 1;  // black on grey, or four on white
  double linesPerInch = 85;
  double dotsPerInch = 300;
  double turn = 0;        // degrees, of the page in the scanner
  double warp = 0;        // pixels, of the sine that the screen bends by
  double gamma = 1;       // that light is stored by: dots average in light
  double noise = 0.012;   // of the sensor, a deviation
  double fibre = 0.01;    // of the paper's clouds
  double wear = 0;        // how unevenly the ink takes, as a share of the paper
  double softness = 0.7;  // pixels, a Gaussian's deviation
  bool lines = false;     // a screen of lines instead of dots
  Frame frame;            // only in it there is a screen, round it whole ink; without one everywhere
  uint64_t seed = 3;
};
struct Printed {
  Picture original;  // the same press and paper without a screen and without the scanner's noise
  Picture picture;
};
// Takes RGB, gives grey or RGB.
Printed PrintOn(const Press& press, const Picture& original);

// Black ink on newspaper, through one halftone screen at 45 degrees. Takes RGB, gives grey.
Picture PrintNewsprint(const Picture& original, double linesPerInch, double dotsPerInch);

// Cyan, magenta, yellow and black at 15, 75, 0 and 45 degrees, whose dots meet in small rosettes. RGB to RGB.
Picture PrintFourInks(const Picture& original, double linesPerInch, double dotsPerInch);

// Electrical interference: a few slanted sinusoids over all channels alike.
Picture WithLineNoise(const Picture& original);

// Scanned from paper embossed like linen: the light catches every thread.
Picture WithWeave(const Picture& original);

}  // namespace tessaline::samples
