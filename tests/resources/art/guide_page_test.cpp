#include "resources/art/guide_page.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "tests/resources/art/kept_files.h"

namespace tessaline::art {
namespace {

TEST(GuidePage, KeptFileShowsWhatTheEngineDoesNow) {
  const Bytes file = KeptFile("guide_page.bmp");
  constexpr size_t kBitsPerPixelAt = 28;
  ASSERT_EQ(8, file.at(kBitsPerPixelAt));
  const DecodedBitmap kept(file);
  const DecodedBitmap drawn(DrawGuidePage(TESSALINE_SAMPLES));
  ASSERT_EQ(kGuidePageWidth, kept.width);
  ASSERT_EQ(kGuidePageHeight, kept.height);
  ASSERT_EQ(kept.rgb.size(), drawn.rgb.size());
  // Only the pictures: text comes out differently where fonts or their library are others.
  std::vector<GuidePanel> panels;
  for (int step = 0; step < kGuideSteps; ++step) panels.push_back(StepPanel(step));
  for (int i = 0; i < 2 * kGuideSliders; ++i) panels.push_back(SliderPanel(i / 2, i % 2));
  for (const GuidePanel& panel : panels) {
    int different = 0;
    for (int y = panel.top; y < panel.top + panel.side; ++y) {
      for (int x = panel.left; x < panel.left + panel.side; ++x) {
        const Bytes a = kept.At(x, y), b = drawn.At(x, y);
        const int apart = std::abs(a[0] - b[0]) + std::abs(a[1] - b[1]) + std::abs(a[2] - b[2]);
        different += apart > 30 ? 1 : 0;
      }
    }
    EXPECT_LT(different, panel.side * panel.side / 100) << "panel at " << panel.left << ", " << panel.top;
  }
}

}  // namespace
}  // namespace tessaline::art
