// Parts of rows of all of a picture's channels at once, packed rows of levels: three channels that lie side
// by side are walked through once for all of them.
#pragma once

#include <cstdint>

#include "removal/picture.h"

namespace tessaline {

// A part of a row, in pixels.
struct PixelPart {
  int32_t y, first, count;
};
using LevelRows = float* [kMostChannels];

void LoadChannels(const PictureView& picture, const PixelPart& part, const LevelRows& levels);
// Rounded to nearest.
void StoreChannels(const PictureView& picture, const PixelPart& part, const LevelRows& levels);

}  // namespace tessaline
