// The loops for any processor.
#include "platform/cpu.h"
#include "restoration/row_kernels_impl.h"

namespace tessaline {

constinit const RowKernels kBaselineRowKernels = MakeRowKernels();

const RowKernels& ActiveRowKernels() {
  if constexpr (kHasWiderVectors) {
    static const RowKernels* const kByLevel[] = {&kBaselineRowKernels, &kAvx2RowKernels, &kAvx512RowKernels};
    static const RowKernels& active = *kByLevel[static_cast<int>(DetectVectorLevel())];
    return active;
  }
  return kBaselineRowKernels;
}

}  // namespace tessaline
