// Pictures with every product of the restoration, computed independently by a slow program.
#include "restoration/restoration.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "image/pixel_kind.h"
#include "platform/cpu.h"
#include "removal/spectrum_gathering.h"
#include "restoration/decision.h"
#include "restoration/gate.h"
#include "restoration/gate_holes.h"
#include "restoration/row_kernels.h"
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

Picture DrawnGate(const PictureView& view, const GatePlan& plan, int32_t threads = 1) {
  Gate gate;
  EXPECT_TRUE(gate.Prepare(view, plan, threads));
  gate.Measure(view, *MakeThreadPool(threads), {});
  Picture drawn{view.width, view.height, 1, 8, {}};
  std::vector<float> row(static_cast<size_t>(view.width) + Gate::kReduction);
  for (int32_t y = 0; y < view.height; ++y) {
    gate.Row(y, 0, gate.blocks(), row.data());
    for (int32_t x = 0; x < view.width; ++x) {
      drawn.samples.push_back(static_cast<uint16_t>(std::lround(255 * row[static_cast<size_t>(x)])));
    }
  }
  return drawn;
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
    EXPECT_LE(ofSeeds.shareBeyond, 1e-3);  // 262 of 262144 cells; the page's text keeps more than there
    GatePlan plan = PlanGate(findings);
    plan.isCutAtEdges = false;
    Image again = ImageOf(input);
    const Picture wide = DrawnGate(PictureOf(again.view()), plan);
    const Distance ofGate = DistanceBetween(ReadPicture(name + ".gate.png"), wide);
    EXPECT_LE(ofGate.mean, 3);
    EXPECT_LE(ofGate.shareBeyond, 0.001);
    for (size_t i = 0; i < open.samples.size(); ++i) ASSERT_LE(open.samples[i], wide.samples[i]);
    if (name == "restore/page") {
      EXPECT_GT(DistanceBetween(open, wide).shareBeyond, 0.02);
    } else {
      EXPECT_LE(DistanceBetween(open, wide).shareBeyond, 0.001);
    }
    EXPECT_LE(DistanceBetween(ReadPicture(name + ".result.png"), result).mean, 0.4);
    int changed = 0;
    for (size_t i = 0; i < input.samples.size(); ++i) {
      changed += open.samples[i] == 0 && std::abs(input.samples[i] - result.samples[i]) > 2;
    }
    EXPECT_EQ(0, changed);
  }
}

TEST_P(RestoredPictures, AreDecidedTheSameWithWhatEarlierDecisionsMeasured) {
  Image picture = ImageOf(ReadPicture(std::string("restore/") + GetParam() + ".png"));
  const PictureView view = PictureOf(picture.view());
  Workspace workspace;
  Analysis analysis;
  ASSERT_EQ(kSuccess, Analyse(view, workspace, {}, &analysis));
  KeptMeasures kept;
  Settings settings;
  settings.isAutomatic = true;
  for (const double sensitivity : {0.7, 1.0, 1.3, 0.9, 0.7}) {
    settings.sensitivity = sensitivity;
    Findings fresh, again;
    ASSERT_EQ(kSuccess, DecideWhole(view, analysis, settings, workspace, &fresh));
    ASSERT_EQ(kSuccess, DecideWhole(TilesOf(view), analysis, settings, workspace, &again, &kept));
    EXPECT_EQ(SamplesOf(fresh.seeds.view()).samples, SamplesOf(again.seeds.view()).samples) << sensitivity;
    EXPECT_EQ(fresh.strongAmplitude, again.strongAmplitude) << sensitivity;
    const auto isSame = [](const SpectrumPeak& a, const SpectrumPeak& b) {
      return a.dx == b.dx && a.dy == b.dy && a.height == b.height && a.isLicensed == b.isLicensed &&
             a.verdict == b.verdict && a.scale == b.scale;
    };
    EXPECT_TRUE(
        std::equal(fresh.peaks.begin(), fresh.peaks.end(), again.peaks.begin(), again.peaks.end(), isSame));
  }
}

