#include <gtest/gtest.h>

#include "samples/screens.h"

namespace tessaline::samples {
namespace {

constexpr double kDotsPerInch = 300;

Picture EvenGrey(int side, float tone) {
  Picture picture(side, side, 3);
  for (float& sample : picture.samples) sample = tone;
  return picture;
}

double Mean(const Picture& picture) {
  double sum = 0;
  for (const float sample : picture.samples) sum += sample;
  return sum / static_cast<double>(picture.samples.size());
}

TEST(LineNoiseAndWeave, LeaveTheMeanToneInItsPlace) {
  // Both draw the tone into a narrower range first: 0.11 + 0.78 t, and 0.06 + 0.84 t.
  EXPECT_NEAR(0.5, Mean(WithLineNoise(EvenGrey(240, 0.5f))), 0.01);
  EXPECT_NEAR(0.48, Mean(WithWeave(EvenGrey(240, 0.5f))), 0.01);
}

}  // namespace
}  // namespace tessaline::samples
