#include "fft/fft_dispatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "tests/fft/slow_dft.h"

namespace tessaline {
namespace {

using test::NoiseRow;
using test::WorstError;

std::vector<double> ResultOf(int32_t n, int32_t direction, const std::vector<double>& data) {
  EXPECT_EQ(0, FftDispatch(n, direction, data.data()));
  return {FftResultArray, FftResultArray + 2 * n};
}

TEST(FftDispatch, AgreesWithTheDefinitionAtEveryLengthAndReadsOnly) {
  for (int32_t n = 2; n <= kLongestFft; n *= 2) {
    const std::vector<double> data = NoiseRow<double>(n);
    const std::vector<double> before = data;
    for (const int32_t direction : {-1, +1}) {
      const std::vector<double> result = ResultOf(n, direction, data);
      // A few roundings per factor of two, whose errors add up like noise.
      EXPECT_LT(WorstError(data, result.data(), direction), 4e-16 * std::log2(n)) << n << " " << direction;
    }
    EXPECT_EQ(before, data);
  }
}

TEST(FftDispatch, RefusesOtherLengthsAndWritesNothing) {
  const std::vector<double> data = NoiseRow<double>(128);
  const std::vector<double> kept = ResultOf(128, -1, data);
  for (const int32_t n : {0, 1, 3, 6, 63, 65, 100, 129, 8191, 16384, 1 << 30, -2, -8192, INT32_MIN}) {
    EXPECT_EQ(1, FftDispatch(n, -1, data.data())) << n;
  }
  EXPECT_TRUE(std::equal(kept.begin(), kept.end(), FftResultArray));
}

}  // namespace
}  // namespace tessaline