INSTANTIATE_TEST_SUITE_P(All, RestoredPictures, testing::Values("halftone", "page", "warped"),
                         [](const auto& test) { return test.param; });

// In a large picture the waves are looked for in wider steps, each in the channel where it is strongest if
// that is the same one everywhere: as one shows that is a row lower, and not yet large.
TEST(LargeGates, AreNearlyThoseOfEverythingLookedAtForAnyNumberOfThreads) {
  const Picture halftone = ReadPicture("restore/halftone.png");
  Image small = ImageOf(halftone), large;
  Workspace workspace;
  Analysis analysis;
  Findings findings;
  Settings settings;
  settings.isAutomatic = true;
  ASSERT_EQ(kSuccess, Analyse(PictureOf(small.view()), workspace, {}, &analysis));
  ASSERT_EQ(kSuccess, Decide(analysis, settings, &findings));
  ASSERT_TRUE(large.Create(2048, 1024, kRgb8));
  const GatePlan plan = PlanGate(findings);
  constexpr int32_t kLefts[] = {740, 1340, 140};
  for (const int32_t inks : {1, 3}) {
    ImageView view = large.view();
    for (int32_t y = 0; y < view.height; ++y) std::fill_n(view.Row(y), 3 * view.width, uint8_t{120});
    for (int32_t ink = 0; ink < inks; ++ink) {
      for (int32_t y = 0; y < halftone.height; ++y) {
        uint8_t* const row = view.Row(300 + y) + 3 * kLefts[ink] + (ink + 1) % 3;
        for (int32_t x = 0; x < halftone.width; ++x) row[3 * x] = small.view().Row(y)[x];
      }
    }
    const Picture gate = DrawnGate(PictureOf(view), plan);
    EXPECT_EQ(gate.samples, DrawnGate(PictureOf(view), plan, 3).samples);
    --view.height;
    Picture cut = gate;
    cut.samples.resize(cut.samples.size() - 2048);
    const Distance distance = DistanceBetween(DrawnGate(PictureOf(view), plan), cut);
    EXPECT_LE(distance.mean, 0.5 * inks);
    EXPECT_LE(distance.shareBeyond, 0.005 * inks);
    EXPECT_EQ(255, gate.samples[490 * 2048 + 990]);
    EXPECT_EQ(inks == 1 ? 0 : 255, gate.samples[490 * 2048 + 390]);
    EXPECT_EQ(inks == 1 ? 0 : 255, gate.samples[490 * 2048 + 1590]);
    EXPECT_EQ(0, gate.samples[100 * 2048 + 990]);
  }
}

// Every set's loops over the same rows, whose count is no whole number of vectors; all results in one row.
std::vector<float> ResultsOf(const RowKernels& kernels) {
  constexpr int32_t kCount = 157, kStride = 4 * kCount;
  std::vector<float> rows(40 * kStride), results(31 * kStride);
  for (size_t i = 0; i < rows.size(); ++i) rows[i] = 16000.0f * std::sin(0.37f * static_cast<float>(i));
  const auto in = [&](int i) { return rows.data() + i * kStride + 16; };
  const auto out = [&](int i) { return results.data() + i * kStride; };
  const float* const rowsOf[] = {in(0), in(1), in(2), in(3), in(4), in(5),
                                 in(6), in(7), in(8), in(9), in(10)};
  const float* const four[] = {in(0), in(1), in(2), in(3)};
  const float weights[4] = {-0.05f, 0.8f, 0.3f, -0.04f};
  kernels.weigh(11, rowsOf, in(11), kCount, out(0));
  kernels.addBlocks[0](kCount, in(3), out(0));
  kernels.addBlocks[1](kCount / 2, in(4), out(0));
  std::copy_n(in(12), 2 * kStride, out(24));
  kernels.settle(kCount, {in(0), in(1), in(2), 0.3f, -0.2f, 0.7f}, in(5), 0.6f, 0.8f, out(24), out(25));
  kernels.blendRows(kCount, four, weights, out(1));
  kernels.doubleRow(kCount, in(0), weights, out(2));
  kernels.addNear(kCount, {in(0), in(1)}, {in(2), in(3)}, out(3), out(4));
  kernels.turnBeside(kCount, -1.0f, in(0), in(1), {in(2), in(3), in(4), in(5)}, out(5), out(6));
  kernels.addSteps(kCount, in(0), 2.0f, 1e-4f, out(7));
  kernels.enlarge[1](kCount / 4, in(0), in(1), 0.3f, out(8));
  kernels.addPower(kCount, 1.1f, in(0), in(1), out(9));
  for (const int reach : {0, 1, 2}) {
    float* const sums = out(10 + 7 * reach);
    kernels.sumValues[reach](kCount, in(0), sums, sums + kStride);
    const WindowRows values{{in(0), in(1), in(2), in(3), in(4), in(20), in(21)}},
        squares{{in(5), in(6), in(7), in(8), in(9), in(22), in(23)}};
    kernels.measureGain[reach](kCount, values, squares, in(10), sums + 2 * kStride, sums + 3 * kStride);
    kernels.sumGains[reach](kCount, in(0), in(1), sums + 4 * kStride, sums + 5 * kStride);
    kernels.change[reach](kCount, values, squares, in(6), sums + 6 * kStride);
  }
  return results;
}

