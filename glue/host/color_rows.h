// Lab and CMYK: the host's samples to the form that the filter works on, and back.
//
// Every routine works in place on a row of `pixels` interleaved pixels. 1-byte samples run 0..255, 2-byte
// samples 0..32768. The routines of a pair are not exact inverses of each other, and the two widths of CMYK
// differ in their constants and even in what they store as black. Results depend on these formulas as they
// stand; do not even them out.
//
// Same input, same bits on every platform (removal/portable_math.h).
#pragma once

#include <cstdint>

namespace tessaline {

// Lab (three samples a pixel) to a lightness and two opponent channels.
void FetchLabRow8(uint8_t* row, int32_t pixels);
void FetchLabRow16(uint16_t* row, int32_t pixels);
// And back.
void CopyBackLabRow8(uint8_t* row, int32_t pixels);
void CopyBackLabRow16(uint16_t* row, int32_t pixels);

// CMYK to three samples, packed to the front of the row: the last quarter of the row keeps what it held.
void FetchCmykRow8(uint8_t* row, int32_t pixels);
void FetchCmykRow16(uint16_t* row, int32_t pixels);
// Three samples a pixel to four, from the last pixel on: the row must have room for four samples a pixel.
void CopyBackCmykRow8(uint8_t* row, int32_t pixels);
void CopyBackCmykRow16(uint16_t* row, int32_t pixels);

}  // namespace tessaline
