#include "glue/host/color_rows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

namespace tessaline {
namespace {

using Triple = std::vector<double>;

double Clamp(double value) {
  return std::clamp(value, 0.0, 255.0);
}

// The formulas once more, in double precision and with the C library, on the 0..255 scale.
Triple SlowFetchLab(double p0, double p1, double p2) {
  const double m = (p0 + p1 + p2 + 1) / 3;
  return {(std::exp(0.8 * std::log(m + 0.05)) - 0.09102821) * 3.032, Clamp((p0 - p1) * 0.33333 + 127.5),
          Clamp(((p0 + p1) * 0.5 - p2) * 0.83333 + 127.5)};
}

Triple SlowCopyBackLab(double p0, double p1, double p2) {
  const double base = (std::exp(1.28 * std::log(p0 + 0.05)) - 0.21611336) * 0.21190332;
  const double a = (p1 - 127.5) * 3 * 0.5, b = (p2 - 127.5) * 1.2;
  return {Clamp(base + a + b / 3 + 0.5), Clamp(base - a + b / 3 + 0.5), Clamp(base - 2 * b / 3 + 0.5)};
}

// `slow` is on the 0..255 scale and not yet truncated.
template <typename Sample>
void ExpectTruncatedLevels(const Triple& slow, const Sample* fast, double scale) {
  for (int i = 0; i < 3; ++i) {
    const double level = slow[i] * scale;
    EXPECT_LE(fast[i], level + 0.02);
    EXPECT_GT(fast[i], level - 1.02);
  }
}

template <typename Sample>
void ExpectLab(void (*fast)(Sample*, int32_t), Triple (*slow)(double, double, double), int32_t step,
               double scale) {
  const int32_t top = sizeof(Sample) == 1 ? 255 : 32768;
  for (int32_t p0 = 0; p0 <= top; p0 += step) {
    for (int32_t p1 = 0; p1 <= top; p1 += step) {
      for (int32_t p2 = 0; p2 <= top; p2 += step) {
        Sample row[3] = {static_cast<Sample>(p0), static_cast<Sample>(p1), static_cast<Sample>(p2)};
        fast(row, 1);
        ExpectTruncatedLevels(slow(p0 / scale, p1 / scale, p2 / scale), row, scale);
      }
    }
  }
}

constexpr double kHostScale = 32768.0 / 255.0;

TEST(LabRows, AreTheFormulasInBothWidths) {
  ExpectLab(FetchLabRow8, SlowFetchLab, 15, 1.0);
  ExpectLab(FetchLabRow16, SlowFetchLab, 2048, kHostScale);
  ExpectLab(CopyBackLabRow8, SlowCopyBackLab, 15, 1.0);
  ExpectLab(CopyBackLabRow16, SlowCopyBackLab, 2048, kHostScale);
}

template <typename Sample>
std::vector<Sample> Converted(void (*convert)(Sample*, int32_t), std::vector<Sample> row, int32_t pixels) {
  convert(row.data(), pixels);
  return row;
}

// Worked by hand from the formulas.
TEST(CmykRows, KnownPixels) {
  using Bytes = std::vector<uint8_t>;
  using Words = std::vector<uint16_t>;
  // No ink at all on the host's side, where 255 is none: 255 - X = 0, k = 0.0001, so v = 0.0255 and each
  // inverse 254.97; C' = 293.2, Y' = 216.7, mean = 254.97.
  EXPECT_EQ((Bytes{255, 254, 224, 255}), Converted(FetchCmykRow8, Bytes{255, 255, 255, 255}, 1));
  // Full black: k = 1.0001, s = -0.0001, so v = 255 and all is 0 whatever the inks are.
  EXPECT_EQ((Bytes{0, 0, 0, 0}), Converted(FetchCmykRow8, Bytes{0, 0, 0, 0}, 1));
  // Black back: a = b = c = 1, k = 0.9303, each ink 0 and K = 17.76.
  EXPECT_EQ((Bytes{0, 0, 0, 17}), Converted(CopyBackCmykRow8, Bytes{0, 0, 0, 9}, 1));
  // White back: a' = -0.0001: a little more than full, times 0.909 for cyan only.
  EXPECT_EQ((Bytes{231, 255, 255, 254}), Converted(CopyBackCmykRow8, Bytes{255, 255, 255, 9}, 1));
  // Wide samples count ink upwards, and no channel is weighted.
  EXPECT_EQ((Words{32735, 16367, 32735, 0}), Converted(FetchCmykRow16, Words{0, 16384, 0, 0}, 1));
  EXPECT_EQ((Words{0, 0, 0, 32768}), Converted(FetchCmykRow16, Words{9, 9, 9, 32768}, 1));
  // K is the black itself here, not its complement.
  EXPECT_EQ((Words{0, 16367, 32768, 32}), Converted(CopyBackCmykRow16, Words{32768, 16384, 0, 9}, 1));
  EXPECT_EQ((Words{32768, 32768, 32768, 32768}), Converted(CopyBackCmykRow16, Words{0, 0, 0, 9}, 1));
}

}  // namespace
}  // namespace tessaline
