// The loops for AVX-512 (compiled with the options set in CMakeLists.txt).
#include "restoration/row_kernels_impl.h"

namespace tessaline {

constinit const RowKernels kAvx512RowKernels = MakeRowKernels();

}  // namespace tessaline
