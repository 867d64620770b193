// The fast transforms of 64 to 8192 values, once per instruction set.
#pragma once

#include "platform/cpu.h"

namespace tessaline {

constexpr int kShortestVectorLog2 = 6;  // 64
constexpr int kLongestVectorLog2 = 13;  // 8192
constexpr int kVectorLengths = kLongestVectorLog2 - kShortestVectorLog2 + 1;

// Every function by log2(length) - kShortestVectorLog2 and by direction: [0] exp(+), [1] exp(-). Any
// alignment. All instruction sets give the same bits: no operation is fused and every lane does what the
// others do.
struct VectorEngine {
  // n complex values to n complex values, natural order, unscaled. `out` may be `in`.
  void (*transform[kVectorLengths][2])(const double* in, double* out);
  // n complex values in place, with MakeCosineTable's table for n; exp(+) divides by n.
  void (*transformFloat[kVectorLengths][2])(float* data, const float* table);
};

// The engine for `level`, which must not exceed DetectVectorLevel().
const VectorEngine& VectorEngineFor(VectorLevel level);

// The one for this processor. Constant once static initialisation is over; during it, possibly the baseline
// one.
extern const VectorEngine* activeVectorEngine;

// One per instruction set; reached through VectorEngineFor.
extern const VectorEngine kBaselineEngine;
extern const VectorEngine kAvx2Engine;
extern const VectorEngine kAvx512Engine;

}  // namespace tessaline
