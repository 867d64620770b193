// Three pictures with every product of a correct run, computed independently (tests/data/*/case.json tells
// how).
#include <gtest/gtest.h>

#include <vector>

#include "removal/steps.h"
#include "tests/support/picture_files.h"

namespace tessaline {
namespace {

struct GoldenCase {
  const char* name;
  Settings settings;
  int seedCells;
  int resultTolerance;
  std::vector<float> meanLevels;  // of each channel's plane before the padding fill, first pass, then second
};

// The numbers of the case.json files.
const GoldenCase kCases[] = {
    {"lines-grey8", {false, 98, 1, 3.5f, 16}, 2, 1, {9355.0302734375f, 11614.7412109375f}},
    {"rosette-rgb8",
     {false, 98, 1, 6, 8},
     34,
     1,
     {9110.6259765625f, 9827.044921875f, 11315.0595703125f, 11951.9306640625f, 12992.9921875f,
      13249.79296875f}},
    {"weave-rgb16",
     {false, 98, 1, 6, 2.72f},
     34,
     4,
     {5597.8056640625f, 28874.919921875f, 30829.611328125f, 32338.314453125f, 23054.958984375f,
      17931.5234375f}},
};

class GoldenPictures : public testing::TestWithParam<GoldenCase> {};

TEST_P(GoldenPictures, EveryStepAgreesForAnyNumberOfThreads) {
  const GoldenCase& golden = GetParam();
  const auto read = [&](const char* file) { return ReadPicture(std::string(golden.name) + "/" + file); };
  Picture first;
  for (const int32_t threads : {1, 2, 3, 7}) {
    SCOPED_TRACE(threads);
    const auto pool = MakeThreadPool(threads);
    ASSERT_NE(nullptr, pool);
    Workspace workspace(*pool);
    Image picture = ImageOf(read("input.png"));
    const PictureView view = PictureOf(picture.view());
    Analysis analysis;
    Findings findings;
    Mask mask;
    float meanLevels[kMostChannels] = {};
    ASSERT_EQ(kSuccess, Analyse(view, workspace, {}, &analysis));
    ASSERT_EQ(kSuccess, Decide(analysis, golden.settings, &findings));
    ASSERT_EQ(kSuccess, Shape(findings, golden.settings, &mask));
    ASSERT_EQ(kSuccess,
              Apply(view, view, mask, workspace, {Rounding::kTruncate, analysis.chain, meanLevels}, {}));
    if (threads > 1) {
      EXPECT_EQ(first.samples, SamplesOf(picture.view()).samples);
      continue;
    }
    first = SamplesOf(picture.view());
    // Each channel's padding owes its mean level to the channel before, through both passes.
    for (int32_t c = 0; c < view.channels; ++c) {
      const float firstPass = golden.meanLevels[c], secondPass = golden.meanLevels[view.channels + c];
      EXPECT_NEAR(firstPass, analysis.meanLevels[c], 1e-4 * firstPass) << "channel " << c;
      EXPECT_NEAR(secondPass, meanLevels[c], 1e-4 * secondPass) << "channel " << c;
    }
    EXPECT_LE(LargestDifference(read("gray16.png"), SamplesOf(analysis.rawGray16.view())), 1);
    EXPECT_LE(LargestDifference(read("enhanced.png"), SamplesOf(analysis.gray16.view())), 2);
    EXPECT_EQ(LargestDifference(read("seed.png"), SamplesOf(findings.seeds.view())), 0);
    EXPECT_EQ(golden.seedCells, findings.seedCells);
    EXPECT_LE(LargestDifference(read("mask512.png"), SamplesOf(mask.cells.view())), 1);
    EXPECT_LE(LargestDifference(read("result.png"), first), golden.resultTolerance);
  }
}

INSTANTIATE_TEST_SUITE_P(All, GoldenPictures, testing::ValuesIn(kCases), [](const auto& test) {
  std::string name = test.param.name;
  name.erase(name.find('-'), 1);
  return name;
});

}  // namespace
}  // namespace tessaline
