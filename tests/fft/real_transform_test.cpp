#include "fft/real_transform.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "tests/fft/slow_dft.h"

namespace tessaline {
namespace {

using test::Wide;

constexpr int kSize = 128;

int At(int y, int x) {
  return y * kSize + x;
}

// By definition, one direction after the other.
std::vector<Wide> SlowTransform(std::vector<Wide> plane, int sign) {
  const std::vector<Wide> circle = test::CircleOf(kSize, sign);
  for (const bool alongRows : {true, false}) {
    for (int i = 0; i < kSize; ++i) {
      std::vector<Wide> line(kSize);
      for (int j = 0; j < kSize; ++j) line[j] = plane[alongRows ? At(i, j) : At(j, i)];
      for (int k = 0; k < kSize; ++k)
        plane[alongRows ? At(i, k) : At(k, i)] = test::SlowDftAt(line, circle, k);
    }
  }
  return plane;
}

// A factor that is the same for opposite frequencies, and 1 on most columns.
double FactorAt(int kx, int ky) {
  const int x = std::min(kx, kSize - kx), y = kx % (kSize / 2) == 0 ? std::min(ky, kSize - ky)
                                              : kx < kSize / 2      ? ky
                                                                    : (kSize - ky) % kSize;
  return x % 50 < 40 ? 1.0 : ((x * 7 + y * 13) % 11) / 10.0;
}

struct Recorder : SpectrumColumns {
  bool IsWanted(int32_t first, int32_t count) const override {
    for (int32_t kx = first; kx < first + count; ++kx) {
      if (kx % 50 >= 40) return true;
    }
    return false;
  }
  void Visit(int32_t kx, float* column, int32_t) override {
    for (int ky = 0; ky < kSize; ++ky) {
      spectrum[At(ky, kx)] = {column[2 * ky], column[2 * ky + 1]};
      column[2 * ky] *= static_cast<float>(FactorAt(kx, ky));
      column[2 * ky + 1] *= static_cast<float>(FactorAt(kx, ky));
    }
  }
  std::vector<Wide> spectrum = std::vector<Wide>(kSize * kSize);
};

class RealTransformTest : public testing::Test {
 protected:
  // Noise, with rows 91 to 99 constant; those that fill whole lines are never written.
  void SetUp() override {
    test::Noise noise;
    for (int y = 0; y < kSize; ++y) {
      for (int x = 0; x < kSize; ++x) {
        const bool isConstant = y >= 91 && y < 100;
        const float value = isConstant ? 0.25f : static_cast<float>(noise.Next());
        samples_[At(y, x)] = value;
        plane_.Row(y)[2 * x] = y >= constant_.first && y < constant_.last ? 1e30f : value;
      }
    }
    ASSERT_TRUE(transform_.Prepare(kSize, 1));
  }

  std::vector<Wide> samples_ = std::vector<Wide>(kSize * kSize);
  std::vector<float> memory_ = std::vector<float>(kSize * kSize);
  RealPlane plane_ = {memory_.data(), kSize};
  ConstantRows constant_ = {92, 100, 0.25f};
  RealTransform transform_;
  Recorder columns_;
};

TEST_F(RealTransformTest, ExaminesTheHalfSpectrumOfTheDefinition) {
  ASSERT_FALSE(transform_.Examine(plane_, constant_, columns_, SerialWork(), {}));
  const std::vector<Wide> expected = SlowTransform(samples_, -1);
  long double worst = 0;
  for (int ky = 0; ky < kSize; ++ky) {
    for (int kx = 0; kx <= kSize / 2; ++kx)
      worst = std::max(worst, std::abs(expected[At(ky, kx)] - columns_.spectrum[At(ky, kx)]));
  }
  EXPECT_LT(worst, 2e-4);  // of values of about 128: floats between the two directions
  for (int kx = 0; kx <= kSize / 2; ++kx) {
    const Wide sums(transform_.columnSumSpectrum()[2 * kx], transform_.columnSumSpectrum()[2 * kx + 1]);
    const Wide first(transform_.firstRowSpectrum()[2 * kx], transform_.firstRowSpectrum()[2 * kx + 1]);
    Wide columnSum = 0;  // over ky: N times row 0's transform
    for (int ky = 0; ky < kSize; ++ky) columnSum += expected[At(ky, kx)];
    EXPECT_LT(std::abs(expected[At(0, kx)] - sums), 1e-4) << kx;
    EXPECT_LT(std::abs(columnSum / (long double){kSize} - first), 1e-4) << kx;
  }
}

TEST_F(RealTransformTest, FiltersTheWantedRows) {
  std::vector<Wide> expected = SlowTransform(samples_, -1);
  for (int ky = 0; ky < kSize; ++ky) {
    for (int kx = 0; kx < kSize; ++kx) expected[At(ky, kx)] *= FactorAt(kx, ky);
  }
  expected = SlowTransform(expected, +1);
  constexpr int kWantedRows = 77;
  struct Rows : FinishedRows {
    void Take(int32_t y, float* row) override { taken.emplace_back(y, row); }
    std::vector<std::pair<int, const float*>> taken;
  } rows;
  transform_.Filter(plane_, constant_, columns_, kWantedRows, rows, SerialWork(), {});
  ASSERT_EQ(size_t{kWantedRows}, rows.taken.size());
  long double worst = 0;
  for (int y = 0; y < kWantedRows; ++y) {
    ASSERT_EQ(y, rows.taken[y].first);
    for (int x = 0; x < kSize; ++x) {
      const Wide wanted = expected[At(y, x)] / (long double){kSize * kSize};
      worst = std::max(worst, std::abs(wanted - Wide(rows.taken[y].second[2 * x])));
    }
  }
  EXPECT_LT(worst, 3e-6);
}

TEST_F(RealTransformTest, StopsWhenToldAndIsToldRisingParts) {
  struct Told {
    std::vector<double> parts;
    size_t stopAfter;
  } told = {{}, 3};
  const Progress progress = {[](void* user, double part) {
                               auto* const t = static_cast<Told*>(user);
                               t->parts.push_back(part);
                               return t->parts.size() == t->stopAfter;
                             },
                             &told};
  EXPECT_TRUE(transform_.Examine(plane_, constant_, columns_, SerialWork(), progress));
  EXPECT_EQ(3u, told.parts.size());
  told = {{}, 1000};
  EXPECT_FALSE(transform_.Examine(plane_, constant_, columns_, SerialWork(), progress));
  EXPECT_TRUE(std::is_sorted(told.parts.begin(), told.parts.end()));
  EXPECT_EQ(1.0, told.parts.back());
}

}  // namespace
}  // namespace tessaline
