// The transforms for AVX2 (compiled with the options set in CMakeLists.txt).
#include "fft/vector_kernels.h"

namespace tessaline {

constinit const VectorEngine kAvx2Engine = MakeVectorEngine<4, 8>();

}  // namespace tessaline
