#include "dialog/spectrum_painting.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

#include "buffers/buffer_conversion.h"
#include "buffers/buffer_table.h"
#include "image/result_codes.h"
#include "platform/memory.h"

namespace tessaline {
namespace {

constexpr HighlightColor kRed = {255, 0, 0};
constexpr HighlightColor kCyan = {0, 255, 255};
constexpr int kCells = 512;
using Painter = int32_t (*)(const SpectrumSource&, float, HighlightColor);

struct View {
  int width, height;
  std::vector<uint8_t> bytes;
  const uint8_t* At(int x, int y) const { return &bytes[(static_cast<size_t>(y) * width + x) * 3]; }
};

class SpectrumPaintingTest : public testing::Test {
 protected:
  void SetUp() override {
    ResetBufferTable();
    MakeInputs(kCells, kCells);
  }

  void MakeInputs(int width, int height) {
    ASSERT_EQ(kSuccess, spectrum_.Create("spectrum", width, height, 1));
    ASSERT_EQ(kSuccess, mask_.Create("mask", width, height, 1));
  }
  uint8_t& Level(int x, int y) { return BufferRow(spectrum_.slot(), y)[x]; }
  uint8_t& Mask(int x, int y) { return BufferRow(mask_.slot(), y)[x]; }
  uint8_t Random() { return static_cast<uint8_t>((random_ = random_ * 1664525u + 1013904223u) >> 24); }
  void Scatter() {
    const BufferShape shape = ShapeOf(spectrum_.slot());
    for (int y = 0; y < shape.height; ++y) {
      for (int x = 0; x < shape.width; ++x) {
        Level(x, y) = Random();
        Mask(x, y) = Random() < 128 ? 0 : Random();
      }
    }
  }
  void FillLevels(int base, int noise) {
    for (int y = 0; y < kCells; ++y) {
      for (int x = 0; x < kCells; ++x)
        Level(x, y) = static_cast<uint8_t>(base + Random() * noise / 256 + Random() * noise / 256);
    }
  }
  void MarkNotch(int centreX, int centreY) {
    for (int y = -8; y <= 8; ++y) {
      for (int x = -8; x <= 8; ++x)
        if (x * x + y * y <= 64) Mask(centreX + x, centreY + y) = 255;
    }
  }

  // The painted view.
  View Paint(Painter paint, int width, int height, float scale, HighlightColor highlight, float protection) {
    OwnedBuffer view;
    EXPECT_EQ(kSuccess, view.Create("view", width, height, 3));
    View painted{width, height, std::vector<uint8_t>(static_cast<size_t>(width) * height * 3)};
    EXPECT_EQ(kSuccess, paint({spectrum_.slot(), mask_.slot(), view.slot(), protection}, scale, highlight));
    std::memcpy(painted.bytes.data(), BufferRow(view.slot(), 0), painted.bytes.size());
    return painted;
  }
  View Paint3D(HighlightColor highlight, float protection) {
    return Paint(PaintSpectrum3D, 351, 351, 351 / 512.0f, highlight, protection);
  }

