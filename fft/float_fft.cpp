#include "fft/float_fft.h"

#include <cstddef>
#include <utility>

#include "fft/vector_engine.h"

namespace tessaline {

namespace {

// exp(2 pi i j / n), 0 <= j < n / 2, from the quarter wave.
struct Root {
  float cosine;
  float sine;
};

Root RootFromTable(const float* table, uint32_t n, uint32_t j) {
  const uint32_t quarter = n / 4;
  if (j <= quarter) return {table[j], table[quarter - j]};
  return {-table[2 * quarter - j], table[j - quarter]};
}

void ReorderByReversedBits(float* data, uint32_t log2n) {
  const uint32_t n = uint32_t{1} << log2n;
  uint32_t reversed = 0;
  for (uint32_t i = 0; i < n; ++i) {
    if (i < reversed) {
      std::swap(data[2 * i], data[2 * reversed]);
      std::swap(data[2 * i + 1], data[2 * reversed + 1]);
    }
    // Add one to the reversed number: the carry runs downwards.
    uint32_t bit = n >> 1;
    for (; (reversed & bit) != 0; bit >>= 1) reversed ^= bit;
    reversed |= bit;
  }
}

// Sign: of the exponent.
template <int Sign>
void TransformInPlace(float* data, uint32_t log2n, const float* table) {
  const uint32_t n = uint32_t{1} << log2n;
  ReorderByReversedBits(data, log2n);
  for (uint32_t half = 1; half < n; half *= 2) {
    for (uint32_t j = 0; j < half; ++j) {
      Root w{1.0f, 0.0f};
      if (j > 0) w = RootFromTable(table, n, j * (n / (2 * half)));
      const float sine = Sign > 0 ? w.sine : -w.sine;
      for (uint32_t first = j; first < n; first += 2 * half) {
        float* const a = data + 2 * size_t{first};
        float* const b = a + 2 * size_t{half};
        const float re = b[0] * w.cosine - b[1] * sine;
        const float im = b[1] * w.cosine + b[0] * sine;
        b[0] = a[0] - re;
        b[1] = a[1] - im;
        a[0] += re;
        a[1] += im;
      }
    }
  }
}

bool HasVectorCode(uint32_t log2n) {
  return log2n >= kShortestVectorLog2 && log2n <= kLongestVectorLog2;
}

}  // namespace

void PlainFloatFft(float* data, uint32_t log2n, const float* table) {
  TransformInPlace<-1>(data, log2n, table);
}

void PlainFloatFftInverse(float* data, uint32_t log2n, const float* table) {
  const uint32_t n = uint32_t{1} << log2n;
  const auto scale = static_cast<float>(1.0 / n);
  for (size_t i = 0; i < 2 * size_t{n}; ++i) data[i] *= scale;
  TransformInPlace<+1>(data, log2n, table);
}

void FloatFft(float* data, uint32_t log2n, const float* table) {
  if (!HasVectorCode(log2n)) return PlainFloatFft(data, log2n, table);
  activeVectorEngine->transformFloat[log2n - kShortestVectorLog2][1](data, table);
}

void FloatFftInverse(float* data, uint32_t log2n, const float* table) {
  if (!HasVectorCode(log2n)) return PlainFloatFftInverse(data, log2n, table);
  activeVectorEngine->transformFloat[log2n - kShortestVectorLog2][0](data, table);
}

}  // namespace tessaline
