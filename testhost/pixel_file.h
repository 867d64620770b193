// Pictures as filterhost reads and writes them: PNG, and PNM and PAM for what PNG cannot say.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tessaline::testhost {

enum class ColourSpace { kGrey, kRgb, kCmyk, kLab };

constexpr int32_t ColourPlanesOf(ColourSpace space) {
  return space == ColourSpace::kGrey ? 1 : space == ColourSpace::kCmyk ? 4 : 3;
}

// Level of full intensity, by which 8-bit, host 16-bit and file 16-bit samples are told apart.
constexpr uint16_t kWhite8 = 255;
constexpr uint16_t kWhiteHost16 = 32768;
constexpr uint16_t kWhiteFile16 = 65535;

struct Picture {
  int32_t width = 0;
  int32_t height = 0;
  ColourSpace space = ColourSpace::kGrey;
  int32_t extraPlanes = 0;        // alpha and the like, behind the colour planes of each pixel
  uint16_t white = kWhite8;       // one of the three above
  std::vector<uint16_t> samples;  // interleaved, row by row, no padding

  int32_t Planes() const { return ColourPlanesOf(space) + extraPlanes; }
  size_t RowSamples() const { return static_cast<size_t>(width) * Planes(); }
};

// By content, not by name:
//   PNG       grey or RGB, with or without alpha, 8 or 16 bits; fewer bits and palettes become 8
//   PNM       P5 and P6
//   PAM       P7 with TUPLTYPE GRAYSCALE, RGB, CMYK or LAB, each also with _ALPHA; planes beyond those that
//             the type names are extra planes too
// MAXVAL of PNM and PAM is 255, 65535 (two bytes, high byte first), or 32768: levels as hosts hold them,
// which go to the filter and back without a change of scale. Throws Refusal (kUnreadable).
Picture ReadPictureFile(const std::string& path);

// By the name's extension: .png (grey and RGB, at most one extra plane; host levels are widened to the full
// range), .pam (everything), .pgm and .ppm (no extra planes). Written beside its name and then renamed.
// Throws Refusal (kCannotWrite).
void WritePictureFile(const std::string& path, const Picture& picture);

// Samples at another white level, rounded to nearest. From file 16-bit to host 16-bit and back a level is at
// most one off; 0 and white stay what they are.
std::vector<uint16_t> Rescaled(const std::vector<uint16_t>& samples, uint16_t white, uint16_t newWhite);

}  // namespace tessaline::testhost
