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

TEST(FloatFft, AgreesWithThePlainLoops) {
  for (uint32_t log2n = 6; log2n <= 13; ++log2n) {
    const size_t n = size_t{1} << log2n;
    const std::vector<float> table = TableFor(log2n);
    const std::vector<float> data = NoiseRow<float>(n);
    std::vector<float> plain = data;
    std::vector<float> fast = data;
    PlainFloatFft(plain.data(), log2n, table.data());
    FloatFft(fast.data(), log2n, table.data());
    for (size_t i = 0; i < 2 * n; ++i) ASSERT_NEAR(plain[i], fast[i], 2e-6 * std::sqrt(n)) << n;
    PlainFloatFftInverse(plain.data(), log2n, table.data());
    FloatFftInverse(fast.data(), log2n, table.data());
    for (size_t i = 0; i < 2 * n; ++i) ASSERT_NEAR(plain[i], fast[i], 4e-6) << n;
  }
}

TEST(FloatFft, ForwardThenInverseReturnsTheRowUpToTheLongestLength) {
  for (const uint32_t log2n : {1u, 2u, 4u, 5u, 9u, 13u, 16u, 19u}) {
    const std::vector<float> table = TableFor(log2n);
    const std::vector<float> data = NoiseRow<float>(size_t{1} << log2n);
    std::vector<float> row = data;
    FloatFft(row.data(), log2n, table.data());
    FloatFftInverse(row.data(), log2n, table.data());
    for (size_t i = 0; i < data.size(); ++i) ASSERT_NEAR(data[i], row[i], 4e-6) << log2n << " " << i;
  }
}

TEST(FloatFft, ImpulseGivesOnesAndTheInverseItsShare) {
  for (uint32_t log2n = 1; log2n <= 13; ++log2n) {
    const size_t n = size_t{1} << log2n;
    const std::vector<float> table = TableFor(log2n);
    std::vector<float> impulse(2 * n);
    impulse[0] = 1.0f;
    std::vector<float> row = impulse;
    FloatFft(row.data(), log2n, table.data());
    for (size_t k = 0; k < n; ++k) ASSERT_TRUE(row[2 * k] == 1.0f && std::fabs(row[2 * k + 1]) < 1e-15f) << n;
    row = impulse;
    FloatFftInverse(row.data(), log2n, table.data());
    for (size_t k = 0; k < n; ++k) ASSERT_EQ(1.0f / static_cast<float>(n), row[2 * k]);
  }
}

TEST(FloatFft, TakesAnyAlignmentAndStaysInsideTheRow) {
  for (const uint32_t log2n : {1u, 3u, 4u, 7u, 10u, 13u}) {
    const size_t n = size_t{1} << log2n;
    const std::vector<float> table = TableFor(log2n);
    const std::vector<float> data = NoiseRow<float>(n);
    std::vector<float> aligned = data;
    FloatFft(aligned.data(), log2n, table.data());
    std::vector<float> shifted(2 * n + 2, 5.0f);
    std::copy(data.begin(), data.end(), shifted.begin() + 1);
    FloatFft(shifted.data() + 1, log2n, table.data());
    EXPECT_TRUE(std::equal(aligned.begin(), aligned.end(), shifted.begin() + 1)) << n;
    EXPECT_EQ(5.0f, shifted.front());
    EXPECT_EQ(5.0f, shifted.back());
  }
}

TEST(FloatFft, LengthOneIsItself) {
  float value[2] = {3.0f, 4.0f};
  const float table[1] = {1.0f};
  FloatFft(value, 0, table);
  FloatFftInverse(value, 0, table);
  EXPECT_EQ(3.0f, value[0]);
  EXPECT_EQ(4.0f, value[1]);
}

}  // namespace
}  // namespace tessaline
