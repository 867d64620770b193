// From transformed planes to the 512 x 512 spectrum image that detection and display work on.
#pragma once

#include <cstdint>

namespace tessaline {

// Adds the magnitudes of a centred spectrum (N x N complex, N a multiple of 512) to the 512 x 512 doubles of
// `sumSlot`: every cell takes the D x D block that it stands for, D = N / 512. Square roots in single
// precision, sums in double.
void AccumulateMagnitudes(int32_t planeSlot, int32_t sumSlot);

// Scales the sums by their logarithm to 0..32768 in the 16-bit `gray16Slot`. Minimum and maximum are those
// outside row and column 256, the cross through the zero frequency; every cell is scaled. Returns the natural
// log of maximum over minimum; when that is 0 (nothing to scale by) the image becomes all zero. A minimum of
// 0 counts as the smallest normal double.
double ScaleSpectrumByLog(int32_t sumSlot, int32_t gray16Slot);

}  // namespace tessaline
