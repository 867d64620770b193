#include "removal/notch_mask.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "buffers/buffer_table.h"
#include "buffers/result_codes.h"
#include "platform/memory.h"
#include "removal/peak_detection.h"
#include "removal/portable_math.h"

namespace tessaline {
namespace {

using Grid = std::vector<double>;  // 512 x 512
constexpr int kSide = kSpectrumCells;

// The mask as its definition reads. The chamfer weights give, for every offset within 16 cells, the cheapest
// walk of axis, diagonal and knight's steps.
int ChamferDistance(int dx, int dy) {
  const int longer = std::max(std::abs(dx), std::abs(dy));
  const int shorter = std::min(std::abs(dx), std::abs(dy));
  if (2 * shorter <= longer) return 92 * shorter + 41 * (longer - 2 * shorter);
  return 92 * (longer - shorter) + 58 * (2 * shorter - longer);
}

Grid ShapeSlowly(const std::vector<std::pair<int, int>>& seeds, double protectionRadius, double notchRadius) {
  Grid notches(kSide * kSide, 0.0);
  const int reach = static_cast<int>(notchRadius * 41);
  const double disc = 256.0 / std::min(protectionRadius, 127.9);
  for (int y = 0; y < kSide; ++y) {
    for (int x = 0; x < kSide; ++x) {
      const double distance = std::hypot(x - 256, y - 256);
      for (const auto& [sx, sy] : seeds) {
        if (ChamferDistance(x - sx, y - sy) <= reach && distance >= disc) notches[y * kSide + x] = 255;
      }
    }
  }
  double weights[21], sum = 0;
  for (int i = 0; i < 21; ++i) sum += weights[i] = std::exp(-(i - 10) * (i - 10) / 18.0);
  Grid rows(kSide * kSide, 0.0), soft(kSide * kSide, 0.0);
  for (int pass = 0; pass < 2; ++pass) {
    const Grid& from = pass == 0 ? notches : rows;
    Grid& to = pass == 0 ? rows : soft;
    for (int y = 0; y < kSide; ++y) {
      for (int x = 0; x < kSide; ++x) {
        for (int i = 0; i < 21; ++i) {
          const int sx = pass == 0 ? std::clamp(x + i - 10, 0, kSide - 1) : x;
          const int sy = pass == 1 ? std::clamp(y + i - 10, 0, kSide - 1) : y;
          to[y * kSide + x] += weights[i] / sum * from[sy * kSide + sx];
        }
      }
    }
  }
  soft[256 * kSide + 256] = 0;
  return soft;
}

// The same, cell by cell and over the whole grid, for maps with too many seeds to ask each: to be met
// exactly.
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
  Grid from(kSide * kSide), to(kSide * kSide);
  for (int y = 0; y < kSide; ++y) {
    for (int x = 0; x < kSide; ++x) {
      const int squared = (x - 256) * (x - 256) + (y - 256) * (y - 256);
      const bool isNotch = distances[y * kSide + x] <= static_cast<int>(notchRadius * 41);
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
  void SetUp() override {
    ResetBufferTable();
    mask_.Create("mask", kSide, kSide, 1);
  }
  void TearDown() override { ClearAllocationFailure(); }

  void ExpectShapedAsDefined(const std::vector<std::pair<int, int>>& seeds, float protectionRadius,
                             float notchRadius) {
    ClearBuffer(mask_.slot());
    for (const auto& [x, y] : seeds) BufferRow(mask_.slot(), y)[x] = 255;
    ASSERT_EQ(kSuccess, ShapeNotches(mask_.slot(), protectionRadius, notchRadius));
    const Grid expected = ShapeSlowly(seeds, protectionRadius, notchRadius);
    int wrong = 0;
    for (int y = 0; y < kSide; ++y) {
      for (int x = 0; x < kSide; ++x) {
        const double value = expected[y * kSide + x];
        const int level = BufferRow(mask_.slot(), y)[x];
        if (level != static_cast<int>(value + 1e-6)) ++wrong;
      }
    }
    EXPECT_EQ(0, wrong) << "notch radius " << notchRadius << ", protection radius " << protectionRadius;
  }
  OwnedBuffer mask_;
};

TEST_F(NotchMaskTest, NotchesAreGrownProtectedAndSoftenedAsDefined) {
  ExpectShapedAsDefined({{100, 200}, {412, 312}}, 8, 1);
  ExpectShapedAsDefined({{100, 200}, {130, 210}, {412, 312}, {382, 302}}, 8, 16);
  ExpectShapedAsDefined({{0, 0}, {511, 511}, {511, 3}, {2, 508}}, 8,
                        6.5f);                                      // beyond the grid is far; edges repeat
  ExpectShapedAsDefined({{256, 256 - 33}, {256, 256 + 33}}, 8, 6);  // cut back at the disc's rim
  ExpectShapedAsDefined({{254, 255}, {258, 257}}, 128, 6);          // the smallest disc
}

TEST_F(NotchMaskTest, MapsOfAnyDensityAreShapedToTheLastBit) {
  constexpr struct {
    int seeds;  // scattered; 0: a line along each border
    float protectionRadius, notchRadius;
  } kMaps[] = {{2, 8, 6},        {40, 8, 1}, {40, 8, 16},  {3000, 50, 2.5f},
               {200000, 127, 1}, {0, 8, 3},  {5, 1e9f, 40}};
  uint32_t random = 7;
  const auto next = [&random] { return (random = random * 1664525u + 1013904223u) >> 8; };
  for (const auto& map : kMaps) {
    std::vector<uint8_t> seeds(kSide * kSide, 0);
    for (int i = 0; i < map.seeds; ++i) seeds[next() % seeds.size()] = 255;
    for (int i = 0; map.seeds == 0 && i < kSide; ++i)
      seeds[i] = seeds[511 * kSide + i] = seeds[i * kSide] = seeds[i * kSide + 511] = 255;
    std::copy(seeds.begin(), seeds.end(), BufferRow(mask_.slot(), 0));
    ASSERT_EQ(kSuccess, ShapeNotches(mask_.slot(), map.protectionRadius, map.notchRadius));
    const uint8_t* const mask = BufferRow(mask_.slot(), 0);
    EXPECT_TRUE(std::equal(mask, mask + kSide * kSide,
                           ShapePlainly(seeds, map.protectionRadius, map.notchRadius).begin()))
        << map.seeds << " seeds, notch radius " << map.notchRadius;
  }
}

TEST_F(NotchMaskTest, ABroadNotchRemovesItsMiddleWhole) {
  BufferRow(mask_.slot(), 100)[100] = 255;
  ASSERT_EQ(kSuccess, ShapeNotches(mask_.slot(), 8, 16));
  EXPECT_EQ(255, BufferRow(mask_.slot(), 100)[100]);
}

TEST_F(NotchMaskTest, AnEmptySeedMapGivesAnEmptyMaskWhateverTheRadius) {
  for (const float notchRadius : {1.0f, 16.0f, 1e30f}) {
    ASSERT_EQ(kSuccess, ShapeNotches(mask_.slot(), 8, notchRadius));
    for (int y = 0; y < kSide; ++y) {
      const uint8_t* const row = BufferRow(mask_.slot(), y);
      ASSERT_TRUE(std::all_of(row, row + kSide, [](uint8_t level) { return level == 0; })) << "row " << y;
    }
  }
}

TEST_F(NotchMaskTest, TheCentreIsAlwaysKept) {
  std::memset(BufferRow(mask_.slot(), 0), 255, kSide * kSide);
  ASSERT_EQ(kSuccess, ShapeNotches(mask_.slot(), 127.9f, 6));
  EXPECT_EQ(0, BufferRow(mask_.slot(), 256)[256]);
  EXPECT_GT(BufferRow(mask_.slot(), 256)[257], 0);
}

TEST_F(NotchMaskTest, EnlargementInterpolatesFromTheCellsFirstColumn) {
  for (int y = 0; y < kSide; ++y) {
    for (int x = 0; x < kSide; ++x)
      BufferRow(mask_.slot(), y)[x] = static_cast<uint8_t>((x * 37 + y * 101) % 256);
  }
  // Rows apart from one another, in between nothing.
  for (int y = 200; y < kSide - 1; ++y) {
    if (y % 7 != 3 && y % 7 != 4) std::memset(BufferRow(mask_.slot(), y), 0, kSide);
  }
  for (const int factor : {1, 2, 3, 16}) {
    OwnedBuffer full;
    ASSERT_EQ(kSuccess, full.Create("full", kSide * factor, kSide * factor, 1));
    std::memset(BufferRow(full.slot(), 0), 99, static_cast<size_t>(kSide * factor) * kSide * factor);
    ASSERT_EQ(kSuccess, EnlargeMask(mask_.slot(), full.slot()));
    int wrong = 0;
    for (int y = 0; y < kSide * factor; ++y) {
      const int down = y % factor;
      const uint8_t* const upper = BufferRow(mask_.slot(), y / factor);
      const uint8_t* const lower = BufferRow(mask_.slot(), std::min(y / factor + 1, kSide - 1));
      for (int x = 0; x < kSide * factor; ++x) {
        const int left = x / factor, right = std::min(left + 1, kSide - 1);
        const int across = x % factor;
        const int above = upper[left] * (factor - across) + upper[right] * across;
        const int below = lower[left] * (factor - across) + lower[right] * across;
        const int expected = (above * (factor - down) + below * down) / (factor * factor);
        if (BufferRow(full.slot(), y)[x] != expected) ++wrong;
      }
    }
    EXPECT_EQ(0, wrong) << "factor " << factor;
  }
}

TEST_F(NotchMaskTest, BuildMaskJoinsTheStepsAndFreesItsOwnWorkingMask) {
  OwnedBuffer spectrum, full, seeds;
  spectrum.Create("spectrum", kSide, kSide, 2);
  full.Create("full", 2 * kSide, 2 * kSide, 1);
  reinterpret_cast<uint16_t*>(BufferRow(spectrum.slot(), 100))[100] = 30000;
  const int32_t before = liveBufferCount;
  EXPECT_EQ(kSuccess, BuildMask(spectrum.slot(), 127.5f, 8, 6, 0, full.slot()));
  EXPECT_EQ(before, liveBufferCount);
  EXPECT_EQ(kSuccess, BuildMask(spectrum.slot(), 127.5f, 8, 6, mask_.slot(), 0));
  EXPECT_GT(BufferRow(mask_.slot(), 100)[100], 200);
  EXPECT_EQ(BufferRow(mask_.slot(), 100)[100], BufferRow(full.slot(), 200)[200]);
  EXPECT_EQ(BufferRow(mask_.slot(), 412)[412], BufferRow(full.slot(), 824)[824]);
  FailAllocationAfter(0);
  EXPECT_EQ(kOutOfMemory, BuildMask(spectrum.slot(), 127.5f, 8, 6, 0, full.slot()));
}

}  // namespace
}  // namespace tessaline
