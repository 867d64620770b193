// The notch mask: how much of every frequency to remove. 255 removes it, 0 keeps it.
#pragma once

#include <cstdint>

#include "image/image_view.h"

namespace tessaline {

// Turns a seed map (512 x 512 bytes, 255 or 0) in place into the finished grid mask: round notches of the
// notch radius (spectrum cells, 1..16), cleared inside the protected disc (its radius in image pixels),
// softened, zero frequency kept. Returns 0; kUnequalSizes for a map of another shape; kOutOfMemory (the map
// is then partly shaped).
int32_t ShapeNotches(const ImageView& mask, float protectionRadius, float notchRadius);

// Enlarges a 512 x 512 byte mask to N x N (N a multiple of 512, or smaller: copied as far as it reaches) by
// bilinear interpolation, grid cell c standing at column c N / 512. Returns 0; kUnequalSizes when a mask has
// another shape; kOutOfMemory.
int32_t EnlargeMask(const ConstImageView& mask, const ImageView& fullMask);

}  // namespace tessaline
