// What happens to a picture on its way through a press, a cable or a scanner: the patterns that tessaline
// takes out. All are regular and mean-preserving: averaged over one period, the samples give back the tone of
// the original within the range of paper and ink.
#pragma once

#include "samples/drawing.h"

namespace tessaline::samples {

// Black ink on newspaper, through one halftone screen at 45 degrees. Takes RGB, gives grey.
Picture PrintNewsprint(const Picture& original, double linesPerInch, double dotsPerInch);

// Cyan, magenta, yellow and black at 15, 75, 0 and 45 degrees, whose dots meet in small rosettes. RGB to RGB.
Picture PrintFourInks(const Picture& original, double linesPerInch, double dotsPerInch);

// Electrical interference: a few slanted sinusoids over all channels alike.
Picture WithLineNoise(const Picture& original);

// Scanned from paper embossed like linen: the light catches every thread.
Picture WithWeave(const Picture& original);

}  // namespace tessaline::samples