TEST(GateHoles, AreOpenedAndIslandsClosedWhereTheyAreSmall) {
  for (const bool isPart : {false, true}) {
    Plane open, marks;
    ASSERT_TRUE(open.Create(60, 40) && marks.Create(60, 40));
    std::fill_n(open.Row(0), 60 * 40, 1.0f);
    const auto close = [&](int32_t left, int32_t top, int32_t columns, int32_t rows) {
      for (int32_t y = top; y < top + rows; ++y) std::fill_n(open.Row(y) + left, columns, 0.25f);
    };
    close(20, 5, 12, 12), close(20, 20, 1, 13), close(30, 22, 4, 4), close(34, 26, 9, 1), close(0, 0, 3, 3);
    OpenHoles(isPart, &open, &marks);
    EXPECT_EQ(1.0f, open.Row(5)[20]);                  // 48 pixels both ways
    EXPECT_EQ(0.25f, open.Row(20)[20]);                // 52 down: a word
    EXPECT_EQ(1.0f, open.Row(25)[33]);                 // touches the next by a corner only
    EXPECT_EQ(1.0f, open.Row(26)[42]);                 // thus this one is a hole too
    EXPECT_EQ(isPart ? 0.25f : 1.0f, open.Row(2)[2]);  // may go on beyond the part
    for (int32_t y = 0; y < 40; ++y) {
      for (int32_t x = 0; x < 60; ++x) open.Row(y)[x] = 1.0f - open.Row(y)[x];  // words in 0.75
    }
    close(50, 2, 8, 20), close(58, 2, 1, 20), open.Row(30)[10] = 0.05f;
    for (int32_t y = 2; y < 22; ++y) std::fill_n(open.Row(y) + 50, 8, 1.0f);
    for (int32_t y = 33; y < 36; ++y) std::fill_n(open.Row(y) + 14, 30, 1.0f);
    CloseIslands(isPart, &open, &marks);
    EXPECT_EQ(0.0f, open.Row(25)[33]);
    EXPECT_EQ(0.0f, open.Row(30)[10]);  // the softened rim of nothing
    EXPECT_EQ(0.0f, open.Row(34)[20]);  // nowhere four blocks high
    EXPECT_EQ(1.0f, open.Row(2)[50]);
    EXPECT_EQ(0.25f, open.Row(21)[58]);  // that of a picture
    EXPECT_EQ(isPart ? 0.75f : 0.0f, open.Row(2)[2]);
    Plane small;
    ASSERT_TRUE(small.Create(8, 8));  // all of it closed, as where nothing is found
    OpenHoles(isPart, &small, &marks);
    EXPECT_EQ(0.0f, small.Row(4)[4]);
  }
}

TEST(RowKernels, GiveTheSameBitsInEverySet) {
  const std::vector<float> baseline = ResultsOf(kBaselineRowKernels);
#if defined(__x86_64__)
  if (DetectVectorLevel() >= VectorLevel::kAvx2) {
    EXPECT_EQ(baseline, ResultsOf(kAvx2RowKernels));
  }
  if (DetectVectorLevel() >= VectorLevel::kAvx512) {
    EXPECT_EQ(baseline, ResultsOf(kAvx512RowKernels));
  }
#endif
}

