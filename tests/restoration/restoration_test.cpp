// Pictures with every product of the restoration, computed independently by a slow program.
#include "restoration/restoration.h"

#include <gtest/gtest.h>

#include <cmath>

#include "removal/spectrum_gathering.h"
#include "restoration/decision.h"
#include "tests/support/picture_files.h"

namespace tessaline {
namespace {

struct Distance {
  double mean = 0;         // of all samples
  double shareBeyond = 0;  // of the samples that differ by more than 20
};
Distance DistanceBetween(const Picture& a, const Picture& b) {
  Distance distance;
  EXPECT_EQ(a.samples.size(), b.samples.size());
  for (size_t i = 0; i < a.samples.size(); ++i) {
    const int apart = std::abs(a.samples[i] - b.samples[i]);
    distance.mean += apart / static_cast<double>(a.samples.size());
    distance.shareBeyond += (apart > 20) / static_cast<double>(a.samples.size());
  }
  return distance;
}

class RestoredPictures : public testing::TestWithParam<const char*> {};

TEST_P(RestoredPictures, AgreeForAnyNumberOfThreadsAndStayWhereTheGateIsClosed) {
  const std::string name = std::string("restore/") + GetParam();
  const Picture input = ReadPicture(name + ".png");
  Picture first;
  for (const int32_t threads : {1, 3}) {
    const auto pool = MakeThreadPool(threads);
    Workspace workspace(*pool);
    Image picture = ImageOf(input), gate;
    const PictureView view = PictureOf(picture.view());
    Settings settings;
    settings.isAutomatic = true;
    Analysis analysis;
    Findings findings;
    Mask mask;
    ASSERT_EQ(kSuccess, Analyse(view, workspace, {}, &analysis));
    ASSERT_EQ(kSuccess, DecideWhole(view, analysis, settings, workspace, &findings));
    ASSERT_EQ(kSuccess, Shape(findings, settings, &mask));
    ASSERT_EQ(kSuccess, Restore(view, view, findings, mask, workspace, {{}, analysis.chain}, {}, {}, &gate));
    const Picture result = SamplesOf(picture.view()), open = SamplesOf(gate.view());
    if (threads > 1) {
      EXPECT_EQ(first.samples, result.samples);
      continue;
    }
    first = result;
    const Distance ofSeeds =
        DistanceBetween(ReadPicture(name + ".seed.png"), SamplesOf(findings.seeds.view()));
    EXPECT_LE(ofSeeds.shareBeyond, 2e-4);  // 52 of 262144 cells
    const Distance ofGate = DistanceBetween(ReadPicture(name + ".gate.png"), open);
    EXPECT_LE(ofGate.mean, 3);
    EXPECT_LE(ofGate.shareBeyond, 0.001);
    EXPECT_LE(DistanceBetween(ReadPicture(name + ".result.png"), result).mean, 0.3);
    int changed = 0;
    for (size_t i = 0; i < input.samples.size(); ++i) {
      changed += open.samples[i] == 0 && std::abs(input.samples[i] - result.samples[i]) > 2;
    }
    EXPECT_EQ(0, changed);
  }
}

INSTANTIATE_TEST_SUITE_P(All, RestoredPictures, testing::Values("halftone", "page", "warped"),
                         [](const auto& test) { return test.param; });

TEST(Licences, AreTakenBackFromWhatNobodyCouldSeeInAnyOfThePictures) {
  const Picture strong = ReadPicture("restore/halftone.png");
  Picture faint = strong;
  for (uint16_t& sample : faint.samples) sample = static_cast<uint16_t>(128 + (sample - 128) / 45);
  Image picture = ImageOf(faint), seen = ImageOf(strong);
  const PictureView view = PictureOf(picture.view());
  Settings settings;
  settings.isAutomatic = true;
  Workspace workspace;
  Analysis analysis;
  Findings findings;
  PictureTiles tiles;
  ASSERT_EQ(kSuccess, Analyse(view, workspace, {}, &analysis));
  ASSERT_EQ(kSuccess, Decide(analysis, settings, &findings));
  EXPECT_GT(findings.seedCells, 0);
  ASSERT_EQ(kSuccess, DecideWhole(view, analysis, settings, workspace, &findings));
  EXPECT_EQ(0, findings.seedCells);
  EXPECT_EQ(PeakVerdict::kTooFaint, findings.peaks.front().verdict);
  const auto seedsWith = [&](Image& more, int times) {
    for (int i = 0; i < times; ++i) {
      EXPECT_EQ(kSuccess, tiles.Add(PictureOf(more.view()), workspace.parallel()));
    }
    EXPECT_EQ(kSuccess, DecideWhole(tiles, analysis, settings, workspace, &findings));
    return findings.seedCells;
  };
  EXPECT_EQ(0, seedsWith(picture, 12));  // more tiles than are kept
  EXPECT_GE(400u, tiles.view().tiles.size());
  EXPECT_GT(seedsWith(seen, 1), 0);
}

TEST(FilmDecisions, FindTheSmearedPeaksOfAWarpedPage) {
  Image picture = ImageOf(ReadPicture("restore/warped.png"));
  Settings settings;
  settings.isAutomatic = true;
  Workspace workspace;
  Analysis analysis, mean;
  Findings findings;
  PictureTiles tiles;
  SpectrumGathering gathering;
  ASSERT_EQ(kSuccess, gathering.Create());
  ASSERT_EQ(kSuccess, Analyse(PictureOf(picture.view()), workspace, {}, &analysis));
  ASSERT_EQ(kSuccess, tiles.Add(PictureOf(picture.view()), workspace.parallel()));
  for (int frame = 0; frame < 2; ++frame) gathering.Add(analysis);
  ASSERT_EQ(kSuccess, gathering.Mean(&mean));
  ASSERT_EQ(kSuccess, DecideWhole(tiles, mean, settings, workspace, &findings));
  EXPECT_NE(PeakScale::kFine, findings.peaks.back().scale);
  EXPECT_LE(
      DistanceBetween(ReadPicture("restore/warped.seed.png"), SamplesOf(findings.seeds.view())).shareBeyond,
      2e-4);
}

}  // namespace
}  // namespace tessaline
