// One-dimensional transforms of rows of one length with one of the two engines.
#pragma once

#include <cstdint>

#include "platform/memory.h"

namespace tessaline {

enum class Direction { kForward, kInverse };
enum class Precision { kSingle, kDouble };  // of the arithmetic; values are floats either way

class RowTransform {
 public:
  // Takes the tables and the scratch of both directions. False: no memory.
  bool Prepare(int32_t length, Precision precision);

  // `row`: `length` complex values, in place. Lengths that have no transform leave the row as it is.
  void operator()(float* row, Direction direction) const;

 private:
  uint32_t length_ = 0;
  uint32_t log2Length_ = 0;
  bool useDoubleKernels_ = false;
  // By direction, as FftComplexFloat but in one go; null where there is none for the length.
  void (*widened_[2])(float* row) = {};
  OwnedBlock<double> scratch_;
  OwnedBlock<float> table_;
};

}  // namespace tessaline
