#include "fft/unit_roots.h"

#include <gtest/gtest.h>

#include <cmath>

#include "fft/double_double.h"

namespace tessaline {
namespace {

// Half a unit in the last place of `value`.
long double HalfUnit(double value) {
  return 0.5L * (std::nextafter(std::fabs(value), 2.0) - std::fabs(value));
}

// Extended precision has 11 bits more: it cannot tell a tie, but it shows every other misrounding.
constexpr long double kExtendedError = 0x1p-63L;

TEST(UnitRoot, IsCorrectlyRoundedOnTheWholeCircle) {
  const long double kTwoPi = 6.283185307179586476925286766559L;
  for (int32_t j = 0; j < 8192; ++j) {
    // The angle is brought to the first octant, where its own rounding does not count.
    const int32_t inQuadrant = j % 2048;
    const int32_t inOctant = inQuadrant <= 1024 ? inQuadrant : 2048 - inQuadrant;
    long double cosine = std::cos(kTwoPi * inOctant / 8192);
    long double sine = std::sin(kTwoPi * inOctant / 8192);
    if (inQuadrant > 1024) std::swap(cosine, sine);
    for (int32_t turns = j / 2048; turns > 0; --turns) {
      const long double turned = cosine;
      cosine = -sine;
      sine = turned;
    }
    const UnitRootValue root = UnitRoot(8192, j);
    ASSERT_LE(std::fabs(root.cosine - cosine), HalfUnit(root.cosine) + kExtendedError * std::fabs(cosine))
        << j;
    ASSERT_LE(std::fabs(root.sine - sine), HalfUnit(root.sine) + kExtendedError * std::fabs(sine)) << j;
  }
}

TEST(UnitRoot, ShorterCirclesStrideThroughTheLongest) {
  EXPECT_EQ(UnitRoot(8, 3).cosine, -0.7071067811865476);
  EXPECT_EQ(UnitRoot(8, 3).sine, 0.7071067811865476);
  EXPECT_EQ(UnitRoot(64, 64 * 5 + 7).sine, UnitRoot(8192, 7 * 128).sine);
}

TEST(PortableCos, IsWithinTwoUnitsOfExtendedPrecision) {
  for (int32_t i = 0; i <= 5000; ++i) {
    const double angle = 1.5707963267948966 * i / 5000;
    const double cosine = PortableCos(angle);
    const long double expected = std::cos(static_cast<long double>(angle));
    ASSERT_LE(std::fabs(cosine - expected), 4 * HalfUnit(cosine) + kExtendedError) << i;
  }
  EXPECT_EQ(PortableCos(1.5707963267948966), 6.123233995736766e-17);
}

}  // namespace
}  // namespace tessaline
