#include "removal/steps.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "image/pixel_kind.h"
#include "removal/kept_spectra.h"
#include "removal/pattern_name.h"
#include "removal/spectrum_picture.h"
#include "tests/support/picture_files.h"

namespace tessaline {
namespace {

template <typename Sample>
struct FormatCase {
  SampleFormat format;
  std::vector<Sample> samples;
  std::vector<float> levels;               // of the samples
  std::vector<float> results;              // levels, too
  std::vector<Sample> truncated, nearest;  // what is stored of them
};

// Every third sample of two rows with a gap between them, from right to left and from the bottom up.
template <typename Sample>
void ExpectLevels(const FormatCase<Sample>& expected) {
  const size_t width = expected.samples.size();
  const size_t rowSamples = 3 * width + 2;
  std::vector<Sample> memory(2 * rowSamples, Sample{9});
  const auto at = [&](size_t x, size_t y) -> Sample& {
    return memory[(1 - y) * rowSamples + 3 * (width - 1 - x)];
  };
  const auto sampleBytes = static_cast<ptrdiff_t>(sizeof(Sample));
  PictureView picture = {static_cast<int32_t>(width), 2, expected.format, 1, {}};
  picture.channel[0] = {reinterpret_cast<uint8_t*>(&at(0, 0)), -3 * sampleBytes,
                        -sampleBytes * static_cast<ptrdiff_t>(rowSamples)};
  std::vector<float> levels(2 * width);
  for (size_t x = 0; x < width; ++x) at(x, 1) = expected.samples[x];
  double sum = LoadLevels(picture, 0, 1, levels.data());
  for (size_t x = 0; x < width; ++x) {
    EXPECT_FLOAT_EQ(expected.levels[x], levels[2 * x]);
    sum -= levels[2 * x];
    levels[2 * x] = expected.results[x];
  }
  EXPECT_NEAR(0, sum, 1e-3);
  for (const Rounding rounding : {Rounding::kTruncate, Rounding::kNearest}) {
    StoreLevels(picture, 0, 1, rounding, levels.data());
    std::vector<Sample> stored;
    for (size_t x = 0; x < width; ++x) stored.push_back(at(x, 1));
    EXPECT_EQ(rounding == Rounding::kNearest ? expected.nearest : expected.truncated, stored);
  }
  for (size_t x = 0; x < width; ++x) at(x, 1) = 9;
  EXPECT_EQ(std::vector<Sample>(memory.size(), Sample{9}), memory) << "others were written";
}

TEST(Pictures, AreReadAndWrittenInEveryFormatAtAnyStride) {
  ExpectLevels<uint8_t>({SampleFormat::kByte,
                         {0, 1, 2, 254, 255},
                         {0, 128.50197f, 257.00394f, 32639.5f, 32768},
                         {192.5f, 193.5f, -5, 4e4f, NAN},
                         {1, 1, 0, 255, 0},
                         {1, 2, 0, 255, 0}});
  ExpectLevels<uint16_t>({SampleFormat::kHost16,
                          {0, 1, 9, 32768, 65535},
                          {0, 1, 9, 32768, 65535},
                          {7.25f, 7.5f, -5, 4e4f, 32767.75f},
                          {7, 7, 0, 32768, 32767},
                          {7, 8, 0, 32768, 32768}});
  ExpectLevels<uint16_t>({SampleFormat::kFull16,
                          {0, 1, 2, 32768, 65535},
                          {0, 0.50000763f, 1.0000153f, 16384.25f, 32768},
                          {0.7f, 0.8f, -5, 4e4f, 32768},
                          {1, 1, 0, 65535, 65535},
                          {1, 2, 0, 65535, 65535}});
  const std::vector<float> levels = {0, 32768, -8192, 49152, 3};
  const std::vector<float> samples = {0, 1, -0.25f, 1.5f, 3 / 32768.0f};
  ExpectLevels<float>({SampleFormat::kFloat, samples, levels, levels, samples, samples});
}

Image Noise(int32_t width, int32_t height) {
  Image image;
  EXPECT_TRUE(image.Create(width, height, kRgb8));
  std::mt19937 random(static_cast<uint32_t>(width));
  for (int32_t i = 0; i < width * height * kRgb8; ++i) image.view().data[i] = static_cast<uint8_t>(random());
  return image;
}

TEST(AddSpectrum, SumsPicturesOfOneTransformSize) {
  Image first = Noise(40, 70), second = Noise(300, 20), wide = Noise(775, 1), complex;
  ASSERT_TRUE(complex.Create(8, 8, kGrayComplex));
  Workspace workspace;
  Analysis both, one, other;
  const auto add = [&](Image& image, Analysis* analysis) {
    return AddSpectrum(PictureOf(image.view()), workspace, {}, analysis);
  };
  ASSERT_EQ(kSuccess, add(first, &both) + add(second, &both) + add(first, &one) + add(second, &other));
  double worst = 0;
  for (int32_t i = 0; i < kSpectrumCells * kSpectrumCells; ++i) {
    const auto sum = [i](Analysis& analysis) { return analysis.sums.view().Row<double>(0)[i]; };
    worst = std::max(worst, std::abs(sum(one) + sum(other) - sum(both)) / sum(both));
  }
  EXPECT_LT(worst, 1e-12);
  EXPECT_EQ(kUnequalSizes, add(wide, &both));
  EXPECT_EQ(kUnknownPixelKind, add(complex, &both));
}

TEST(Apply, LeavesAPictureUntouchedOrFinishesItWhateverItsFormat) {
  const Picture input = ReadPicture("lines-grey8/input.png");
  Image image = ImageOf(input);
  const PictureView view = PictureOf(image.view());
  // The same levels as floats.
  std::vector<float> floats(input.samples.size());
  for (size_t i = 0; i < floats.size(); ++i) floats[i] = input.samples[i] * kByteToHost / kHostMax;
  const auto rowBytes = static_cast<ptrdiff_t>(sizeof(float)) * input.width;
  const PictureView floatView = {input.width,
                                 input.height,
                                 SampleFormat::kFloat,
                                 1,
                                 {{reinterpret_cast<uint8_t*>(floats.data()), sizeof(float), rowBytes}}};
  Mask mask;
  ASSERT_TRUE(mask.cells.Create(kSpectrumCells, kSpectrumCells, kGray8));
  mask.cells.view().Row(256)[300] = mask.cells.view().Row(256)[212] = 255;

  double stopFrom = 0.0;
  const Progress progress = {[](void* user, double part) { return part >= *static_cast<double*>(user); },
                             &stopFrom};
  const auto apply = [&](const PictureView& from, const PictureView& to) {
    Workspace workspace;
    return Apply(from, to, mask, workspace, {}, progress);
  };
  EXPECT_EQ(kUserCancelled, apply(view, view));
  stopFrom = 1e-9;  // too late
  EXPECT_EQ(kUnequalSizes, apply(view, floatView));
  ASSERT_EQ(input.samples, SamplesOf(image.view()).samples);
  ASSERT_EQ(kSuccess, apply(view, view));
  stopFrom = 2.0;  // never
  ASSERT_EQ(kSuccess, apply(floatView, floatView));
  const Picture cleaned = SamplesOf(image.view());
  EXPECT_NE(input.samples, cleaned.samples);
  for (size_t i = 0; i < floats.size(); ++i)
    ASSERT_EQ(cleaned.samples[i], StoreByte(floats[i] * kHostMax * kHostToByte)) << i;
}

// Channel after channel, row after row.
class LevelsOf final : public FilteredRows {
 public:
  explicit LevelsOf(const PictureView& picture) : picture_(picture) {
    levels_.resize(static_cast<size_t>(picture.width) * static_cast<size_t>(picture.height) *
                   static_cast<size_t>(picture.channels));
  }
  void Take(int32_t channel, int32_t y, float* row) override {
    float* const to =
        &levels_[static_cast<size_t>(channel * picture_.height + y) * static_cast<size_t>(picture_.width)];
    for (int32_t x = 0; x < picture_.width; ++x) to[x] = row[2 * x];
  }
  const std::vector<float>& levels() const { return levels_; }

