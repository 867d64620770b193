#include "removal/padding_chain.h"

#include <algorithm>
#include <bit>

#include "fft/vector_engine.h"

namespace tessaline {

void PaddingChain::LeaveSpectrum(const RealTransform& transform, int32_t width) {
  const int32_t n = transform.size();
  const double* const row = transform.firstRowSpectrum();
  remainder = 0.0;
  for (int32_t place = width; place < n; ++place) {
    const int32_t kx = place - n / 2;
    remainder += row[2 * (kx < 0 ? -kx : kx)];  // the real part is the same on both sides
  }
  remainder *= n;
}

void PaddingChain::LeaveResult(const RealTransform& transform, const NotchFilter& filter, int32_t width,
                               double* scratch) {
  const int32_t n = transform.size();
  const double* const sums = transform.columnSumSpectrum();
  for (int32_t kx = 0; kx <= n / 2; ++kx) {
    const double factor = filter.FactorOnRowZero(kx);
    scratch[2 * kx] = sums[2 * kx] * factor;
    scratch[2 * kx + 1] = sums[2 * kx + 1] * factor;
    if (kx == 0 || 2 * kx == n) continue;
    scratch[2 * (n - kx)] = scratch[2 * kx];
    scratch[2 * (n - kx) + 1] = -scratch[2 * kx + 1];
  }
  const int log2Size = std::countr_zero(static_cast<uint32_t>(n));
  activeVectorEngine->transform[log2Size - kShortestVectorLog2][0](scratch, scratch);
  remainder = 0.0;
  for (int32_t x = width; x < n; ++x) remainder += scratch[2 * x];
  remainder /= n;
}

}  // namespace tessaline
