// A run with a number for the acceptance is the plain sequence of its parts: load, pad, transform, sum,
// scale, enhance, threshold, notches, and the masked second pass, with no detector of its own anywhere. Byte
// for byte, over the samples.
#include <gtest/gtest.h>

#include <algorithm>

#include "buffers/buffer_table.h"
#include "buffers/levels.h"
#include "fft/fft_2d.h"
#include "removal/notch_mask.h"
#include "removal/padding_fill.h"
#include "removal/removal_run.h"
#include "removal/spectrum_image.h"
#include "tests/support/picture_files.h"

namespace tessaline {
namespace {

// One channel of an 8-bit picture to the padded plane.
void LoadChannel(const Picture& picture, int channel, int32_t plane) {
  const int32_t n = ShapeOf(plane).width;
  for (int32_t y = 0; y < n; ++y) {
    auto* const row = reinterpret_cast<float*>(BufferRow(plane, y));
    for (int x = 0; x < picture.width; ++x) {
      row[2 * x] = static_cast<float>(picture.At(x, std::min(y, picture.height - 1), channel)) * kByteToHost;
      row[2 * x + 1] = 0.0f;
    }
  }
  ASSERT_EQ(0, FillPadding(plane, n - picture.width, n - picture.height, nullptr));
}

Picture CleanByParts(const Picture& picture, const FilterParameters& parameters) {
  const int32_t n = TransformSizeFor(std::max(picture.width, picture.height));
  OwnedBuffer plane, sums, gray16, mask;
  plane.Create("plane", n, n, 8);
  sums.Create("sums", kSpectrumCells, kSpectrumCells, 8);
  gray16.Create("gray16", kSpectrumCells, kSpectrumCells, 2);
  mask.Create("mask", n, n, 1);
  for (int c = 0; c < picture.channels; ++c) {
    LoadChannel(picture, c, plane.slot());
    EXPECT_EQ(0, ForwardFft2D(plane.slot(), false, true, nullptr, 0, 0, 0));
    AccumulateMagnitudes(plane.slot(), sums.slot());
  }
  ScaleSpectrumByLog(sums.slot(), gray16.slot());
  EXPECT_EQ(0, EnhanceSpectrum(gray16.slot(), kPeakKernel));
  EXPECT_EQ(0, BuildMask(gray16.slot(), ThresholdOfAcceptance(parameters.acceptance),
                         parameters.protectionRadius, parameters.notchRadius, 0, mask.slot()));
  Picture result = picture;
  for (int c = 0; c < picture.channels; ++c) {
    LoadChannel(picture, c, plane.slot());
    EXPECT_EQ(0, ForwardFft2D(plane.slot(), false, false, nullptr, 0, 0, 0));
    EXPECT_EQ(0, ApplySpectrumMask(plane.slot(), mask.slot()));
    EXPECT_EQ(0, InverseFft2D(plane.slot(), false, false, nullptr, 0, 0, 0));
    for (int y = 0; y < picture.height; ++y) {
      const auto* const row = reinterpret_cast<const float*>(BufferRow(plane.slot(), y));
      for (int x = 0; x < picture.width; ++x) {
        result.samples[(static_cast<size_t>(y) * picture.width + x) * picture.channels + c] =
            StoreByte(row[2 * x] * kHostToByte);
      }
    }
  }
  return result;
}

class RunByNumber : public testing::TestWithParam<const char*> {};

TEST_P(RunByNumber, IsThePlainSequenceOfItsParts) {
  ResetBufferTable();
  const Picture picture = ReadPicture(std::string("../../samples/") + GetParam() + ".png");
  for (const float acceptance : {90.0f, 96.0f}) {
    FilterParameters parameters{acceptance, 6, 8};
    const int32_t slot = MakeBuffer(picture);
    ASSERT_EQ(0, RunRemoval(slot, &parameters, nullptr, true, RemovalContext{}));
    EXPECT_EQ(0, LargestDifference(CleanByParts(picture, parameters), PictureOf(slot))) << acceptance;
    ReleaseBuffer(slot);
  }
}

// The order of the samples' channels matters here: what one channel's transform leaves beside the picture
// goes into the mean level of the next one's padding.
INSTANTIATE_TEST_SUITE_P(Samples, RunByNumber, testing::Values("newsprint", "rosette"),
                         [](const auto& test) { return test.param; });

}  // namespace
}  // namespace tessaline
