#include "removal/magnitude_sums.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "removal/spectrum_grid.h"

namespace tessaline {
namespace {

// Every column of a spectrum with the symmetry that real planes have is handed over once and counts twice.
TEST(MagnitudeSums, SumsTheMagnitudesOfEachBlockFromHalfOfTheColumns) {
  for (const int n : {1024, 4096}) {
    std::mt19937 random(5);
    std::vector<double> magnitudes(static_cast<size_t>(n) * n);  // row ky, column kx, both modulo n
    RealTransform transform;
    ASSERT_TRUE(transform.Prepare(n, 1));
    MagnitudeSums sums;
    ASSERT_TRUE(sums.Prepare(n, transform.strips(), 1));
    Image cells;
    ASSERT_TRUE(cells.Create(kSpectrumCells, kSpectrumCells, 8));
    sums.Begin(cells.view());
    for (int kx = 0; kx <= n / 2; ++kx) {
      std::vector<float> column(2 * n);
      for (int ky = 0; ky < n; ++ky) {
        const int mirrored = (n - ky) % n;
        const bool isOwnMirror = kx == 0 || kx == n / 2;
        column[2 * ky] =
            isOwnMirror && mirrored < ky ? column[2 * mirrored] : static_cast<float>(random() % 1000);
        magnitudes[static_cast<size_t>(ky) * n + kx] = column[2 * ky];
        magnitudes[static_cast<size_t>(mirrored) * n + (n - kx) % n] = column[2 * ky];
      }
      sums.Visit(kx, column.data(), 0);
    }
    sums.End(SerialWork());
    const int blockSide = n / kSpectrumCells;
    int wrong = 0;
    for (int y = 0; y < kSpectrumCells; ++y) {
      for (int x = 0; x < kSpectrumCells; ++x) {
        double expected = 0;
        for (int i = 0; i < blockSide * blockSide; ++i) {
          const int ky = (y * blockSide + i / blockSide + n / 2) % n,
                    kx = (x * blockSide + i % blockSide + n / 2) % n;
          expected += magnitudes[static_cast<size_t>(ky) * n + kx];
        }
        if (std::abs(expected - cells.view().Row<double>(y)[x]) > 1e-6 * expected) ++wrong;
      }
    }
    EXPECT_EQ(0, wrong) << n;
  }
}

TEST(ScaleSpectrumByLog, LeavesTheCrossOutAndTakesNothingForTheSmallestNumber) {
  Image sums, gray16;
  ASSERT_TRUE(sums.Create(kSpectrumCells, kSpectrumCells, 8) &&
              gray16.Create(kSpectrumCells, kSpectrumCells, 2));
  EXPECT_EQ(0.0, ScaleSpectrumByLog(sums.view(), gray16.view()));
  sums.view().Row<double>(3)[5] = 1.0;
  sums.view().Row<double>(kSpectrumCentre)[9] = 1e300;
  EXPECT_NEAR(708.3964, ScaleSpectrumByLog(sums.view(), gray16.view()), 1e-3);
  EXPECT_EQ(32768, gray16.view().Row<uint16_t>(3)[5]);
  EXPECT_EQ(32768, gray16.view().Row<uint16_t>(kSpectrumCentre)[9]);
  EXPECT_EQ(0, gray16.view().Row<uint16_t>(3)[6]);
}

}  // namespace
}  // namespace tessaline
