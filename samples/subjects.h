// What else stands before a camera or on a page: pictures without a screen, many of them with a regularity of
// their own that is to stay.
#pragma once

#include <cstdint>

#include "samples/drawing.h"

namespace tessaline::samples {

// Shaded balls and boxes of all sizes over rough ground, in colour, with hard edges.
Picture DrawStillLife(int width, int height, uint64_t seed);

// Grain of nature, grey: sand, hair, water, bark ...
struct Texture {
  double acrossScale, downScale;  // of the noise, per pixel
  int octaves;
  double ridges = 0;  // 1: its middle values stand out as ridges
  double swirl = 0;   // pixels that it is bent by
  double contrast = 1;
};
Picture DrawTexture(int width, int height, const Texture& texture);

// What people build and weave: the same thing again and again.
enum class Repeat { kFence, kBricks, kWindows, kCloth, kBlinds, kTiles };
struct Repeats {
  Repeat what;
  double period;           // pixels, in the middle of the view
  double perspective = 0;  // by how much the far side is smaller, 0 .. 1
  double turn = 0;         // degrees
  double folds = 0;        // pixels that cloth is bent by
};
Picture DrawRepeats(int width, int height, const Repeats& repeats);

// Letters or digits, black on white, in lines or in columns of a sheet.
struct Writing {
  double spacing;        // pixels from line to line
  bool digits = false;   // fixed width, in a sheet
  double turn = 0;       // degrees, of the page in the scanner
  double noise = 0.012;  // of the scanner
};
Picture DrawWriting(int width, int height, const Writing& writing);
// The picture within the frame, letters of that spacing round it; RGB.
Picture OnPage(const Picture& picture, int width, int height, int left, int top, double spacing);

Picture DrawBarcodes(int width, int height, double module);
// A slope of tones from corner to corner, with a sensor's noise.
Picture DrawGradient(int width, int height, double noise);
// Spokes or rings round the middle.
Picture DrawSpokes(int width, int height, double spokes, double ringPeriod);

// `factor` times larger, bilinear.
Picture Enlarged(const Picture& picture, double factor);
// Noise that grows with the light, through a sensor that sees one colour a pixel where `isMosaic`.
Picture AsShot(const Picture& picture, double noise, bool isMosaic);

}  // namespace tessaline::samples
