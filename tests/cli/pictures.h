// Pictures for the tests: drawn with a screen, written and read through the picture library.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/vips_library.h"

namespace tessaline::cli {

struct Picture {
  int width = 0;
  int height = 0;
  int channels = 0;
  int bits = 8;
  std::vector<uint16_t> samples;  // interleaved

  uint16_t At(int x, int y, int channel) const {
    return samples[static_cast<size_t>((y * width + x) * channels + channel)];
  }
  std::vector<uint16_t> Channel(int channel) const;
  friend bool operator==(const Picture&, const Picture&) = default;
};

// What the screen of DrawScreen repeats by, in both diagonal directions.
constexpr double kScreenPeriod = 3.75;
// Levels of its amplitude, drawn and after the run: a notch is soft, so that a single peak goes by some four
// fifths.
constexpr double kDrawn = 40;
constexpr double kGone = 10;
// An acceptance at which it is found.
constexpr const char* kFindingAcceptance = "97";

// A soft gradient with grain under a screen in the colour channels; extra channels get a ramp. The same
// arguments give the same samples.
Picture DrawScreen(int colours, int extras, int bits, int width = 400, int height = 300);
// The same without the screen, grey.
Picture DrawUnscreened();

// Amplitude of the screen in a channel, in levels of 0..255.
double ScreenAmplitude(const Picture& picture, int channel);

using ImagePointer = GPointer<VipsImage>;
ImagePointer ImageOf(const Picture& picture);

// By the extension; `options` as the library has them, "[Q=80]".
void Save(const Picture& picture, const std::string& path, const std::string& options = "");
void Save(const ImagePointer& image, const std::string& path, const std::string& options = "");

ImagePointer Open(const std::string& path, const std::string& options = "");
Picture Load(const std::string& path, const std::string& options = "");

}  // namespace tessaline::cli
