// The transforms for AVX-512 (compiled with the options set in CMakeLists.txt).
#include "fft/vector_kernels.h"

namespace tessaline {

constinit const VectorEngine kAvx512Engine = MakeVectorEngine<8, 16>();

}  // namespace tessaline
