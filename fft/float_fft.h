// One-dimensional Fourier transforms in single precision, in place. Re-entrant.
#pragma once

#include <cstdint>

namespace tessaline {

// `data`: 2^log2n complex values, interleaved. `table`: MakeCosineTable's for the same length. Any data
// alignment. The forward transform is exp(-2 pi i m k / n), unscaled; the inverse exp(+2 pi i m k / n)
// divided by n.
void FloatFft(float* data, uint32_t log2n, const float* table);
void FloatFftInverse(float* data, uint32_t log2n, const float* table);

}  // namespace tessaline
