// Pictures of sensors whose rows and columns have an offset each, and pictures that only look alike.
#include "restoration/line_offsets.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>

#include "restoration/decision.h"
#include "restoration/film_decision.h"
#include "restoration/restoration.h"
#include "tests/support/picture_files.h"

namespace tessaline {
namespace {

constexpr int kWidth = 420, kHeight = 300, kWhiteFrom = 380;

// What every line has, levels of 255.
using Offsets = std::vector<double>;
Offsets RandomOffsets(int lines, double size, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal(0.0, size);
  Offsets offsets(static_cast<size_t>(lines));
  for (double& offset : offsets) offset = normal(random);
  return offsets;
}

// A slope with a horizon, waves and grain, white at its right end.
Picture Scene(const Offsets& rows, const Offsets& columns, unsigned seed = 1) {
  std::mt19937 random(seed);
  std::normal_distribution<double> grain(0.0, 2.0);
  Picture picture{kWidth, kHeight, 3, 8, {}};
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const double wave = 15 * std::sin(x / 31.0 + y / 17.0) + (y > 40 ? 40 : 0);
      const double offset = (rows.empty() ? 0 : rows[static_cast<size_t>(y)]) +
                            (columns.empty() ? 0 : columns[static_cast<size_t>(x)]);
      for (int c = 0; c < 3; ++c) {
        const double level = 60 + 20 * c + 0.1 * x + wave + grain(random) + offset;
        picture.samples.push_back(x < kWhiteFrom ? static_cast<uint16_t>(std::lround(level)) : 255);
      }
    }
  }
  return picture;
}

struct Outcome {
  Findings findings;
  Picture result;
  Image gate;
};

void Clean(const Picture& picture, int threads, Outcome* outcome, double sensitivity = 1.0) {
  const auto pool = MakeThreadPool(threads);
  Workspace workspace(*pool);
  Image image = ImageOf(picture);
  const PictureView view = PictureOf(image.view());
  Settings settings;
  settings.isAutomatic = true;
  settings.sensitivity = sensitivity;
  Analysis analysis;
  Mask mask;
  ASSERT_EQ(kSuccess, Analyse(view, workspace, {}, &analysis));
  ASSERT_EQ(kSuccess, DecideWhole(view, analysis, settings, workspace, &outcome->findings));
  if (outcome->findings.seedCells == 0) return;
  ASSERT_EQ(kSuccess, Shape(outcome->findings, settings, &mask));
  const auto isStopped = [](void*, double part) { return part < 1.0; };
  EXPECT_EQ(kUserCancelled, Restore(view, view, outcome->findings, mask, workspace, {}, {}, {isStopped}));
  EXPECT_EQ(picture.samples, SamplesOf(image.view()).samples);
  ASSERT_EQ(kSuccess, Restore(view, view, outcome->findings, mask, workspace, {}, {}, {}, &outcome->gate));
  outcome->result = SamplesOf(image.view());
}

double Error(const Picture& a, const Picture& b) {
  double squares = 0;
  for (size_t i = 0; i < a.samples.size(); ++i) squares += std::pow(a.samples[i] - b.samples[i], 2);
  return std::sqrt(squares / static_cast<double>(a.samples.size()));
}

