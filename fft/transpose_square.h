// In-place transposition of square buffers, 32 x 32 elements at a time.
#pragma once

#include <cstdint>

#include "fft/progress_steps.h"

namespace tessaline {

constexpr int32_t kTileSide = 32;

// Element (row, column) of an N x N buffer of 8-byte (TransposeSquare) or 24-byte (TransposeSquareColour)
// elements goes to (column, row). N is a multiple of 32; rows and columns past the last whole tile stay as
// they are. `fifth`: as for ReportAndAsk. Returns 0, or kUserCancelled with the buffer part-way.
int32_t TransposeSquare(int32_t slot, int32_t fifth, const ProgressSteps& steps);
int32_t TransposeSquareColour(int32_t slot, int32_t fifth, const ProgressSteps& steps);

}  // namespace tessaline
