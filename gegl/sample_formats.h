// Between babl's formats, of which there are hundreds, and the few that pictures are cleaned in.
#pragma once

#include <babl/babl.h>

#include <cstdint>
#include <vector>

#include "include/tessaline/tessaline.h"

namespace tessaline::gegl {

// What a picture is read, cleaned and written in: grey or RGB, with alpha (not multiplied in) or without, in
// the picture's own colour space.
//
// Levels are coded as files code them, by the space's curve or, where the picture holds light or something
// else, by sRGB's: what the decision knows of levels, of noise and of what the eye sees was measured on such.
struct SampleFormat {
  const Babl* babl = nullptr;
  int32_t samples = TESSALINE_FLOAT32;  // TESSALINE_UINT8 ...
  int32_t colours = 3;                  // 1 or 3
  int32_t channels = 3;                 // with alpha
  int32_t sampleBytes = 4;

  size_t PixelBytes() const { return static_cast<size_t>(channels) * static_cast<size_t>(sampleBytes); }
};

// 8 and 16 bits where the picture is already coded so, else float, which holds what anything else holds.
SampleFormat SampleFormatFor(const Babl* picture);

// What comes out where that goes in: the same, but for palettes, whose colours results do not have. Null, for
// a format that is not known: RGB with alpha, float.
const Babl* OutputFormatFor(const Babl* picture);

// Light, 0..1, of levels evenly spaced from black to white. Empty where the space is that of sRGB: pictures
// that do not say how they are coded have it as well, and to take levels for light where they are not does
// more harm (black rings in dark places) than the other way round (screened tones a little darker).
std::vector<float> ToldLightCurve(const SampleFormat& format);

}  // namespace tessaline::gegl
