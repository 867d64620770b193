#include "removal/peak_detection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <utility>
#include <vector>

#include "image/result_codes.h"

namespace tessaline {
namespace {

class PeakDetectionTest : public testing::Test {
 protected:
  void SetUp() override {
    spectrum_.Create(kSpectrumCells, kSpectrumCells, 2);
    seeds_.Create(kSpectrumCells, kSpectrumCells, 1);
  }

  void SetLevel(int x, int y, uint16_t level) { spectrum_.view().Row<uint16_t>(y)[x] = level; }
  // (x, y) of all pattern cells, row by row.
  std::vector<std::pair<int, int>> Seeds() const {
    std::vector<std::pair<int, int>> cells;
    for (int y = 0; y < kSpectrumCells; ++y) {
      for (int x = 0; x < kSpectrumCells; ++x) {
        if (seeds_.view().Row(y)[x] == 255) cells.emplace_back(x, y);
      }
    }
    return cells;
  }
  using Cells = std::vector<std::pair<int, int>>;
  Image spectrum_, seeds_;
};

TEST_F(PeakDetectionTest, ThresholdsSpanHalfTheScale) {
  EXPECT_EQ(32768, HostThreshold(ThresholdOfAcceptance(0)));
  EXPECT_EQ(16384, HostThreshold(ThresholdOfAcceptance(100)));
  EXPECT_EQ(22937, HostThreshold(ThresholdOfAcceptance(60)));  // 178.5 x 128.50197 = 22937.6
}

TEST_F(PeakDetectionTest, APeakOutsideTheDiscTakesItsPartnerAlong) {
  const struct {
    int x, y;
    uint16_t level;
    Cells seeds;
  } cases[] = {{100, 200, 16385, {{100, 200}, {412, 312}}},
               {300, 150, 16384, {}},            // exactly at the threshold
               {300, 400, 32768, {}},            // lower half: never asked
               {100, 256, 32768, {{412, 256}}},  // on the centre row the mirrored decision wins
               {0, 100, 32768, {{0, 100}}},      // row and column 0 have no partner
               {40, 0, 32768, {{40, 0}}},
               {0, 256, 32768, {}},  // column 0 from row 256 on ends as 0
               {256 - 32, 250, 32768, {{224, 250}, {288, 262}}},
               {256, 224, 32768, {{256, 224}, {256, 288}}},  // the rim of a disc of 256 / 8 cells
               {256, 225, 32768, {}}};
  Image wide;  // holds the host's maximum
  wide.Create(kSpectrumCells, kSpectrumCells, 2);
  for (const auto& c : cases) {
    SetLevel(c.x, c.y, c.level);
    EXPECT_EQ(kSuccess, DetectPeaks(spectrum_.view(), 127.5f, 8, seeds_.view()));
    EXPECT_EQ(c.seeds, Seeds()) << c.x << ", " << c.y;
    EXPECT_EQ(kSuccess, DetectPeaks(spectrum_.view(), 127.5f, 8, wide.view()));
    for (const auto& [x, y] : c.seeds) EXPECT_EQ(32768, wide.view().Row<uint16_t>(y)[x]);
    SetLevel(c.x, c.y, 0);
  }
}

TEST_F(PeakDetectionTest, TheSmallestDiscHoldsThirteenCells) {
  for (int y = 0; y < kSpectrumCells; ++y) {
    for (int x = 0; x < kSpectrumCells; ++x) SetLevel(x, y, 32768);
  }
  EXPECT_EQ(kSuccess, DetectPeaks(spectrum_.view(), 127.5f, 5000, seeds_.view()));
  const auto kept = kSpectrumCells * kSpectrumCells - Seeds().size();
  EXPECT_EQ(13u + 256u, kept);  // and column 0 of rows 256..511
}

}  // namespace
}  // namespace tessaline
