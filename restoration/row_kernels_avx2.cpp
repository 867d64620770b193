// The loops for AVX2 (compiled with the options set in CMakeLists.txt).
#include "restoration/row_kernels_impl.h"

namespace tessaline {

constinit const RowKernels kAvx2RowKernels = MakeRowKernels();

}  // namespace tessaline
