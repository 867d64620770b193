#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>

#include "samples/noise.h"
#include "samples/scene.h"
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

// How much of the wave with so many cycles a pixel along and down is in the first channel.
double Strength(const Picture& picture, double cyclesX, double cyclesY) {
  std::complex<double> sum = 0;
  for (int y = 0; y < picture.height; ++y)
    for (int x = 0; x < picture.width; ++x)
      sum +=
          double{picture.At(x, y, 0)} * std::polar(1.0, -2 * std::numbers::pi * (cyclesX * x + cyclesY * y));
  return 2 * std::abs(sum) / (picture.width * picture.height);
}

TEST(Scene, IsTheSameEveryTimeAndHasNoHolesInIt) {
  const Picture first = DrawScene(48, 32);
  EXPECT_EQ(first.samples, DrawScene(48, 32).samples);
  for (const float sample : first.samples) {
    EXPECT_GE(sample, 0.0f);  // false for what is no number, too
    EXPECT_LE(sample, 1.0f);
  }
}

TEST(Newsprint, InksAsMuchPaperAsTheToneAsksFor) {
  const double white = Mean(PrintNewsprint(EvenGrey(120, 1.0f), 85, kDotsPerInch));
  const double black = Mean(PrintNewsprint(EvenGrey(120, 0.0f), 85, kDotsPerInch));
  EXPECT_GT(white - black, 0.6);
  // Tones 0.04 to 0.94 are printed true, so a quarter of the way in tone is a quarter of the way in ink.
  const auto printed = [](float tone) { return Mean(PrintNewsprint(EvenGrey(120, tone), 85, kDotsPerInch)); };
  const double perTone = (printed(0.8f) - printed(0.2f)) / 0.6;
  EXPECT_NEAR(printed(0.35f), printed(0.2f) + 0.15 * perTone, 0.01);
  EXPECT_NEAR(printed(0.65f), printed(0.2f) + 0.45 * perTone, 0.01);
}

TEST(Newsprint, HasItsLinesAtFortyFiveDegreesAndSoManyAnInch) {
  const double alongBoth = 60 / kDotsPerInch * std::numbers::sqrt2 / 2;
  const Picture print = PrintNewsprint(EvenGrey(240, 0.5f), 60, kDotsPerInch);
  EXPECT_GT(Strength(print, alongBoth, alongBoth), 0.15);
  EXPECT_GT(Strength(print, alongBoth, -alongBoth), 0.15);
  EXPECT_LT(Strength(print, 60 / kDotsPerInch, 0), 0.01);
}

TEST(FourInks, EachHasAnAngleOfItsOwn) {
  const double cycles = 60 / kDotsPerInch;
  const Picture print = PrintFourInks(EvenGrey(240, 0.4f), 60, kDotsPerInch);
  for (const double degrees : {15.0, 45.0, 75.0}) {
    const double angle = degrees * std::numbers::pi / 180;
    EXPECT_GT(Strength(print, cycles * std::cos(angle), cycles * std::sin(angle)), 0.015) << degrees;
  }
  EXPECT_LT(Strength(print, cycles * std::cos(0.52), cycles * std::sin(0.52)), 0.005);  // 30 degrees: none
}

TEST(LineNoiseAndWeave, LeaveTheMeanToneInItsPlace) {
  // Both draw the tone into a narrower range first: 0.11 + 0.78 t, and 0.06 + 0.84 t.
  EXPECT_NEAR(0.5, Mean(WithLineNoise(EvenGrey(240, 0.5f))), 0.01);
  EXPECT_NEAR(0.48, Mean(WithWeave(EvenGrey(240, 0.5f))), 0.01);
}

}  // namespace
}  // namespace tessaline::samples
