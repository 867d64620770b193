#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "buffers/buffer_table.h"
#include "buffers/levels.h"
#include "buffers/result_codes.h"
#include "fft/fft_2d.h"

namespace tessaline {
namespace {

// What is left of the values 8 and -4 under one mask pixel, as a pair.
template <typename Sample>
std::vector<float> LeftBy(std::vector<Sample> maskPixel) {
  OwnedBuffer spectrum;
  OwnedBuffer mask;
  EXPECT_EQ(0, spectrum.Create("spectrum", 3, 2, kGrayComplex));
  EXPECT_EQ(0, mask.Create("mask", 3, 2, static_cast<int32_t>(maskPixel.size() * sizeof(Sample))));
  const int32_t maskBytes = ShapeOf(mask.slot()).bytesPerPixel;
  float value[2] = {8.0f, -4.0f};
  WriteBufferRow(spectrum.slot(), 2 * kGrayComplex, 1, sizeof value, value);
  WriteBufferRow(mask.slot(), 2 * maskBytes, 1, maskBytes, maskPixel.data());
  EXPECT_EQ(0, ApplySpectrumMask(spectrum.slot(), mask.slot()));
  ReadBufferRow(spectrum.slot(), 2 * kGrayComplex, 1, sizeof value, value);
  return {value[0], value[1]};
}

using Values = std::vector<float>;

TEST(ApplySpectrumMask, IntegerMasksRemoveWhatAFloatMaskKeeps) {
  EXPECT_EQ((Values{0, 0}), LeftBy<uint8_t>({255}));
  EXPECT_EQ((Values{8, -4}), LeftBy<uint8_t>({0}));
  EXPECT_EQ((Values{0, 0}), LeftBy<uint16_t>({32768}));
  EXPECT_EQ((Values{2, -1}), LeftBy<uint16_t>({24576}));
  EXPECT_EQ((Values{8, -4}), LeftBy<float>({1.0f}));
  EXPECT_EQ((Values{0, 0}), LeftBy<float>({0.0f}));
  EXPECT_EQ((Values{4, -2}), LeftBy<float>({0.5f}));
}

TEST(ApplySpectrumMask, GreyFactorsAreDoublesAndColourFactorsFloats) {
  EXPECT_EQ(static_cast<float>(8.0 * (1.0 - 100 / 255.0)), LeftBy<uint8_t>({100})[0]);
  EXPECT_EQ(8.0f * (1.0f - 350.0f * 0.0013071896f), (LeftBy<uint8_t>({100, 50, 200})[0]));
  EXPECT_EQ(-4.0f * (1.0f - 60000.0f * 1.0172526e-5f), (LeftBy<uint16_t>({10000, 30000, 20000})[1]));
}

TEST(CopyMaskedSpectrum, IsACopyWithTheMaskOnItWhereverTheNotchesStand) {
  constexpr int32_t kWidth = 70;  // two stretches and a rest
  constexpr size_t kRowBytes = kWidth * kGrayComplex;
  OwnedBuffer spectrum, mask, copy;
  ASSERT_EQ(0, spectrum.Create("spectrum", kWidth, kWidth, kGrayComplex));
  ASSERT_EQ(0, mask.Create("mask", kWidth, kWidth, kGray8));
  ASSERT_EQ(0, copy.Create("copy", kWidth, kWidth, kGrayComplex));
  std::vector<float> before(2 * kWidth), wanted(2 * kWidth);
  for (int32_t y = 0; y < kWidth; ++y) {  // row y: a notch in column y
    BufferRow(mask.slot(), y)[y] = static_cast<uint8_t>(100 + y);
    for (int32_t i = 0; i < 2 * kWidth; ++i) before[i] = static_cast<float>(i * y - 3000) / 7.0f;
    WriteBufferRow(spectrum.slot(), 0, y, kRowBytes, before.data());
  }
  ASSERT_EQ(0, CopyMaskedSpectrum(spectrum.slot(), mask.slot(), copy.slot()));
  for (int32_t y = 0; y < kWidth; ++y) {
    ReadBufferRow(spectrum.slot(), 0, y, kRowBytes, wanted.data());
    EXPECT_EQ(static_cast<float>(2 * kWidth * y - y - 3000) / 7.0f, wanted.back());  // left as it was
    for (const int32_t i : {2 * y, 2 * y + 1})
      wanted[i] = static_cast<float>(wanted[i] * (1.0 - (100 + y) / 255.0));
    EXPECT_EQ(0, std::memcmp(wanted.data(), BufferRow(copy.slot(), y), kRowBytes)) << y;
  }
  OwnedBuffer other;
  ASSERT_EQ(0, other.Create("other", kWidth, kWidth - 1, kGrayComplex));
  EXPECT_EQ(kUnequalSizes, CopyMaskedSpectrum(spectrum.slot(), mask.slot(), other.slot()));
  EXPECT_EQ(kUnequalSizes, CopyMaskedSpectrum(spectrum.slot(), mask.slot(), mask.slot()));
}

TEST(ApplySpectrumMask, RefusesOtherSizesAndKindsAndChangesNothing) {
  OwnedBuffer spectrum;
  ASSERT_EQ(0, spectrum.Create("spectrum", 4, 4, kGrayComplex));
  const float value[2] = {1.0f, 2.0f};
  WriteBufferRow(spectrum.slot(), 0, 0, sizeof value, value);
  for (const auto& [width, height, bytes] :
       {std::tuple{5, 4, 1}, std::tuple{4, 3, 1}, std::tuple{4, 4, 8}, std::tuple{4, 4, 12},
        std::tuple{4, 4, 5}, std::tuple{4, 4, 24}}) {
    OwnedBuffer mask;
    ASSERT_EQ(0, mask.Create("mask", width, height, bytes));
    EXPECT_EQ(kUnequalSizes, ApplySpectrumMask(spectrum.slot(), mask.slot()));
  }
  EXPECT_EQ(kUnequalSizes, ApplySpectrumMask(0, 0));
  EXPECT_EQ(0, std::memcmp(BufferRow(spectrum.slot(), 0), value, sizeof value));
}

}  // namespace
}  // namespace tessaline
