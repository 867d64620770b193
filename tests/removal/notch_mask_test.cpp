#include "removal/notch_mask.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "image/result_codes.h"
#include "platform/memory.h"
#include "removal/notch_filter.h"
#include "removal/portable_math.h"
#include "removal/spectrum_grid.h"

namespace tessaline {
namespace {

using Grid = std::vector<double>;  // 512 x 512
constexpr int kSide = kSpectrumCells;

// The mask as its definition reads, cell by cell and over the whole grid: to be met exactly.
std::vector<uint8_t> ShapePlainly(const std::vector<uint8_t>& seeds, float protectionRadius,
                                  float notchRadius) {
  constexpr struct {
    int dx, dy, distance;
  } kSteps[] = {{-1, 0, 41},  {0, -1, 41}, {-1, -1, 58}, {1, -1, 58},
                {-2, -1, 92}, {2, -1, 92}, {-1, -2, 92}, {1, -2, 92}};
  std::vector<int> distances(kSide * kSide);
  for (int i = 0; i < kSide * kSide; ++i) distances[i] = seeds[i] != 0 ? 0 : 65280;
  for (const int direction : {1, -1}) {
    for (int i = 0; i < kSide * kSide; ++i) {
      const int cell = direction > 0 ? i : kSide * kSide - 1 - i;
      for (const auto& step : kSteps) {
        const int x = cell % kSide + direction * step.dx, y = cell / kSide + direction * step.dy;
        if (x < 0 || y < 0 || x >= kSide || y >= kSide) continue;
        distances[cell] = std::min(distances[cell], distances[y * kSide + x] + step.distance);
      }
    }
  }
  const float disc = 256.0f / std::min(protectionRadius, 127.9f);
  const int reach = static_cast<int>(std::min(notchRadius, 1500.0f) * 41);  // 65280: no notch anywhere
  Grid from(kSide * kSide), to(kSide * kSide);
  for (int y = 0; y < kSide; ++y) {
    for (int x = 0; x < kSide; ++x) {
      const int squared = (x - 256) * (x - 256) + (y - 256) * (y - 256);
      const bool isNotch = distances[y * kSide + x] <= reach;
      from[y * kSide + x] = isNotch && static_cast<float>(squared) >= disc * disc ? 255 : 0;
    }
  }
  double weights[21], sum = 0;
  for (int i = 0; i < 21; ++i) sum += weights[i] = PortableExp(-(i - 10) * (i - 10) / 18.0);
  for (const bool alongRows : {true, false}) {
    for (int y = 0; y < kSide; ++y) {
      for (int x = 0; x < kSide; ++x) {
        double value = 0;
        for (int i = 0; i < 21; ++i) {
          const int sx = alongRows ? std::clamp(x + i - 10, 0, kSide - 1) : x;
          const int sy = alongRows ? y : std::clamp(y + i - 10, 0, kSide - 1);
          value += weights[i] / sum * from[sy * kSide + sx];
        }
        to[y * kSide + x] = value;
      }
    }
    std::swap(from, to);
  }
  std::vector<uint8_t> mask(kSide * kSide);
  for (int i = 0; i < kSide * kSide; ++i) mask[i] = static_cast<uint8_t>(from[i] + 1e-6);
  mask[256 * kSide + 256] = 0;
  return mask;
}

class NotchMaskTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(mask_.Create(kSide, kSide, 1)); }
  void TearDown() override { ClearAllocationFailure(); }

  Image mask_;
};

