#include "removal/notch_mask.h"

#include <gtest/gtest.h>

#include <algorithm>
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

  OwnedBuffer mask_;
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
    std::copy(seeds.begin(), seeds.end(), BufferRow(mask_.slot(), 0));
    ASSERT_EQ(kSuccess, ShapeNotches(mask_.slot(), map.protectionRadius, map.notchRadius));
    const uint8_t* const mask = BufferRow(mask_.slot(), 0);
    EXPECT_TRUE(std::equal(mask, mask + kSide * kSide,
                           ShapePlainly(seeds, map.protectionRadius, map.notchRadius).begin()))
        << "map " << &map - maps;
  }
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

}  // namespace
}  // namespace tessaline
