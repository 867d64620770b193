#include "fft/float_fft.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "fft/fft_dispatch.h"
#include "tests/fft/slow_dft.h"

namespace tessaline {
namespace {

using test::NoiseRow;
using test::WorstError;

std::vector<float> TableFor(uint32_t log2n) {
  std::vector<float> table((size_t{1} << log2n) / 4 + 1);
  uint32_t log2 = 0;
  MakeCosineTable(&log2, int32_t{1} << log2n, table.data());
  EXPECT_EQ(log2n, log2);
  return table;
}

TEST(FloatFft, AgreesWithTheDefinitionAtEveryLength) {
  for (uint32_t log2n = 1; log2n <= 14; ++log2n) {
    const std::vector<float> table = TableFor(log2n);
    const std::vector<float> data = NoiseRow<float>(size_t{1} << log2n);
    std::vector<float> row = data;
    FloatFft(row.data(), log2n, table.data());
    EXPECT_LT(WorstError(data, row.data(), -1), 2.5e-7 * log2n) << log2n;
    row = data;
    FloatFftInverse(row.data(), log2n, table.data());
    EXPECT_LT(WorstError(data, row.data(), +1, 1.0L / (1 << log2n)), 2.5e-7 * log2n) << log2n;
  }
}

}  // namespace
}  // namespace tessaline
