// The loops for any processor.
#include "platform/cpu.h"
#include "restoration/row_kernels_impl.h"

namespace tessaline {

constinit const RowKernels kBaselineRowKernels = MakeRowKernels();

const RowKernels& ActiveRowKernels() {
  static const RowKernels& active =
      DetectVectorLevel() == VectorLevel::kBaseline ? kBaselineRowKernels : kAvx2RowKernels;
  return active;
}

}  // namespace tessaline
