// In-place transposition of square buffers, 32 x 32 elements at a time.
#pragma once

#include <cstdint>

#include "image/image_view.h"

namespace tessaline {

constexpr int32_t kTileSide = 32;

// Element (row, column) of an N x N image of 24-byte elements goes to (column, row). N is a multiple of 32;
// rows and columns past the last whole tile stay as they are.
void TransposeSquareColour(const ImageView& image);

}  // namespace tessaline