TEST(LineOffsets, AreTakenOutOfTheLinesThatHaveThemForAnyNumberOfThreads) {
  const Offsets rows = RandomOffsets(kHeight, 3, 2);
  constexpr int kHot = 200;
  Offsets columns = RandomOffsets(kWidth, 2, 3);
  columns[kHot] = 20;
  const struct {
    const Offsets &rows, &columns;
    double most;  // of the error before that is left
  } cases[] = {{rows, {}, 0.5}, {{}, columns, 0.55}, {rows, columns, 0.5}};
  const Picture original = Scene({}, {});
  for (const auto& sensor : cases) {
    const Picture picture = Scene(sensor.rows, sensor.columns);
    Outcome one, three;
    Clean(picture, 1, &one);
    Clean(picture, 3, &three);
    EXPECT_EQ(one.result.samples, three.result.samples);
    EXPECT_LT(Error(original, one.result) / Error(original, picture), sensor.most);
    bool haveOffsets[2] = {};
    for (const SpectrumPeak& peak : one.findings.peaks) {
      if (!peak.isLicensed) continue;
      EXPECT_EQ(PeakScale::kLines, peak.scale);
      haveOffsets[peak.dx != 0] = true;
    }
    if (!sensor.columns.empty()) {
      double hot = 0;
      for (int y = 0; y < kHeight; ++y) hot += one.result.At(kHot, y) - original.At(kHot, y);
      EXPECT_LT(std::abs(hot / kHeight), 6);
    }
    EXPECT_EQ(!sensor.rows.empty(), haveOffsets[0]);
    EXPECT_EQ(!sensor.columns.empty(), haveOffsets[1]);
    for (int y = 0; y < kHeight; ++y) {
      ASSERT_EQ(255, one.result.At(kWhiteFrom + y % 40, y)) << "was cut off";
      ASSERT_EQ(255, one.gate.view().Row(y)[y]);
    }
  }
}

TEST(LineOffsets, AreNotSeenInWhatRepeatsOrIsThePictures) {
  Offsets blinds(kHeight), edges(kHeight), some = RandomOffsets(kHeight, 3, 4);
  for (int y = 0; y < kHeight; ++y) blinds[static_cast<size_t>(y)] = y % 16 < 8 ? 4 : -4;
  for (int y = 0, level = 3; y < kHeight; ++y) {
    edges[static_cast<size_t>(y)] = level;
    if (y % 2 == 1 && some[static_cast<size_t>(y)] > 0) level = -level;
  }
  for (const Offsets& rows : {blinds, edges, RandomOffsets(kHeight, 0.6, 5), RandomOffsets(kHeight, 15, 6)}) {
    Outcome outcome;
    Clean(Scene(rows, {}), 1, &outcome);
    EXPECT_FALSE(IsOfLines(outcome.findings));
  }
  Picture half = Scene(some, {});
  const Picture still = Scene({}, {});
  std::copy_n(still.samples.begin(), half.samples.size() / 2, half.samples.begin());
  Outcome outcome, fainter;
  Clean(half, 1, &outcome);
  EXPECT_FALSE(IsOfLines(outcome.findings));
  Clean(Scene(RandomOffsets(kHeight, 0.9, 5), {}), 1, &fainter, 2.0);
  EXPECT_TRUE(IsOfLines(fainter.findings));
}

// A film's decision is one, and every frame's offsets are its own.
TEST(LineOffsets, AreTakenOutOfFramesThatWereNotLookedAt) {
  Workspace workspace;
  Settings settings;
  settings.isAutomatic = true;
  FilmDecision film(settings);
  ASSERT_EQ(kSuccess, film.Begin());
  for (unsigned frame = 0; frame < 3; ++frame) {
    Image image = ImageOf(Scene(RandomOffsets(kHeight, 2, 10 + frame), {}, frame));
    Analysis analysis;
    ASSERT_EQ(kSuccess, Analyse(PictureOf(image.view()), workspace, {}, &analysis));
    ASSERT_EQ(kSuccess, film.Add(PictureOf(image.view()), analysis, workspace.parallel()));
  }
  KeptDecision kept;
  Findings findings;
  Mask mask;
  ASSERT_EQ(kSuccess, film.Make(workspace, &kept));
  ASSERT_EQ(kSuccess, FindingsOf(kept, &findings));
  ASSERT_EQ(kSuccess, Shape(findings, settings, &mask));
  ASSERT_TRUE(IsOfLines(findings));
  const Picture original = Scene({}, {}), picture = Scene(RandomOffsets(kHeight, 2, 20), {});
  Image image = ImageOf(picture);
  const PictureView view = PictureOf(image.view());
  ASSERT_EQ(kSuccess, Restore(view, view, findings, mask, workspace, {}, {}, {}));
  EXPECT_LT(Error(original, SamplesOf(image.view())) / Error(original, picture), 0.55);
}

}  // namespace
}  // namespace tessaline
