#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "buffers/buffer_table.h"
#include "buffers/buffer_transforms.h"
#include "fft/fft_2d.h"
#include "image/pixel_kind.h"
#include "image/result_codes.h"

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

TEST(InverseMaskedRows, HasTheBitsOfTheThreeStepsItStandsFor) {
  constexpr int32_t kFirst = 5, kRows = 40;
  for (const auto& [width, height] : {std::pair{128, 128}, std::pair{64, 256}, std::pair{100, 64}}) {
    OwnedBuffer spectrum, mask, wanted, found;
    ASSERT_EQ(0, spectrum.Create("spectrum", width, height, kGrayComplex));
    ASSERT_EQ(0, wanted.Create("wanted", width, height, kGrayComplex));
    ASSERT_EQ(0, found.Create("found", width, height, kGrayComplex));
    ASSERT_EQ(0, mask.Create("mask", width, height, kGray8));
    const size_t rowBytes = static_cast<size_t>(width) * kGrayComplex;
    for (int32_t y = 0; y < height; ++y) {
      BufferRow(mask.slot(), y)[y % width] = static_cast<uint8_t>(y + 100);  // a notch in every row
      auto* const row = reinterpret_cast<float*>(BufferRow(spectrum.slot(), y));
      for (int32_t i = 0; i < 2 * width; ++i)
        row[i] = static_cast<float>((i * 37 + y * 91) % 1000 - 500) / 7.0f;
      WriteBufferRow(wanted.slot(), 0, y, static_cast<int32_t>(rowBytes), row);
    }
    ASSERT_EQ(0, ApplySpectrumMask(wanted.slot(), mask.slot()));
    ASSERT_EQ(0, InverseFft2D(wanted.slot(), false, false, nullptr, 0, 0, 0));
    ASSERT_EQ(0, InverseMaskedRows(ViewOf(spectrum.slot()), ViewOf(mask.slot()), ViewOf(found.slot()), kFirst,
                                   kRows));
    for (int32_t y = kFirst; y < kFirst + kRows; ++y) {
      EXPECT_EQ(0, std::memcmp(BufferRow(wanted.slot(), y), BufferRow(found.slot(), y), rowBytes))
          << width << " " << y;
    }
    // Rows outside the buffer are left out; other shapes are refused.
    EXPECT_EQ(0, InverseMaskedRows(ViewOf(spectrum.slot()), ViewOf(mask.slot()), ViewOf(found.slot()), height,
                                   1000));
    EXPECT_EQ(
        0, InverseMaskedRows(ViewOf(spectrum.slot()), ViewOf(mask.slot()), ViewOf(found.slot()), -50, 1000));
    EXPECT_EQ(kUnequalSizes, InverseMaskedRows(ViewOf(spectrum.slot()), ViewOf(spectrum.slot()),
                                               ViewOf(found.slot()), 0, 1));
    EXPECT_EQ(kUnequalSizes,
              InverseMaskedRows(ViewOf(spectrum.slot()), ViewOf(mask.slot()), ViewOf(mask.slot()), 0, 1));
  }
  EXPECT_EQ(kUnequalSizes, InverseMaskedRows({}, {}, {}, 0, 1));
}

}  // namespace
}  // namespace tessaline
