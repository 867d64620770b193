// How near a picture is to its original.
#pragma once

#include "samples/screens.h"

namespace tessaline::quality {

struct Nearness {
  double psnr = 0;  // dB, of 1; infinite for the same samples
  double ssim = 0;  // of the lumas, in windows of 8 x 8
};
Nearness NearnessOf(const samples::Picture& picture, const samples::Picture& original);

// dB within a part of the picture: less than `rim` pixels from the frame's sides, inside.
double PsnrOfRim(const samples::Picture& picture, const samples::Picture& original,
                 const samples::Frame& frame, int rim);
// Of the samples farther than `margin` outside the frame, those that a run left as they were.
double ShareKept(const samples::Picture& before, const samples::Picture& after, const samples::Frame& frame,
                 int margin);

// Which Gaussian comes nearest to the original, if one knew it.
struct BestBlur {
  double sigma;  // pixels
  Nearness nearness;
};
BestBlur FindBestBlur(const samples::Picture& picture, const samples::Picture& original);

// The original in the picture's range of tones: gain and offset by channel that fit best.
samples::Picture FitTone(const samples::Picture& original, const samples::Picture& picture);

}  // namespace tessaline::quality
