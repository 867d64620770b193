#include "removal/padding_fill.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "buffers/buffer_table.h"
#include "buffers/result_codes.h"
#include "platform/memory.h"

namespace tessaline {
namespace {

// The fill as its definition reads: whole-plane blurs in double precision, the image placed back after each.
std::vector<double> FillSlowly(const std::vector<double>& plane, int n, int width, int height) {
  const int left = (n - width) / 2, top = (n - height) / 2;
  double mean = 0;
  for (const double value : plane) mean += value / (double(n) * n);
  std::vector<double> surface(plane.size(), mean);
  const auto place = [&] {
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) surface[(y + top) * n + x + left] = plane[y * n + x];
    }
  };
  const auto blur = [&](double scale, int strideX, int strideY) {
    const int k = static_cast<int>(scale + 0.999);
    std::vector<double> weights;
    double sum = 0;
    for (int d = -k; d <= k; ++d) {
      weights.push_back(std::exp(-(d * d / (scale * scale))));
      sum += weights.back();
    }
    std::vector<double> result(surface.size(), 0.0);
    for (int y = 0; y < n; ++y) {
      for (int x = 0; x < n; ++x) {
        for (int d = -k; d <= k; ++d) {
          const int sx = std::clamp(x + d * strideX, 0, n - 1), sy = std::clamp(y + d * strideY, 0, n - 1);
          result[y * n + x] += weights[d + k] / sum * surface[sy * n + sx];
        }
      }
    }
    surface = result;
  };
  place();
  for (const double scale : {20.0, 5.0, 1.0}) {
    blur(scale, 1, 0);
    blur(scale, 0, 1);
    place();
  }
  std::vector<double> result(plane.size());
  for (int y = 0; y < n; ++y) {
    for (int x = 0; x < n; ++x) result[y * n + x] = surface[(y + top) % n * n + (x + left) % n];
  }
  return result;
}

struct FillCase {
  int n, width, height;
};

class PaddingFill : public testing::TestWithParam<FillCase> {};

TEST_P(PaddingFill, EqualsTheDefinition) {
  const auto [n, width, height] = GetParam();
  ResetBufferTable();
  OwnedBuffer plane;
  ASSERT_EQ(kSuccess, plane.Create("plane", n, n, 8));
  // Everything holds something, padding and imaginary parts too, as in the second channel of a run.
  std::mt19937 random(static_cast<unsigned>(n + width));
  std::vector<double> real(static_cast<size_t>(n) * n);
  for (int y = 0; y < n; ++y) {
    auto* const row = reinterpret_cast<float*>(BufferRow(plane.slot(), y));
    for (int x = 0; x < n; ++x) {
      row[2 * x] = static_cast<float>(random() % 32769);
      row[2 * x + 1] = 77.0f;
      real[y * n + x] = row[2 * x];
    }
  }
  ASSERT_EQ(kSuccess, FillPadding(plane.slot(), n - width, n - height, nullptr));
  EXPECT_EQ(1, liveBufferCount);
  const std::vector<double> expected = FillSlowly(real, n, width, height);
  double largestError = 0;
  int changedImageCells = 0, imaginaryCells = 0;
  for (int y = 0; y < n; ++y) {
    const auto* const row = reinterpret_cast<const float*>(BufferRow(plane.slot(), y));
    for (int x = 0; x < n; ++x) {
      largestError = std::max(largestError, std::abs(row[2 * x] - expected[y * n + x]));
      if (x < width && y < height && row[2 * x] != real[y * n + x]) ++changedImageCells;
      if (row[2 * x + 1] != 0.0f) ++imaginaryCells;
    }
  }
  EXPECT_EQ(0, changedImageCells);
  EXPECT_EQ(0, imaginaryCells);
  EXPECT_LT(largestError, 0.05);  // of 32768: what single precision leaves
}

INSTANTIATE_TEST_SUITE_P(Shapes, PaddingFill,
                         testing::Values(FillCase{128, 90, 61},   // odd padding below
                                         FillCase{128, 128, 40},  // none at the sides
                                         FillCase{64, 1, 1}, FillCase{64, 64, 64},
                                         FillCase{256, 200, 201},  // wider than two half widths
                                         FillCase{256, 60, 101},   // padding that no blur reaches
                                         FillCase{32, 30, 7}),     // smaller than the coarsest blur
                         [](const auto& test) {
                           return std::to_string(test.param.width) + "x" + std::to_string(test.param.height) +
                                  "in" + std::to_string(test.param.n);
                         });

TEST(PaddingFillFailures, LeaveThePlaneAlone) {
  ResetBufferTable();
  OwnedBuffer plane, oblong;
  plane.Create("plane", 64, 64, 8);
  oblong.Create("oblong", 64, 32, 8);
  PaddingMemory smaller;
  ASSERT_EQ(kSuccess, smaller.Take(32));
  reinterpret_cast<float*>(BufferRow(plane.slot(), 60))[3] = 5.0f;
  EXPECT_EQ(kUnequalSizes, FillPadding(oblong.slot(), 4, 4, nullptr));
  EXPECT_EQ(kUnequalSizes, FillPadding(plane.slot(), 64, 4, nullptr));
  EXPECT_EQ(kUnequalSizes, FillPadding(plane.slot(), 4, -1, nullptr));
  EXPECT_EQ(kUnequalSizes, FillPadding(plane.slot(), 4, 4, &smaller));
  for (int failing = 0; failing < 3; ++failing) {
    FailAllocationAfter(failing);
    EXPECT_EQ(kOutOfMemory, FillPadding(plane.slot(), 4, 4, nullptr));
    ClearAllocationFailure();
  }
  EXPECT_EQ(5.0f, reinterpret_cast<float*>(BufferRow(plane.slot(), 60))[3]);
  EXPECT_EQ(3, liveBufferCount);
}

}  // namespace
}  // namespace tessaline
