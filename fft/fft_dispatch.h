// One-dimensional discrete Fourier transforms of 2, 4, 8, ... 8192 complex values, in double precision.
#pragma once

#include <cstdint>

namespace tessaline {

constexpr int32_t kLongestFft = 8192;

// Where every transform of this header leaves its result: result k at [2k] (real) and [2k + 1] (imaginary).
// Overwritten by the next call; one thread at a time.
extern double FftResultArray[2 * kLongestFft];

// n complex values `data` (interleaved, real part first; only read) to FftResultArray, unscaled:
//   direction <  0   X[k] = sum x[m] exp(-2 pi i m k / n)
//   direction >= 0   X[k] = sum x[m] exp(+2 pi i m k / n)     (0 included)
// One direction after the other gives n times the input. Returns 0, or 1 with nothing written when n is not
// one of 2, 4, 8, ..., 8192.
int32_t FftDispatch(int32_t n, int32_t direction, const double* data);

// The same over a row of 2n floats in place. `inverse` selects the exp(-) kernels, its absence the exp(+)
// ones. `scratch` holds 2n doubles. An unsupported n leaves the data as it was, and so does n = 2.
void FftComplexFloat(bool inverse, float* data, uint32_t n, double* scratch);

// *log2n = trunc(logf(n) / logf(2) + 0.5), and table[i] = cos(2 pi i / n) for i = 0 .. n/4 (n/4 + 1 floats,
// each computed in double precision and rounded; none when n/4 is negative). Returns 0.
int32_t MakeCosineTable(uint32_t* log2n, int32_t n, float* table);

}  // namespace tessaline
