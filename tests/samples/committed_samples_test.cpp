#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vips/vips8>

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

}  // namespace
}  // namespace tessaline::samples
