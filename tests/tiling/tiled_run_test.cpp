// Pictures in tiles against themselves under another grid.
#include "tiling/tiled_run.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "tests/support/sanitizers.h"

namespace tessaline {
namespace {

// A screen over slopes and edges, RGB and alpha.
class DrawnRows final : public PictureRows {
 public:
  DrawnRows(int32_t width, int32_t height) : height_(height) {
    layout_ = {width, 4 * static_cast<size_t>(width), SampleFormat::kByte, 3, {{0, 4}, {1, 4}, {2, 4}}};
    for (int32_t y = 0; y < height; ++y) {
      for (int32_t x = 0; x < width; ++x) {
        const double screen = std::cos(x * 1.3 + y * 0.4) * std::cos(y * 1.3 - x * 0.4);
        for (int32_t c = 0; c < 3; ++c) {
          const double tone = 120 + 60 * std::sin((x + 50 * c) * 0.011) * std::cos(y * 0.007);
          const double edge = (x / 150 + y / 130) % 2 == 0 ? 20 : -20;
          bytes.push_back(static_cast<uint8_t>(tone + edge + 40 * screen));
        }
        bytes.push_back(static_cast<uint8_t>(x * y));
      }
    }
  }
  const RowLayout& layout() const override { return layout_; }
  int32_t height() const override { return height_; }
  void Rewind() override { next_ = 0; }
  void Read(int32_t count, uint8_t* rows) override {
    const size_t size = static_cast<size_t>(count) * layout_.rowBytes;
    std::memcpy(rows, bytes.data() + next_, size);
    next_ += size;
  }

  std::vector<uint8_t> bytes;

 private:
  RowLayout layout_;
  int32_t height_;
  size_t next_ = 0;
};

std::vector<uint8_t> CleanedBy(DrawnRows& picture, const TileRule& rule, const TiledRemoval& removal) {
  Workspace workspace;
  CleanedRows cleaned(picture, rule, removal, workspace, {});
  EXPECT_EQ(kSuccess, cleaned.Begin());
  std::vector<uint8_t> result;
  for (int32_t count = 1; count > 0;) {
    const uint8_t* rows = nullptr;
    EXPECT_EQ(kSuccess, cleaned.Next(&rows, &count));
    result.insert(result.end(), rows, rows + static_cast<size_t>(count) * picture.layout().rowBytes);
  }
  return result;
}

// No sample of the two grids is more than a level apart: no seam shows.
TEST(TiledRun, ShiftingTheGridMovesNoSampleByMoreThanALevel) {
  DrawnRows picture(1700, 1300);
  for (const float radius : {2.0f, 6.0f, 12.0f}) {
    if (kIsWatched && radius != 6.0f) continue;
    for (const bool isAutomatic : {false, true}) {
      const Settings settings = {isAutomatic, 95, 1, radius, 8};
      const auto ruleOf = [&](int32_t side) { return TilesFor(6800, settings, size_t{1} << 30, side); };
      Workspace workspace;
      Analysis analysis;
      Findings findings;
      Mask mask;
      ASSERT_EQ(kSuccess, AnalyseInTiles(picture, ruleOf(1000), workspace, {}, &analysis));
      ASSERT_EQ(kSuccess, Decide(analysis, settings, &findings));
      ASSERT_EQ(kSuccess, Shape(findings, settings, &mask));
      TiledRemoval removal = {findings, mask, Rounding::kNearest, {}};
      removal.restoration.strong = 0.16f * 32768;  // of the screen
      const std::vector<uint8_t> one = CleanedBy(picture, ruleOf(1000), removal),
                                 other = CleanedBy(picture, ruleOf(870), removal);
      ASSERT_EQ(one.size(), picture.bytes.size());
      ASSERT_EQ(one.size(), other.size());
      int most = 0;
      double taken = 0;
      for (size_t i = 0; i < one.size(); ++i) {
        if (i % 4 == 3) {
          ASSERT_EQ(picture.bytes[i], one[i]);
        }
        most = std::max(most, std::abs(one[i] - other[i]));
        taken += std::abs(one[i] - picture.bytes[i]) / static_cast<double>(one.size());
      }
      EXPECT_LE(most, 1) << radius << (isAutomatic ? " auto" : "");
      EXPECT_GT(taken, 2);
    }
  }
}

TEST(TileSpans, CoverTheLengthAndShareTheBlend) {
  for (const int32_t length : {1, 512, 513, 1000, 30000, 1000000}) {
    const TileRule rule = {512, 96, 32};
    const std::vector<TileSpan> spans = TileSpans(length, rule);
    int32_t covered = 0;
    for (const TileSpan& span : spans) {
      EXPECT_EQ(covered - (covered > 0 ? rule.blend : 0), span.keptFirst);
      covered = span.keptFirst + span.keptCount;
      const bool isFirst = span.first == 0, isLast = covered == length;
      EXPECT_GE(span.keptFirst - span.first, isFirst ? 0 : rule.margin);
      EXPECT_GE(span.first + span.count - covered, isLast ? 0 : rule.margin);
      EXPECT_LE(span.first + span.count, length);
    }
    EXPECT_EQ(length, covered);
  }
}

}  // namespace
}  // namespace tessaline
