// One-dimensional Fourier transforms in single precision, in place. Re-entrant.
#pragma once

#include <cstdint>

namespace tessaline {

// `data`: 2^log2n complex values, interleaved; log2n 0 to 19, 0 doing nothing. `table`: MakeCosineTable's for
// the same length. Any data alignment. The forward transform is exp(-2 pi i m k / n), unscaled; the inverse
// exp(+2 pi i m k / n) divided by n.
void FloatFft(float* data, uint32_t log2n, const float* table);
void FloatFftInverse(float* data, uint32_t log2n, const float* table);

// The same by plain loops, for every log2n from 0 to 19: what the two above do where there is no vector code
// (below 64 and above 8192 values), and the judge of that code.
void PlainFloatFft(float* data, uint32_t log2n, const float* table);
void PlainFloatFftInverse(float* data, uint32_t log2n, const float* table);

}  // namespace tessaline
