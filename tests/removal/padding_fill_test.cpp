#include "removal/padding_fill.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <utility>
#include <vector>

namespace tessaline {
namespace {

constexpr int kSize = 512;
using Cells = std::vector<double>;

// Along both axes; edge cells repeat beyond the border.
Cells Blurred(Cells cells, double scale) {
  const int reach = static_cast<int>(scale + 0.999);
  for (const auto& [stepX, stepY] : {std::pair{1, 0}, {0, 1}}) {
    const Cells before = cells;
    for (int y = 0; y < kSize; ++y) {
      for (int x = 0; x < kSize; ++x) {
        double sum = 0, weights = 0;
        for (int d = -reach; d <= reach; ++d) {
          const double weight = std::exp(-d * d / (scale * scale));
          const int atX = std::clamp(x + d * stepX, 0, kSize - 1);
          const int atY = std::clamp(y + d * stepY, 0, kSize - 1);
          weights += weight;
          sum += weight * before[atY * kSize + atX];
        }
        cells[y * kSize + x] = sum / weights;
      }
    }
  }
  return cells;
}

TEST(PaddingFill, BlursThreeTimesAroundTheImageInTheMiddle) {
  constexpr float kMean = 12345.0f;
  for (const auto& [width, height] : {std::pair{90, 330}, {kSize - 9, kSize}, {1, 1}}) {
    const int left = (kSize - width) / 2, top = (kSize - height) / 2;
    std::vector<float> samples(kSize * kSize, -1.0f);
    const RealPlane plane = {samples.data(), kSize};
    Cells expected(kSize * kSize, kMean);
    std::mt19937 random(7);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) plane.Row(y)[2 * x] = static_cast<float>(random() % 32768);
    }
    const auto placeImage = [&, width = width, height = height] {
      for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) expected[(y + top) * kSize + x + left] = plane.Row(y)[2 * x];
      }
    };
    placeImage();
    for (const double scale : {20.0, 5.0, 1.0}) {
      expected = Blurred(expected, scale);
      placeImage();
    }
    const auto pool = MakeThreadPool(3);
    PaddingFill fill;
    ASSERT_TRUE(fill.Prepare(kSize, 3));
    const ConstantRows constant = fill.Fill(plane, kSize - width, kSize - height, kMean, *pool);
    double worst = 0;
    for (int i = 0; i < kSize * kSize; ++i) {
      const int x = i % kSize, y = i / kSize;
      const bool isConstant = y >= constant.first && y < constant.last;
      const double found = isConstant ? constant.value : plane.Row(y)[2 * x];
      worst = std::max(worst, std::abs(found - expected[(y + top) % kSize * kSize + (x + left) % kSize]));
    }
    EXPECT_LT(worst, 0.05) << width << "x" << height;
  }
}

}  // namespace
}  // namespace tessaline