TEST_F(NotchMaskTest, MapsOfAnyDensityAreShapedToTheLastBit) {
  const struct {
    std::vector<int> seeds;  // cells, or how many are scattered; none: a line along each border
    float protectionRadius, notchRadius;
  } maps[] = {{{2}, 8, 6},
              {{40}, 8, 1},
              {{40}, 8, 16},
              {{3000}, 50, 2.5f},
              {{200000}, 127, 1},
              {{}, 8, 3},
              {{5}, 1e9f, 40},
              {{0}, 8, 1e30f},
              // On the rim of the disc, which is no part of it, and round the smallest disc's.
              {{224 * kSide + 256, 256 * kSide + 288}, 8, 6},
              {{255 * kSide + 254, 257 * kSide + 258}, 128, 6}};
  uint32_t random = 7;
  const auto next = [&random] { return (random = random * 1664525u + 1013904223u) >> 8; };
  for (const auto& map : maps) {
    std::vector<uint8_t> seeds(kSide * kSide, 0);
    if (map.seeds.size() == 2) seeds[map.seeds[0]] = seeds[map.seeds[1]] = 255;
    for (int i = 0; map.seeds.size() == 1 && i < map.seeds[0]; ++i) seeds[next() % seeds.size()] = 255;
    for (int i = 0; map.seeds.empty() && i < kSide; ++i)
      seeds[i] = seeds[511 * kSide + i] = seeds[i * kSide] = seeds[i * kSide + 511] = 255;
    std::copy(seeds.begin(), seeds.end(), mask_.view().Row(0));
    ASSERT_EQ(kSuccess, ShapeNotches(mask_.view(), map.protectionRadius, map.notchRadius));
    const uint8_t* const mask = mask_.view().Row(0);
    EXPECT_TRUE(std::equal(mask, mask + kSide * kSide,
                           ShapePlainly(seeds, map.protectionRadius, map.notchRadius).begin()))
        << "map " << &map - maps;
  }
}

// The enlarged mask interpolates from the cells' first columns and rows, and the filter takes its mean at a
// frequency and at the opposite one.
TEST_F(NotchMaskTest, EnlargementInterpolatesAndTheFilterTakesBothFrequencies) {
  for (int y = 0; y < kSide; ++y) {
    for (int x = 0; x < kSide; ++x) {
      if (y % 9 < 5 && x % 60 < 30) mask_.view().Row(y)[x] = static_cast<uint8_t>((x * 37 + y * 101) % 256);
    }
  }
  for (const int factor : {1, 2, 3, 8}) {
    const int n = kSide * factor;
    Image full;
    ASSERT_TRUE(full.Create(n, n, 1));
    std::memset(full.view().data, 99, static_cast<size_t>(n) * n);
    ASSERT_EQ(kSuccess, EnlargeMask(mask_.view(), full.view()));
    int wrong = 0;
    for (int y = 0; y < n; ++y) {
      const int down = y % factor;
      const uint8_t* const upper = mask_.view().Row(y / factor);
      const uint8_t* const lower = mask_.view().Row(std::min(y / factor + 1, kSide - 1));
      for (int x = 0; x < n; ++x) {
        const int left = x / factor, right = std::min(left + 1, kSide - 1), across = x % factor;
        const int above = upper[left] * (factor - across) + upper[right] * across;
        const int below = lower[left] * (factor - across) + lower[right] * across;
        wrong += full.view().Row(y)[x] != (above * (factor - down) + below * down) / (factor * factor);
      }
    }
    EXPECT_EQ(0, wrong) << "factor " << factor;
    if (factor == 3) continue;  // no transform

    NotchFilter filter;
    ASSERT_TRUE(filter.Prepare(n, 1));
    filter.Begin(mask_.view());
    for (int kx = 0; kx <= n / 2; kx += factor == 2 ? 1 : 29 * factor - 1) {
      std::vector<float> column(2 * n, 1000.0f);
      filter.Visit(kx, column.data(), 0);
      int taken = 0;
      for (int ky = 0; ky < n; ++ky) {
        const auto at = [&](int x, int y) {
          return int{full.view().Row((y + n / 2 + n) % n)[(x + n / 2 + n) % n]};
        };
        const int both = at(kx, ky) + at(-kx, -ky);
        taken += both;
        wrong += std::abs(column[2 * ky] - 1000.0f * (1 - both / 510.0)) > 1e-3;
      }
      EXPECT_NEAR(column[0] / 1000.0, filter.FactorOnRowZero(kx), 1e-6);
      EXPECT_EQ(0, wrong) << n << ", " << kx;
      EXPECT_TRUE(taken == 0 || filter.IsWanted(kx, 1));
    }
  }
}

}  // namespace
}  // namespace tessaline
