// The fast transforms of 64 to 8192 values, once per instruction set.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/cpu.h"

namespace tessaline {

constexpr int kShortestVectorLog2 = 6;  // 64
constexpr int kLongestVectorLog2 = 13;  // 8192
constexpr int kColumnGroup = 8;         // one cache line of 8-byte elements
constexpr int kVectorLengths = kLongestVectorLog2 - kShortestVectorLog2 + 1;

// Part of some columns, from their first element in the plane on, and the arrays they go to. Strides in
// elements.
struct ColumnStrip {
  size_t rows;
  size_t columns;
  size_t rowStride;     // from row to row of the plane
  size_t columnStride;  // from array to array
};

// Every function by log2(length) - kShortestVectorLog2 and by direction: [0] exp(+), [1] exp(-). Any
// alignment. Where the program is fetched (kIsFetched), what no step of the removal calls is null. All
// instruction sets give the same bits: no operation is fused and every lane does what the others do.
struct VectorEngine {
  // n complex values to n complex values, natural order, unscaled. `out` may be `in`.
  void (*transform[kVectorLengths][2])(const double* in, double* out);
  // n complex values in place, with MakeCosineTable's table for n; exp(+) divides by n.
  void (*transformFloat[kVectorLengths][2])(float* data, const float* table);
  // What FftComplexFloat does, in one go: n float pairs in place, computed in doubles, unscaled.
  void (*transformWidened[kVectorLengths][2])(float* data);

  // Neighbouring columns of a plane of 8-byte elements to contiguous arrays, and back. Both counts are
  // multiples of kColumnGroup.
  void (*gatherColumns)(const ColumnStrip& strip, const uint64_t* plane, uint64_t* columns);
  void (*scatterColumns)(const ColumnStrip& strip, uint64_t* plane, const uint64_t* columns);
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
