#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>
#include <vips/vips8>

#include "buffers/buffer_table.h"
#include "removal/removal_run.h"
#include "samples/scene.h"
#include "samples/screens.h"

namespace tessaline::samples {
namespace {

// As draw_samples has them.
constexpr int kWidth = 768;
constexpr int kHeight = 548;
constexpr double kDotsPerInch = 300;
constexpr double kLinesPerInch = 87;

const Picture& Scene() {
  static const Picture scene = DrawScene(kWidth, kHeight);
  return scene;
}

// A file of samples/ as 0..1, and its resolution.
Picture ReadSample(const std::string& name, double* dotsPerInch) {
  EXPECT_EQ(0, VIPS_INIT("committed_samples_test"));
  const vips::VImage image = vips::VImage::new_from_file((std::string(TESSALINE_SAMPLES "/") + name).c_str());
  *dotsPerInch = image.xres() * 25.4;
  size_t bytes = 0;
  auto* levels = static_cast<uint8_t*>(image.cast(VIPS_FORMAT_UCHAR).write_to_memory(&bytes));
  Picture picture(image.width(), image.height(), image.bands());
  for (size_t i = 0; i < bytes && i < picture.samples.size(); ++i) picture.samples[i] = levels[i] / 255.0f;
  g_free(levels);
  return picture;
}

void ExpectIsWhatTheProgramDraws(const std::string& name, const Picture& drawn) {
  double dotsPerInch = 0;
  const Picture file = ReadSample(name, &dotsPerInch);
  EXPECT_NEAR(kDotsPerInch, dotsPerInch, 0.1);
  ASSERT_EQ(drawn.samples.size(), file.samples.size());
  // The last digits of sin() and exp() are the C library's own, and a ray that just hits may just miss
  // elsewhere: one sample in a thousand may differ.
  size_t different = 0;
  for (size_t i = 0; i < drawn.samples.size(); ++i)
    different += std::abs(drawn.samples[i] - file.samples[i]) > 1.01 / 255 ? 1 : 0;
  EXPECT_LE(different, drawn.samples.size() / 1000);
}

TEST(CommittedSamples, AreWhatTheProgramDrawsAt300DotsPerInch) {
  ExpectIsWhatTheProgramDraws("newsprint.png", PrintNewsprint(Scene(), kLinesPerInch, kDotsPerInch));
  ExpectIsWhatTheProgramDraws("rosette.png", PrintFourInks(Scene(), kLinesPerInch, kDotsPerInch));
  ExpectIsWhatTheProgramDraws("line-noise.png", WithLineNoise(Scene()));
}

// Root mean square of what differs, 0..1, after the best gain and offset: a print has paper and ink of its
// own.
double DifferenceInShape(const std::vector<double>& a, const std::vector<double>& b) {
  const auto count = static_cast<double>(a.size());
  double sumA = 0, sumB = 0, sumAB = 0, sumBB = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    sumA += a[i];
    sumB += b[i];
    sumAB += a[i] * b[i];
    sumBB += b[i] * b[i];
  }
  const double gain = (sumAB - sumA * sumB / count) / (sumBB - sumB * sumB / count);
  double squares = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    const double apart = (a[i] - sumA / count) - gain * (b[i] - sumB / count);
    squares += apart * apart;
  }
  return std::sqrt(squares / count);
}

TEST(CommittedSamples, NewsprintComesNearerToItsOriginalWhenCleaned) {
  double dotsPerInch = 0;
  const Picture print = ReadSample("newsprint.png", &dotsPerInch);
  ResetBufferTable();
  int32_t slot = 0;
  ASSERT_EQ(0, CreateBuffer("newsprint", kWidth, kHeight, 1, &slot));
  std::vector<uint8_t> row(kWidth);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) row[x] = static_cast<uint8_t>(std::lround(print.At(x, y, 0) * 255));
    WriteBufferRow(slot, 0, y, kWidth, row.data());
  }
  FilterParameters parameters{95.0f, 6.0f, 8.0f};
  ASSERT_EQ(0, RunRemoval(slot, &parameters, nullptr, true, {}));

  std::vector<double> original, before, after;
  for (int y = 0; y < kHeight; ++y) {
    ReadBufferRow(slot, 0, y, kWidth, row.data());
    for (int x = 0; x < kWidth; ++x) {
      original.push_back(0.299 * Scene().At(x, y, 0) + 0.587 * Scene().At(x, y, 1) +
                         0.114 * Scene().At(x, y, 2));
      before.push_back(print.At(x, y, 0));
      after.push_back(row[x] / 255.0);
    }
  }
  ReleaseBuffer(slot);
  const double ratio = DifferenceInShape(after, original) / DifferenceInShape(before, original);
  RecordProperty("difference_after_to_before", std::to_string(ratio));
  EXPECT_LT(ratio, 0.5);
}

}  // namespace
}  // namespace tessaline::samples
