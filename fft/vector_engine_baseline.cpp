// The transforms for any x86-64.
#include "fft/vector_kernels.h"

namespace tessaline {

constinit const VectorEngine kBaselineEngine = MakeVectorEngine<2, 4>();

}  // namespace tessaline