  OwnedBuffer spectrum_, mask_;
  uint32_t random_ = 1;
};

// Where the pixels that a test asks for lie, and how many there are.
struct Found {
  int count = 0, top = 1 << 20;
  double meanX = 0, meanY = 0;
};
template <typename Wanted>
Found Find(const View& view, Wanted wanted) {
  Found found;
  for (int y = 0; y < view.height; ++y) {
    for (int x = 0; x < view.width; ++x) {
      if (!wanted(view.At(x, y))) continue;
      ++found.count;
      found.top = std::min(found.top, y);
      found.meanX += x;
      found.meanY += y;
    }
  }
  if (found.count > 0) found.meanX /= found.count, found.meanY /= found.count;
  return found;
}
bool IsReddish(const uint8_t* pixel) {
  return pixel[0] > pixel[1] + 60 && pixel[0] > pixel[2] + 60;
}
bool IsBluish(const uint8_t* pixel) {
  return pixel[2] > pixel[0] + 60 && pixel[2] > pixel[1] + 60;
}
bool IsSurface(const uint8_t* pixel) {
  return std::max({pixel[0], pixel[1], pixel[2]}) > 60;
}

// ---- flat ----

// The rule in its own words: which cells the disc's chords hold, and what an unprotected pixel is.
bool IsInDisc(int x, int y, float protection) {
  const float radius = 256 / protection;
  const float squared = radius * radius - static_cast<float>((y - 256) * (y - 256));
  if (squared <= 0) return false;
  const int reach = std::min(static_cast<int>(std::sqrt(squared)), 255);
  return x >= 256 - reach && x <= 256 + reach;
}
int Blended(int level, int mask, int color) {
  const float unit = static_cast<float>(level) * 0.003921569f;
  return static_cast<int>((unit * static_cast<float>(color) + 2.0f * static_cast<float>(mask)) / 3.0f);
}

TEST_F(SpectrumPaintingTest, FlatIsOnePartSpectrumAndTwoPartsMaskOutsideTheDisc) {
  Scatter();
  for (const HighlightColor highlight :
       {kRed, kCyan, HighlightColor{37, 200, 91}, HighlightColor{255, 255, 255}}) {
    for (const float protection : {1.0f, 8.0f, 33.3f, 128.0f}) {
      const View view = Paint(PaintFlatSpectrum, kCells, kCells, 1.0f, highlight, protection);
      int wrong = 0;
      for (int y = 0; y < kCells; ++y) {
        for (int x = 0; x < kCells; ++x) {
          if (IsInDisc(x, y, protection)) continue;
          const int colors[3] = {highlight.red, highlight.green, highlight.blue};
          for (int c = 0; c < 3; ++c)
            wrong += view.At(x, y)[c] != Blended(Level(x, y), Mask(x, y), colors[c]);
        }
      }
      EXPECT_EQ(0, wrong) << "protection " << protection;
    }
  }
}

TEST_F(SpectrumPaintingTest, FlatShowsTheDiscInItsColourAndNothingElseInIt) {
  for (int y = 0; y < kCells; ++y)
    for (int x = 0; x < kCells; ++x) Level(x, y) = Random();
  for (const float protection : {1.0f, 8.0f, 128.0f}) {
    const View red = Paint(PaintFlatSpectrum, kCells, kCells, 1.0f, kRed, protection);
    const View cyan = Paint(PaintFlatSpectrum, kCells, kCells, 1.0f, kCyan, protection);
    int wrong = 0;
    for (int y = 0; y < kCells; ++y) {
      for (int x = 0; x < kCells; ++x) {
        const uint8_t *besideRed = red.At(x, y), *besideCyan = cyan.At(x, y);
        wrong += IsInDisc(x, y, protection) != (besideRed[2] > besideRed[0]);
        wrong += IsInDisc(x, y, protection) != (besideCyan[0] > besideCyan[2]);
      }
    }
    EXPECT_EQ(0, wrong) << "protection " << protection;
  }
  for (const float noProtection : {0.0f, -8.0f, std::numeric_limits<float>::quiet_NaN()}) {
    const View view = Paint(PaintFlatSpectrum, kCells, kCells, 1.0f, kRed, noProtection);
    EXPECT_EQ(0, Find(view, [](const uint8_t* pixel) { return pixel[2] > 0; }).count);
  }
}

TEST(ProtectColor, StandsOutFromItsHighlight) {
  const struct {
    HighlightColor highlight, protect;
  } cases[] = {{kRed, {0, 0, 255}},          {kCyan, {255, 0, 0}},        {{0, 0, 255}, {255, 0, 0}},
               {{255, 0, 255}, {0, 255, 0}}, {{90, 90, 90}, {0, 0, 255}}, {{40, 210, 90}, {255, 0, 180}}};
  for (const auto& c : cases) EXPECT_TRUE(c.protect == ProtectColor(c.highlight));
}

// ---- 3D ----

TEST_F(SpectrumPaintingTest, SurfaceShowsPeaksAndCalmsNoise) {
  FillLevels(80, 0);
  const int levelTop = Find(Paint3D(kRed, 0), IsSurface).top;
  FillLevels(60, 40);
  const int noisyTop = Find(Paint3D(kRed, 0), IsSurface).top;
  EXPECT_LT(levelTop - noisyTop, 25);
  Level(256, 50) = 220;
  EXPECT_LT(Find(Paint3D(kRed, 0), IsSurface).top, noisyTop - 50);
}

TEST_F(SpectrumPaintingTest, SurfaceShowsNotchesInTheHighlightColourWhereTheyAre) {
  FillLevels(60, 20);
  EXPECT_EQ(0, Find(Paint3D(kRed, 0), IsReddish).count);
  const auto notchAt = [&](int x, int y) {
    ClearBuffer(mask_.slot());
    MarkNotch(x, y);
    return Find(Paint3D(kRed, 0), IsReddish);
  };
  const Found left = notchAt(100, 256), right = notchAt(400, 256);
  const Found back = notchAt(256, 100), front = notchAt(256, 400);
  for (const Found* notch : {&left, &right, &back, &front}) EXPECT_GT(notch->count, 30);
  EXPECT_LT(left.meanX + 100, right.meanX);
  EXPECT_NEAR(left.meanY, right.meanY, 3);
  EXPECT_LT(back.meanY + 80, front.meanY);
  EXPECT_LT(back.count, front.count);  // nearer is larger

  MarkNotch(100, 256);
  EXPECT_EQ(0, Find(Paint3D(kCyan, 0), IsReddish).count);
}

TEST_F(SpectrumPaintingTest, SurfaceShowsTheDiscInTheProtectColour) {
  FillLevels(60, 20);
  const int small = Find(Paint3D(kRed, 16), IsBluish).count;
  const int large = Find(Paint3D(kRed, 4), IsBluish).count;
  EXPECT_GT(small, 100);
  EXPECT_NEAR(16.0, static_cast<double>(large) / small, 5.0);
  EXPECT_GT(Find(Paint3D(kCyan, 16), IsReddish).count, 100);
}

}  // namespace
}  // namespace tessaline