 private:
  PictureView picture_;
  std::vector<float> levels_;
};

TEST(KeptSpectra, GiveWhatFilterTakesForOneMaskAfterAnother) {
  Image image = Noise(90, 61);
  PictureView picture = PictureOf(image.view());
  picture.channels = 1;  // the padding of the others goes on from what was left of the one before
  Workspace workspace;
  KeptSpectra spectra;
  MaskShares shares;
  ASSERT_EQ(kSuccess, spectra.Load(picture, workspace));
  LevelsOf before(picture);
  std::vector<float> row(2 * 90);
  for (int32_t y = 0; y < 61; ++y) {
    LoadLevels(picture, 0, y, row.data());
    before.Take(0, y, row.data());
  }
  Mask mask;
  ASSERT_TRUE(mask.cells.Create(kSpectrumCells, kSpectrumCells, kGray8));
  for (const int32_t distance : {0, 37, 255}) {  // the last beside the spectrum's edge
    for (int32_t i = 0; i < 9; ++i) {
      for (const int32_t side : {-1, 1}) {
        mask.cells.view().Row(256 + side * (i % 3))[256 + side * distance - i / 9] =
            static_cast<uint8_t>(255 - 20 * i);
      }
    }
    LevelsOf left(picture), taken(picture);
    ASSERT_EQ(kSuccess, Filter(picture, mask, workspace, {}, {}, left));
    ASSERT_EQ(kSuccess, shares.Fill(mask, spectra.transformSize(), workspace));
    ASSERT_EQ(kSuccess, spectra.TakeOut(shares, workspace, taken));
    double worst = 0, most = 0;
    for (size_t i = 0; i < before.levels().size(); ++i) {
      const double expected = before.levels()[i] - left.levels()[i];
      worst = std::max(worst, std::abs(expected - taken.levels()[i]));
      most = std::max(most, std::abs(expected));
    }
    EXPECT_LT(worst, 1.0) << distance;  // of 32768
    EXPECT_GT(most, 100.0) << distance;
  }
}

SpectrumPeak LicensedPeak(int32_t dx, int32_t dy) {
  SpectrumPeak peak = {};
  peak.dx = dx;
  peak.dy = dy;
  peak.isLicensed = true;
  peak.verdict = PeakVerdict::kUsed;
  return peak;
}

TEST(NamePattern, TellsScreensFromLinesAndCountsInTheUnitThatIsKnown) {
  const std::vector<SpectrumPeak> line = {LicensedPeak(0, -64)};
  EXPECT_EQ("a line pattern of period 8.00 px at 90 deg", NamePattern(line, {}, 0, 0).text);
  EXPECT_EQ("an 87.5 lpi line pattern at 90 deg", NamePattern(line, {}, 300, 700).text);
  std::vector<SpectrumPeak> screens = {LicensedPeak(90, -90), LicensedPeak(-90, -90)};
  EXPECT_EQ("a 74.6 lpi screen at 45 deg", NamePattern(screens, {}, 300, 300).text);
  screens.insert(screens.end(), {LicensedPeak(123, -33), LicensedPeak(-33, -123), LicensedPeak(250, 0)});
  EXPECT_EQ("74.6 lpi screens at 15 and 45 deg", NamePattern(screens, {}, 300, 300).text);
  EXPECT_TRUE(NamePattern(screens, {}, 300, 300).isPlural);
  std::vector<SpectrumPeak> lines = {LicensedPeak(152, 0), LicensedPeak(0, -152)};
  for (SpectrumPeak& axis : lines) axis.scale = PeakScale::kLines;
  EXPECT_EQ("offsets of rows and columns", NamePattern(lines, {}, 300, 300).text);
  EXPECT_EQ("offsets of columns", NamePattern({lines[0]}, {}, 0, 0).text);
  screens[0].isLicensed = false;
  EXPECT_EQ("a pattern", NamePattern({screens[0]}, {}, 0, 0).text);
}

TEST(DrawSpectrum, LettersStandTheRightWayRound) {
  Analysis analysis;
  Findings findings;
  Mask mask;
  findings.isAutomatic = true;
  ASSERT_TRUE(analysis.rawGray16.Create(kSpectrumCells, kSpectrumCells, kGray16) &&
              mask.cells.Create(kSpectrumCells, kSpectrumCells, kGray8));
  const std::vector<uint8_t> picture = DrawSpectrum(analysis, findings, mask, 8);
  const auto at = [&](size_t x, size_t y) { return picture[3 * (y * kSpectrumCells + x)]; };
  // Above the middle stroke of the first E of the legend: its stem, and nothing to the right.
  EXPECT_NE(at(0, 543), at(24, 543));
  EXPECT_EQ(at(0, 543), at(32, 543));
}

}  // namespace
}  // namespace tessaline