TEST(Licences, AreNotGivenToAPictureWithoutAScreen) {
  const Picture clean = ReadPicture("restore/clean.png");
  Image picture = ImageOf(clean);
  Settings settings;
  settings.isAutomatic = true;
  Workspace workspace;
  Analysis analysis;
  Findings findings;
  ASSERT_EQ(kSuccess, Analyse(PictureOf(picture.view()), workspace, {}, &analysis));
  ASSERT_EQ(kSuccess, DecideWhole(PictureOf(picture.view()), analysis, settings, workspace, &findings));
  EXPECT_EQ(0, findings.seedCells);
  // Peaks on every multiple of a row are writing's, and those of a narrow strip, most on one, are not.
  for (const bool isRidge : {false, true}) {
    findings.peaks.clear();
    for (int32_t i = 0; i < 30; ++i) {
      SpectrumPeak peak{};
      peak.dx = i * 37 % 151 - 75, peak.dy = isRidge ? (i % 6 == 0 ? 40 : 60) : 20 * (1 + i % 4);
      peak.height = 3.0, peak.isLicensed = true;
      findings.peaks.push_back(peak);
    }
    EXPECT_EQ(kSuccess, CheckLicences({}, workspace.parallel(), &findings));
    EXPECT_EQ(isRidge ? PeakVerdict::kTooFaint : PeakVerdict::kNotIsolated, findings.peaks[0].verdict);
  }
}

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
  EXPECT_EQ(0, findings.seedCells + CountSeeds(findings.seeds.view()));
  EXPECT_EQ(PeakVerdict::kTooFaint, findings.peaks.front().verdict);
  const auto seedsWith = [&](Image& more, int times) {
    for (int i = 0; i < times; ++i) {
      EXPECT_EQ(kSuccess, tiles.Add(PictureOf(more.view()), workspace.parallel()));
      EXPECT_GE(400u, tiles.view().tiles.size());
    }
    EXPECT_EQ(kSuccess, DecideWhole(tiles, analysis, settings, workspace, &findings));
    return findings.seedCells;
  };
  EXPECT_EQ(0, seedsWith(picture, 40));  // more tiles than are kept
  EXPECT_GT(seedsWith(seen, 4), 0);
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

// What the tiles' own spectra show is enough, where the picture's shows nothing.
TEST(LocalNotches, CleanAWarpedPageForAnyNumberOfThreadsAndLeaveOneWithoutAScreen) {
  const Picture input = ReadPicture("restore/warped.png"), wanted = ReadPicture("restore/warped.result.png");
  Settings settings;
  settings.isAutomatic = true;
  Picture first;
  for (const int32_t threads : {1, 3}) {
    const auto pool = MakeThreadPool(threads);
    Workspace workspace(*pool);
    Image picture = ImageOf(input), other = ImageOf(ReadPicture("restore/clean.png"));
    const PictureView view = PictureOf(picture.view());
    Analysis analysis;
    Findings findings;
    Mask mask;
    ASSERT_EQ(kSuccess, Analyse(view, workspace, {}, &analysis));
    ASSERT_EQ(kSuccess, Decide(analysis, settings, &findings));
    ASSERT_EQ(kSuccess, AddLocalPeaks(TilesOf(PictureOf(other.view())), settings, *pool, &findings));
    EXPECT_EQ(0, findings.seedCells);
    ASSERT_EQ(kSuccess, AddLocalPeaks(TilesOf(view), settings, *pool, &findings));
    ASSERT_EQ(kSuccess, Shape(findings, settings, &mask));
    ASSERT_EQ(kSuccess, Restore(view, view, findings, mask, workspace, {}, {}, {}));
    const Picture result = SamplesOf(picture.view());
    EXPECT_LE(DistanceBetween(wanted, result).mean, 1.3);
    EXPECT_TRUE(threads == 1 || first.samples == result.samples);
    first = result;
  }
}

