#include "fft/fft_dispatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "fft/fft_kernels.h"
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

TEST(FftDispatch, OneDirectionAfterTheOtherGivesNTimesTheInput) {
  for (int32_t n = 2; n <= kLongestFft; n *= 2) {
    const std::vector<double> data = NoiseRow<double>(n);
    const std::vector<double> back = ResultOf(n, +1, ResultOf(n, -1, data));
    for (size_t i = 0; i < data.size(); ++i) ASSERT_NEAR(data[i], back[i] / n, 1e-14) << n;
  }
}

TEST(FftDispatch, LengthFourByHand) {
  const std::vector<double> second = {0, 0, 1, 0, 0, 0, 0, 0};
  EXPECT_EQ((std::vector<double>{1, 0, 1, 0, 1, 0, 1, 0}), ResultOf(4, -1, {1, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ((std::vector<double>{1, 0, 0, -1, -1, 0, 0, 1}), ResultOf(4, -1, second));
  EXPECT_EQ((std::vector<double>{1, 0, 0, 1, -1, 0, 0, -1}), ResultOf(4, +1, second));
}

TEST(FftDispatch, DirectionZeroAndAnyOtherSizeOfItCountBySign) {
  const std::vector<double> data = NoiseRow<double>(16);
  EXPECT_EQ(ResultOf(16, +1, data), ResultOf(16, 0, data));
  EXPECT_EQ(ResultOf(16, +1, data), ResultOf(16, 77, data));
  EXPECT_EQ(ResultOf(16, -1, data), ResultOf(16, INT32_MIN, data));
}

TEST(FftDispatch, RefusesOtherLengthsAndWritesNothing) {
  const std::vector<double> data = NoiseRow<double>(128);
  const std::vector<double> kept = ResultOf(128, -1, data);
  for (const int32_t n : {0, 1, 3, 6, 63, 65, 100, 129, 8191, 16384, 1 << 30, -2, -8192, INT32_MIN}) {
    EXPECT_EQ(1, FftDispatch(n, -1, data.data())) << n;
  }
  EXPECT_TRUE(std::equal(kept.begin(), kept.end(), FftResultArray));
}

TEST(FftKernels, TheDispatcherPicksTheKernelOfThatNameAndItIsAllThatRuns) {
  const std::vector<double> data = NoiseRow<double>(8192);
  const struct {
    int32_t n;
    int32_t direction;
    int32_t (*kernel)(const double*);
  } cases[] = {{4, +1, FftKernel4Pos},
               {64, -1, FftKernel64Neg},
               {256, +1, FftKernel256Pos},
               {8192, -1, FftKernel8192Neg}};
  for (const auto& [n, direction, kernel] : cases) {
    const std::vector<double> expected = ResultOf(n, direction, data);
    std::fill(std::begin(FftResultArray), std::end(FftResultArray), 7.0);
    EXPECT_EQ(0, kernel(data.data()));
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), FftResultArray)) << n;
    EXPECT_TRUE(
        std::all_of(FftResultArray + 2 * n, std::end(FftResultArray), [](double v) { return v == 7; }));
  }
}

TEST(FftComplexFloat, IsTheDoubleTransformRoundedOnce) {
  for (const uint32_t n : {4u, 8u, 32u, 64u, 128u, 512u, 2048u, 8192u}) {
    for (const bool inverse : {false, true}) {
      std::vector<float> row = NoiseRow<float>(n);
      const std::vector<double> wide(row.begin(), row.end());
      const std::vector<double> result = ResultOf(static_cast<int32_t>(n), inverse ? -1 : +1, wide);
      std::vector<double> scratch(2 * n);
      FftComplexFloat(inverse, row.data(), n, scratch.data());
      EXPECT_EQ(std::vector<float>(result.begin(), result.end()), row) << n;
      EXPECT_EQ(wide, scratch);
    }
  }
}

TEST(FftComplexFloat, LengthTwoAndUnsupportedLengthsLeaveTheRow) {
  for (const uint32_t n : {0u, 1u, 2u, 3u, 5u, 12u, 100u}) {
    const std::vector<float> before = NoiseRow<float>(n + 1);
    std::vector<float> row = before;
    std::vector<double> scratch(2 * n + 4);
    FftComplexFloat(true, row.data(), n, scratch.data());
    EXPECT_EQ(before, row) << n;
  }
}

TEST(MakeCosineTable, HoldsTheQuarterWaveAndItsEndIsNotQuiteZero) {
  uint32_t log2n = 0;
  std::array<float, 5> table{9, 9, 9, 9, 9};
  EXPECT_EQ(0, MakeCosineTable(&log2n, 8, table.data()));
  EXPECT_EQ(3u, log2n);
  EXPECT_EQ((std::array<float, 5>{1.0f, 0.70710678f, 6.123234e-17f, 9, 9}), table);

  std::vector<float> longTable((1 << 19) / 4 + 1);
  MakeCosineTable(&log2n, 1 << 19, longTable.data());
  EXPECT_EQ(19u, log2n);
  // The judge is not asked about the last entry: some C libraries' cosines are wrong so close to zero.
  for (size_t i = 0; i + 1 < longTable.size(); ++i) {
    ASSERT_FLOAT_EQ(std::cos(6.283185307179586 * i / (1 << 19)), longTable[i]) << i;
  }
  EXPECT_EQ(6.123234e-17f, longTable.back());
}

TEST(MakeCosineTable, TakesAnyLength) {
  const struct {
    int32_t n;
    uint32_t log2n;
    size_t written;
  } cases[] = {{12, 4, 4}, {11, 3, 3}, {3, 2, 1},  {2, 1, 1},   {1, 0, 1},
               {0, 0, 1},  {-3, 0, 1}, {-4, 0, 0}, {-100, 0, 0}};
  for (const auto& expected : cases) {
    uint32_t log2n = 99;
    std::array<float, 8> table;
    table.fill(9.0f);
    EXPECT_EQ(0, MakeCosineTable(&log2n, expected.n, table.data()));
    EXPECT_EQ(expected.log2n, log2n) << expected.n;
    EXPECT_EQ(expected.written, static_cast<size_t>(std::count_if(table.begin(), table.end(),
                                                                  [](float v) { return v != 9.0f; })))
        << expected.n;
    EXPECT_EQ(expected.written > 0 ? 1.0f : 9.0f, table[0]);
  }
}

}  // namespace
}  // namespace tessaline
