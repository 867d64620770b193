#include "fft/vector_engine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "fft/fft_dispatch.h"
#include "fft/float_fft.h"
#include "fft/unit_roots.h"
#include "tests/fft/slow_dft.h"

namespace tessaline {
namespace {

using test::NoiseRow;

std::vector<float> TableFor(int32_t n) {
  std::vector<float> table(static_cast<size_t>(n) / 4 + 1);
  uint32_t log2n = 0;
  MakeCosineTable(&log2n, n, table.data());
  return table;
}

// Calls `work` from a frame moved down by `bytes`.
template <typename Work>
[[gnu::noinline]] void CallFromLowerFrame(size_t bytes, const Work& work) {
  void* const gap = __builtin_alloca(bytes + 1);
  asm volatile("" : : "r"(gap) : "memory");  // keeps the gap
  work();
}

// GCC for Windows aligns a function's frame to 16 bytes only, yet spills 32- and 64-byte vectors into it with
// moves that demand their full alignment. Whether that crashes depends on where the frame happens to lie:
// every kernel is called from frames at all four places modulo 64, so a build that has lost the assembler
// option against it (cmake/TessalineRooms.cmake) dies here.
TEST(VectorEngine, EveryInstructionSetGivesTheSameBitsFromEveryFrame) {
  const VectorEngine& judge = VectorEngineFor(VectorLevel::kBaseline);
  for (const VectorLevel level : {VectorLevel::kBaseline, VectorLevel::kAvx2, VectorLevel::kAvx512}) {
    if (level > DetectVectorLevel()) continue;
    const VectorEngine& engine = VectorEngineFor(level);
    for (int index = 0; index < kVectorLengths; ++index) {
      const int32_t n = 1 << (index + kShortestVectorLog2);
      const std::vector<double> data = NoiseRow<double>(n);
      const std::vector<float> table = TableFor(n);
      for (const int direction : {0, 1}) {
        std::vector<double> expected(2 * n);
        std::vector<float> expectedRow = NoiseRow<float>(n);
        judge.transform[index][direction](data.data(), expected.data());
        judge.transformFloat[index][direction](expectedRow.data(), table.data());
        for (size_t shift = 0; shift < 64; shift += 16) {
          std::vector<double> result(2 * n);
          std::vector<float> row = NoiseRow<float>(n);
          CallFromLowerFrame(shift, [&] {
            engine.transform[index][direction](data.data(), result.data());
            engine.transformFloat[index][direction](row.data(), table.data());
          });
          EXPECT_TRUE(expected == result && expectedRow == row) << n << " " << static_cast<int>(level);
        }
      }
    }
  }
}

TEST(FftDispatch, RefusesOtherLengthsAndWritesNothing) {
  const std::vector<double> data = NoiseRow<double>(128);
  ASSERT_EQ(0, FftDispatch(128, -1, data.data()));
  const std::vector<double> kept(FftResultArray, FftResultArray + 256);
  for (const int32_t n : {0, 1, 3, 6, 63, 65, 100, 129, 8191, 16384, 1 << 30, -2, -8192, INT32_MIN}) {
    EXPECT_EQ(1, FftDispatch(n, -1, data.data())) << n;
  }
  EXPECT_TRUE(std::equal(kept.begin(), kept.end(), FftResultArray));
}

// A checksum of bytes (FNV-1a): results that differ in one bit differ in it.
class Checksum {
 public:
  template <typename T>
  void Add(const T* values, size_t count) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(values);
    for (size_t i = 0; i < count * sizeof(T); ++i) sum_ = (sum_ ^ bytes[i]) * 1099511628211u;
  }
  uint64_t Value() const { return sum_; }

 private:
  uint64_t sum_ = 14695981039346656037u;
};

// The expected values were taken from the native build; the Windows build, and a build by another compiler,
// must come to the same.
TEST(SharedBits, TwiddleFactorsAndCosineTables) {
  Checksum roots;
  roots.Add(kOctant.data(), kOctant.size());
  EXPECT_EQ(0x36e76c4f42445c18u, roots.Value());
  Checksum tables;
  for (const int32_t n : {1, 2, 4, 8, 12, 100, 1024, 8192, 1 << 15}) {
    const std::vector<float> table = TableFor(n);
    tables.Add(table.data(), table.size());
  }
  EXPECT_EQ(0x002428a6507a189fu, tables.Value());
}

TEST(SharedBits, TransformsOfEveryLength) {
  Checksum doubles;
  for (int32_t n = 2; n <= kLongestFft; n *= 2) {
    const std::vector<double> data = NoiseRow<double>(n);
    for (const int32_t direction : {+1, -1}) {
      ASSERT_EQ(0, FftDispatch(n, direction, data.data()));
      doubles.Add(FftResultArray, 2 * n);
    }
  }
  EXPECT_EQ(0x2f1c22f2ca1a60e6u, doubles.Value());
  Checksum floats;
  for (uint32_t log2n = 1; log2n <= 15; ++log2n) {
    const std::vector<float> table = TableFor(1 << log2n);
    for (const auto transform : {FloatFft, FloatFftInverse}) {
      std::vector<float> row = NoiseRow<float>(size_t{1} << log2n);
      transform(row.data(), log2n, table.data());
      floats.Add(row.data(), row.size());
    }
  }
  EXPECT_EQ(0x095dea408ae6748au, floats.Value());
}

}  // namespace
}  // namespace tessaline
