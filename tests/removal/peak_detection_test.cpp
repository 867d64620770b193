#include "removal/peak_detection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <utility>
#include <vector>

#include "buffers/buffer_table.h"
#include "buffers/result_codes.h"
#include "platform/memory.h"

namespace tessaline {
namespace {

class PeakDetectionTest : public testing::Test {
 protected:
  void SetUp() override {
    ResetBufferTable();
    spectrum_.Create("spectrum", kSpectrumCells, kSpectrumCells, 2);
    seeds_.Create("seeds", kSpectrumCells, kSpectrumCells, 1);
  }
  void TearDown() override { ClearAllocationFailure(); }

  void SetLevel(int x, int y, uint16_t level) {
    reinterpret_cast<uint16_t*>(BufferRow(spectrum_.slot(), y))[x] = level;
  }
  // (x, y) of all pattern cells, row by row.
  std::vector<std::pair<int, int>> Seeds() const {
    std::vector<std::pair<int, int>> cells;
    for (int y = 0; y < kSpectrumCells; ++y) {
      for (int x = 0; x < kSpectrumCells; ++x) {
        if (BufferRow(seeds_.slot(), y)[x] == 255) cells.emplace_back(x, y);
      }
    }
    return cells;
  }
  using Cells = std::vector<std::pair<int, int>>;
  OwnedBuffer spectrum_, seeds_;
};

TEST_F(PeakDetectionTest, ThresholdsSpanHalfTheScale) {
  EXPECT_EQ(32768, HostThreshold(ThresholdOfAcceptance(0)));
  EXPECT_EQ(16384, HostThreshold(ThresholdOfAcceptance(100)));
  EXPECT_EQ(22937, HostThreshold(ThresholdOfAcceptance(60)));  // 178.5 x 128.50197 = 22937.6
}

TEST_F(PeakDetectionTest, APeakOutsideTheDiscTakesItsPartnerAlong) {
  const struct {
    int x, y;
    uint16_t level;
    Cells seeds;
  } cases[] = {{100, 200, 16385, {{100, 200}, {412, 312}}},
               {300, 150, 16384, {}},            // exactly at the threshold
               {300, 400, 32768, {}},            // lower half: never asked
               {100, 256, 32768, {{412, 256}}},  // on the centre row the mirrored decision wins
               {0, 100, 32768, {{0, 100}}},      // row and column 0 have no partner
               {40, 0, 32768, {{40, 0}}},
               {0, 256, 32768, {}},  // column 0 from row 256 on ends as 0
               {256 - 32, 250, 32768, {{224, 250}, {288, 262}}},
               {256, 224, 32768, {{256, 224}, {256, 288}}},  // the rim of a disc of 256 / 8 cells
               {256, 225, 32768, {}}};
  OwnedBuffer wide;  // holds the host's maximum
  wide.Create("16-bit seeds", kSpectrumCells, kSpectrumCells, 2);
  for (const auto& c : cases) {
    SetLevel(c.x, c.y, c.level);
    EXPECT_EQ(kSuccess, DetectPeaks(spectrum_.slot(), 127.5f, 8, seeds_.slot()));
    EXPECT_EQ(c.seeds, Seeds()) << c.x << ", " << c.y;
    EXPECT_EQ(kSuccess, DetectPeaks(spectrum_.slot(), 127.5f, 8, wide.slot()));
    for (const auto& [x, y] : c.seeds)
      EXPECT_EQ(32768, reinterpret_cast<uint16_t*>(BufferRow(wide.slot(), y))[x]);
    SetLevel(c.x, c.y, 0);
  }
}

TEST_F(PeakDetectionTest, TheSmallestDiscHoldsThirteenCells) {
  for (int y = 0; y < kSpectrumCells; ++y) {
    for (int x = 0; x < kSpectrumCells; ++x) SetLevel(x, y, 32768);
  }
  EXPECT_EQ(kSuccess, DetectPeaks(spectrum_.slot(), 127.5f, 5000, seeds_.slot()));
  const auto kept = kSpectrumCells * kSpectrumCells - Seeds().size();
  EXPECT_EQ(13u + 256u, kept);  // and column 0 of rows 256..511
}

TEST_F(PeakDetectionTest, WithoutRowBuffersTheMapStaysAsItWas) {
  SetLevel(100, 200, 32768);
  for (int failing = 0; failing < 2; ++failing) {
    FailAllocationAfter(failing);
    EXPECT_EQ(kOutOfMemory, DetectPeaks(spectrum_.slot(), 127.5f, 8, seeds_.slot()));
    ClearAllocationFailure();
  }
  EXPECT_TRUE(Seeds().empty());
  EXPECT_EQ(kSuccess, DetectPeaks(0, 127.5f, 8, seeds_.slot()));
  EXPECT_TRUE(Seeds().empty());
}

// The convolution as its definition reads: whole-picture loops, a clamp per tap.
template <typename Sample>
std::vector<int> ConvolveSlowly(const std::vector<Sample>& samples, int width, int height, int channels,
                                const float* weights, float maximum) {
  std::vector<int> result;
  for (int y = 0; y < height; ++y) {
    for (int i = 0; i < width * channels; ++i) {
      float sum = 0.0f;
      for (int ty = -3; ty <= 3; ++ty) {
        for (int tx = -3; tx <= 3; ++tx) {
          const int sourceY = std::clamp(y + ty, 0, height - 1);
          const int sourceX = std::clamp(i / channels + tx, 0, width - 1);
          sum += weights[(ty + 3) * 7 + tx + 3] *
                 static_cast<float>(samples[(sourceY * width + sourceX) * channels + i % channels]);
        }
      }
      result.push_back(sum <= 0 ? 0 : sum >= maximum ? static_cast<int>(maximum) : static_cast<int>(sum));
    }
  }
  return result;
}

template <typename Sample>
void ExpectEnhancedAsDefined(int width, int height, int channels, float maximum) {
  std::mt19937 random(7);
  std::vector<Sample> samples(static_cast<size_t>(width * height * channels));
  for (Sample& sample : samples)
    sample = static_cast<Sample>(random() % (static_cast<unsigned>(maximum) + 1));
  OwnedBuffer buffer;
  buffer.Create("picture", width, height, channels * static_cast<int>(sizeof(Sample)));
  std::copy(samples.begin(), samples.end(), reinterpret_cast<Sample*>(BufferRow(buffer.slot(), 0)));
  ASSERT_EQ(kSuccess, EnhanceSpectrum(buffer.slot(), kPeakKernel));
  const auto* result = reinterpret_cast<const Sample*>(BufferRow(buffer.slot(), 0));
  EXPECT_EQ(ConvolveSlowly(samples, width, height, channels, kPeakKernel, maximum),
            std::vector<int>(result, result + samples.size()));
}

TEST_F(PeakDetectionTest, EnhancementIsTheDefinedConvolutionForEveryKind) {
  ExpectEnhancedAsDefined<uint8_t>(9, 12, 1, 255);
  ExpectEnhancedAsDefined<uint16_t>(20, 9, 1, 32768);
  ExpectEnhancedAsDefined<uint8_t>(8, 10, 3, 255);
  ExpectEnhancedAsDefined<uint16_t>(11, 8, 3, 32768);
  ExpectEnhancedAsDefined<uint16_t>(1, 1, 1, 32768);
  ExpectEnhancedAsDefined<uint8_t>(2, 40, 1, 255);
  OwnedBuffer floats;
  floats.Create("floats", 8, 8, 4);
  EXPECT_EQ(kUnknownPixelKind, EnhanceSpectrum(floats.slot(), kPeakKernel));
}

}  // namespace
}  // namespace tessaline
