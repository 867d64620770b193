// The notch mask: how much of every frequency to remove. 255 removes it, 0 keeps it.
#pragma once

#include <cstdint>

namespace tessaline {

// Builds the mask on the 512 x 512 spectrum grid and enlarges it.
//   spectrumSlot       enhanced spectrum, 512 x 512, 16-bit
//   threshold          8-bit scale, ThresholdOfAcceptance
//   protectionRadius   image pixels
//   notchRadius        spectrum cells, 1..16
//   workingMaskSlot    512 x 512 bytes that hold the finished grid mask afterwards; 0 creates "Temp Mask" for
//   the call fullMaskSlot       N x N bytes for the enlarged mask; 0 or outside 1..2047: none
// Returns 0 or the error of the step that failed (masks are left partly built).
int32_t BuildMask(int32_t spectrumSlot, float threshold, float protectionRadius, float notchRadius,
                  int32_t workingMaskSlot, int32_t fullMaskSlot);

// The same from a seed map made elsewhere: the working mask holds it (512 x 512 bytes, 255 or 0) and ends as
// the finished grid mask.
int32_t BuildMaskFromSeeds(float protectionRadius, float notchRadius, int32_t workingMaskSlot,
                           int32_t fullMaskSlot);

// The steps of both.

// Turns a seed map (512 x 512 bytes, 255 or 0) in place into the finished grid mask: round notches of the
// notch radius, cleared inside the protected disc, softened, zero frequency kept. Returns 0; kUnequalSizes
// for a map of another shape; kOutOfMemory (the map is then partly shaped).
int32_t ShapeNotches(int32_t maskSlot, float protectionRadius, float notchRadius);

// Enlarges a 512 x 512 byte mask to N x N (N a multiple of 512, or smaller: copied as far as it reaches) by
// bilinear interpolation, grid cell c standing at column c N / 512. Returns 0; kUnequalSizes when a mask has
// another shape.
int32_t EnlargeMask(int32_t maskSlot, int32_t fullMaskSlot);

}  // namespace tessaline