// Faint ones count as long as they stand out; on a page of writing those tiles alone that have the screen.
TEST(LocalNotches, FindFaintScreensAndScreensInAPartOfAPageAndLeaveItsWriting) {
  const Picture input = ReadPicture("restore/warped.png"), wanted = ReadPicture("restore/warped.result.png");
  Settings settings;
  settings.isAutomatic = true;
  const auto findLocally = [&](const Picture& picture, Findings* findings) {
    Image image = ImageOf(picture);
    Workspace workspace;
    Analysis analysis;
    EXPECT_EQ(kSuccess, Analyse(PictureOf(image.view()), workspace, {}, &analysis));
    EXPECT_EQ(kSuccess, Decide(analysis, settings, findings));
    findings->peaks.clear();
    for (int32_t y = 0; y < kSpectrumCells; ++y) {
      std::fill_n(findings->seeds.view().Row(y), kSpectrumCells, uint8_t{0});
    }
    EXPECT_EQ(kSuccess, AddLocalPeaks(TilesOf(PictureOf(image.view())), settings, SerialWork(), findings));
  };
  for (const double contrast : {0.10, 0.02}) {
    Picture faint = input;
    for (uint16_t& level : faint.samples) {
      level = static_cast<uint16_t>(std::lround(128 + contrast * (level - 128)));
    }
    Findings findings;
    findLocally(faint, &findings);
    EXPECT_EQ(contrast == 0.10, !findings.peaks.empty()) << contrast;
  }
  // Three times as high, below it strokes that stand in rows of 18.
  Picture page{input.width, 3 * input.height, 1, 8, input.samples};
  for (int y = input.height; y < page.height; ++y) {
    for (int x = 0; x < page.width; ++x) {
      const uint32_t hash = static_cast<uint32_t>(x / 3 * 7919 + y / 18 * 104729) * 2654435761u;
      page.samples.push_back(y % 18 < 10 && hash >> 31 != 0 ? 40 : 235);
    }
  }
  Findings findings;
  findLocally(page, &findings);
  ASSERT_FALSE(findings.peaks.empty());
  ASSERT_EQ(PeakScale::kParts, findings.peaks.back().scale);
  Image image = ImageOf(page);
  const PictureView view = PictureOf(image.view());
  Mask mask;
  Workspace workspace;
  ASSERT_EQ(kSuccess, Shape(findings, settings, &mask));
  ASSERT_EQ(kSuccess, Restore(view, view, findings, mask, workspace, {}, {}, {}));
  Picture result = SamplesOf(image.view());
  const auto screenEnd = static_cast<ptrdiff_t>(input.samples.size());
  const ptrdiff_t writing = screenEnd + 20 * input.width;
  EXPECT_TRUE(
      std::equal(page.samples.begin() + writing, page.samples.end(), result.samples.begin() + writing));
  result.samples.resize(input.samples.size());
  EXPECT_LE(DistanceBetween(wanted, result).mean, 2.0);
}

// Fields of 160 x 160 of one ink at 45 degrees, 16 periods to 100 pixels. Dots are averaged in light over
// each pixel, then coded.
float PrintedLight(int x, int y) {
  constexpr int kParts = 4;
  constexpr double kPeriod = 6.25, kCircle = 2 * std::numbers::pi;
  const double coverage = 0.1 + 0.16 * (x / 160 + 3 * (y / 160));
  int inked = 0;
  for (int i = 0; i < kParts * kParts; ++i) {
    const double u = (x + (i % kParts + 0.5) / kParts) / kPeriod * kCircle;
    const double v = (y + (i / kParts + 0.5) / kParts) / kPeriod * kCircle;
    inked += 0.5 + 0.25 * (std::cos(u + v) + std::cos(u - v)) < coverage;
  }
  return static_cast<float>(0.9 - 0.86 * inked / (kParts * kParts));
}

