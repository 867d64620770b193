// Finds the cells of the 512 x 512 log spectrum that belong to a repeating pattern.
#pragma once

#include <cstdint>

#include "removal/spectrum_grid.h"

namespace tessaline {

// The zero-sum kernel that keeps narrow bright points and pulls smooth energy to 0, row by row.
extern const float kPeakKernel[49];

// Replaces every sample by the weighted sum of its 7 x 7 neighbourhood (`weights` row by row), channels
// apart, accumulated in single precision tap after tap; edge rows and columns repeat. Results are clamped to
// the kind's range and truncated. Kinds: 1, 2, 3 and 6 bytes per pixel. Returns 0; kUnknownPixelKind for
// another kind; kOutOfMemory. The image is unchanged on an error.
int32_t EnhanceSpectrum(const ImageView& image, const float weights[49]);

// The 8-bit threshold of an acceptance in percent: 255 at 0 %, 127.5 at 100 %.
float ThresholdOfAcceptance(float acceptancePercent);
float AcceptanceOfThreshold(float threshold);
// The same on the 16-bit scale, as cells are compared with it: 32768 at 0 %, 16384 at 100 %.
int32_t HostThreshold(float threshold);

// Radius in spectrum cells of the protected disc for a protection radius in image pixels. Radii of 127.9 and
// more count as 127.9, so the disc never falls below 2 cells. The rim (distance equal to the radius) is not
// protected.
float ProtectedDiscRadius(float protectionRadius);

// Fills the seed map (512 x 512, 1 byte per cell: 255 pattern, 0 keep; or 2 bytes: 32768, 0) from the
// enhanced spectrum (512 x 512, 16-bit): cells outside the protected disc whose value is strictly above the
// threshold. Rows 0..256 decide; row 512 - y copies row y mirrored, so a peak always takes its partner along.
// Returns 0; kUnequalSizes, map unchanged, when an image has another shape.
int32_t DetectPeaks(const ConstImageView& spectrum, float threshold, float protectionRadius,
                    const ImageView& seeds);

}  // namespace tessaline
