// A noisy film with a faint pattern over it, and the film as it was before.
#pragma once

#include <string>
#include <vector>

#include "samples/drawing.h"

namespace tessaline::samples {

struct Film {
  std::vector<Picture> originals;  // grey: what the camera saw
  std::vector<Picture> frames;     // the same under pattern and grain
};

struct FilmFaults {
  double amplitude;     // of the pattern, levels of 255
  double grain;         // deviation, levels of 255
  double rollPerFrame;  // periods that the pattern moves on from frame to frame
};
constexpr FilmFaults kStandingPattern = {6.5, 1.5, 0.0};
constexpr FilmFaults kRollingPattern = {7.5, 1.5, 0.2};

// Interference in level lines, three rows a period, over a camera's slow pan along rough ground. The pattern
// is as high as the ground's own spectrum just allows to be sure of, so that a single frame now finds it and
// now does not. Up to 50 frames; the same arguments give the same film.
Film ShootFilm(int width, int height, int frames, const FilmFaults& faults);

// Frames as raw samples, one byte each.
std::string ToBytes(const std::vector<Picture>& frames);

// Deviation over time of a pixel's error, averaged over the pixels, in levels of 255. `frames` are cleaned
// frames as raw samples, one byte each.
double FlickerOf(const std::string& frames, const std::vector<Picture>& originals);

}  // namespace tessaline::samples