TEST(Light, FlatTonesOfAPrintAreThoseOfItsLightOnlyWhereTheFileTellsTheCurve) {
  const ToneCurve& curve = ToneCurve::Srgb();
  EXPECT_NEAR(0.2140f, curve.LightOf(kHostMax / 2) / kHostMax, 1e-4);
  EXPECT_NEAR(0.5f, curve.LevelOf(0.2140f * kHostMax) / kHostMax, 1e-4);
  ToneCurve scaled;
  const float light3[] = {0.2f, 0.4f, 1.0f};
  ASSERT_TRUE(scaled.Create(light3, 3));
  EXPECT_NEAR(0.25f, scaled.LightOf(kHostMax / 2) / kHostMax, 1e-4);
  Image print;
  ASSERT_TRUE(print.Create(480, 320, kGray8));
  double light[6] = {};
  const auto forInner = [&](const auto& visit) {
    for (int y = 0; y < 320; ++y) {
      for (int x = 0; x < 480; ++x) {
        if (x % 160 >= 30 && x % 160 < 130 && y % 160 >= 30 && y % 160 < 130) {
          visit(x / 160 + 3 * (y / 160), x, y);
        }
      }
    }
  };
  for (int i = 0; i < 480 * 320; ++i) {
    const float level = curve.LevelOf(PrintedLight(i % 480, i / 480) * kHostMax);
    print.view().Row(i / 480)[i % 480] = static_cast<uint8_t>(std::lround(level * kHostToByte));
  }
  forInner([&](int field, int x, int y) {
    light[field] += double{curve.LightOf(print.view().Row(y)[x] * kByteToHost)} / 1e4;
  });
  Settings settings;
  settings.isAutomatic = true;
  Workspace workspace;
  Analysis analysis;
  Findings findings;
  Mask mask;
  const PictureView from = PictureOf(print.view());
  ASSERT_EQ(kSuccess, Analyse(from, workspace, {}, &analysis));
  ASSERT_EQ(kSuccess, DecideWhole(from, analysis, settings, workspace, &findings));
  ASSERT_EQ(kSuccess, Shape(findings, settings, &mask));
  for (const ToneCurve* told : {&curve, static_cast<const ToneCurve*>(nullptr)}) {
    Image result;
    ASSERT_TRUE(result.Create(480, 320, kGray8));
    RestorationSettings restoration;
    restoration.light.curve = told;
    ASSERT_EQ(kSuccess,
              Restore(from, PictureOf(result.view()), findings, mask, workspace, {}, restoration, {}));
    double tone[6] = {}, worst = 0;
    forInner([&](int field, int x, int y) { tone[field] += result.view().Row(y)[x] / 1e4; });
    for (int field = 0; field < 6; ++field) {
      const float wanted = curve.LevelOf(static_cast<float>(light[field])) * kHostToByte;
      worst = std::max(worst, std::abs(tone[field] - double{wanted}));
    }
    EXPECT_EQ(told != nullptr, worst <= 0.5) << worst;
  }
  findings.strongAmplitude /= 20;  // as a weave's
  EXPECT_EQ(nullptr, LightFor({Light::kAuto, &curve}, findings));
}

// Stops at the first report beyond a part of the whole.
struct Listener {
  double stopBeyond, last = 0.0;
  bool isRising = true;
  int stops = 0;

  static bool Report(void* user, double part) {
    auto* const self = static_cast<Listener*>(user);
    self->isRising &= part >= self->last;
    self->last = part;
    self->stops += part > self->stopBeyond;
    return part > self->stopBeyond;
  }
};

