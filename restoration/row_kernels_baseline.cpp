// The loops for any processor.
#include "platform/cpu.h"
#include "restoration/row_kernels_impl.h"

namespace tessaline {

constinit const RowKernels kBaselineRowKernels = MakeRowKernels();

const RowKernels& ActiveRowKernels() {
  if constexpr (kHasWiderVectors) {
    if (DetectVectorLevel() != VectorLevel::kBaseline) return kAvx2RowKernels;
  }
  return kBaselineRowKernels;
}

}  // namespace tessaline
