#include "removal/spectrum_image.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "buffers/buffer_table.h"
#include "removal/peak_detection.h"
#include "removal/portable_math.h"

namespace tessaline {
namespace {

class SpectrumImageTest : public testing::Test {
 protected:
  void SetUp() override {
    ResetBufferTable();
    sums_.Create("sums", kSpectrumCells, kSpectrumCells, 8);
    gray16_.Create("gray16", kSpectrumCells, kSpectrumCells, 2);
  }
  double& Sum(int x, int y) { return reinterpret_cast<double*>(BufferRow(sums_.slot(), y))[x]; }
  int Level(int x, int y) { return reinterpret_cast<uint16_t*>(BufferRow(gray16_.slot(), y))[x]; }
  void FillSums(double value) {
    for (int y = 0; y < kSpectrumCells; ++y) {
      for (int x = 0; x < kSpectrumCells; ++x) Sum(x, y) = value;
    }
  }
  OwnedBuffer sums_, gray16_;
};

TEST_F(SpectrumImageTest, SumsTheMagnitudesOfEachBlockOverAllCalls) {
  const int n = 1024;
  OwnedBuffer plane;
  plane.Create("plane", n, n, 8);
  std::mt19937 random(5);
  for (int y = 0; y < n; ++y) {
    auto* const row = reinterpret_cast<float*>(BufferRow(plane.slot(), y));
    for (int i = 0; i < 2 * n; ++i) row[i] = static_cast<float>(random() % 2001) - 1000.0f;
  }
  AccumulateMagnitudes(plane.slot(), sums_.slot());
  AccumulateMagnitudes(plane.slot(), sums_.slot());
  for (const auto& [x, y] : {std::pair{0, 0}, {511, 0}, {300, 17}, {256, 256}, {511, 511}}) {
    double expected = 0;
    for (int i = 0; i < 4; ++i) {
      const auto* const cell =
          reinterpret_cast<const float*>(BufferRow(plane.slot(), 2 * y + i / 2)) + 2 * (2 * x + i % 2);
      expected += 2 * std::hypot(cell[0], cell[1]);
    }
    EXPECT_NEAR(expected, Sum(x, y), 1e-6 * expected) << x << ", " << y;
  }
}

TEST_F(SpectrumImageTest, TheCentreCrossIsLeftOutOfTheRangeButNotOfTheScaling) {
  FillSums(std::exp(1.0));
  Sum(10, 10) = std::exp(5.0);
  Sum(20, 20) = std::exp(3.0);
  Sum(256, 9) = std::exp(9.0);   // above the maximum
  Sum(9, 256) = std::exp(-9.0);  // below the minimum
  Sum(256, 256) = std::exp(2.0);
  EXPECT_NEAR(4.0, ScaleSpectrumByLog(sums_.slot(), gray16_.slot()), 1e-12);
  EXPECT_EQ(0, Level(0, 0));
  EXPECT_EQ(32768, Level(10, 10));
  EXPECT_NEAR(16384, Level(20, 20), 1);
  EXPECT_EQ(32768, Level(256, 9));
  EXPECT_EQ(0, Level(9, 256));
  EXPECT_NEAR(8192, Level(256, 256), 1);
}

}  // namespace
}  // namespace tessaline