TEST(Restore, TellsRisingPartsAndStopsInEveryStepButTheLastWithThePictureAsItWas) {
  const Picture input = ReadPicture("restore/halftone.png");
  Settings settings;
  settings.isAutomatic = true;
  Workspace workspace;
  Analysis analysis;
  Findings findings;
  Mask mask;
  Image first = ImageOf(input);
  ASSERT_EQ(kSuccess, Analyse(PictureOf(first.view()), workspace, {}, &analysis));
  ASSERT_EQ(kSuccess, DecideWhole(PictureOf(first.view()), analysis, settings, workspace, &findings));
  ASSERT_EQ(kSuccess, Shape(findings, settings, &mask));
  for (const double beyond : {-1.0, 0.15, 0.24, 0.3, 0.6, 0.66, 0.74, 0.8, 1.0}) {
    Image picture = ImageOf(input);
    const PictureView view = PictureOf(picture.view());
    Listener listener{beyond};
    const int32_t result =
        Restore(view, view, findings, mask, workspace, {}, {}, {Listener::Report, &listener});
    EXPECT_TRUE(listener.isRising);
    if (beyond < 0.25 || (beyond > 0.65 && beyond < 0.75)) {  // the filter ends its channel
      EXPECT_EQ(1, listener.stops) << beyond;
    }
    EXPECT_EQ(beyond < 0.75 ? kUserCancelled : kSuccess, result) << beyond;
    EXPECT_EQ(beyond < 0.75, input.samples == SamplesOf(picture.view()).samples) << beyond;
    EXPECT_EQ(beyond >= 0.75, listener.last == 1.0) << beyond;
  }
}

TEST(BadInput, FindsNothingAndForcedThroughEveryStepStaysANumber) {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  const struct {
    int width, height;
    float level, other;  // of one sample in the middle
    PeakScale scale;
  } cases[] = {{1, 1, 0.5f, 0.5f, PeakScale::kFine},         {1, 7500, 0.5f, 0.5f, PeakScale::kFine},
               {300, 200, 0.5f, 0.5f, PeakScale::kFine},     {90, 70, 0.0f, 1.0f, PeakScale::kNear},
               {300, 200, 1.0f, 0.0f, PeakScale::kFar},      {300, 200, 0.5f, NAN, PeakScale::kFine},
               {300, 200, 0.5f, kInfinity, PeakScale::kFar}, {1, 1, 0.5f, 0.5f, PeakScale::kLocal},
               {300, 200, 0.5f, NAN, PeakScale::kParts},     {1, 1, 0.5f, 0.5f, PeakScale::kLines},
               {300, 200, 0.5f, NAN, PeakScale::kLines},     {90, 1, 0.0f, 1.0f, PeakScale::kLines}};
  for (const auto& bad : cases) {
    const auto samples = static_cast<size_t>(bad.width * bad.height);
    std::vector<float> picture(samples, bad.level);
    picture[samples / 2] = bad.other;
    PictureView view{bad.width, bad.height, SampleFormat::kFloat, 1, {}};
    view.channel[0] = {reinterpret_cast<uint8_t*>(picture.data()), 4, 4 * bad.width};
    Settings settings;
    settings.isAutomatic = true;
    Workspace workspace;
    Analysis analysis;
    Findings findings;
    Mask mask;
    ASSERT_EQ(kSuccess, Analyse(view, workspace, {}, &analysis));
    ASSERT_EQ(kSuccess, DecideWhole(view, analysis, settings, workspace, &findings));
    EXPECT_EQ(0, findings.seedCells);
    SpectrumPeak peak{};
    peak.dx = 70, peak.dy = -31, peak.isLicensed = true, peak.scale = bad.scale;
    findings.peaks = {peak};
    findings.seeds.view().Row(256 + 31)[256 + 70] = findings.seeds.view().Row(256 - 31)[256 - 70] = 255;
    ASSERT_EQ(kSuccess, Shape(findings, settings, &mask));
    for (const bool everywhere : {false, true}) {
      Image gate;
      RestorationSettings restoration{everywhere, kPolishRange.maximum};
      ASSERT_EQ(kSuccess, Restore(view, view, findings, mask, workspace, {}, restoration, {}, &gate));
      for (size_t i = 0; i < samples && std::isfinite(bad.other); ++i) {
        ASSERT_NEAR(i == samples / 2 ? bad.other : bad.level, picture[i], 0.05);
      }
      EXPECT_TRUE(!everywhere || gate.view().Row(bad.height / 2)[bad.width / 2] == 255);
    }
    EXPECT_EQ(kSuccess, CheckLicences({view, bad.width, bad.height, {}}, workspace.parallel(), &findings));
    EXPECT_EQ(PeakVerdict::kTooFaint, findings.peaks[0].verdict);
  }
}

}  // namespace
}  // namespace tessaline
