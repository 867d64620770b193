#include "buffers/resampling.h"

#include <gtest/gtest.h>

#include <vector>

#include "buffers/buffer_table.h"
#include "buffers/levels.h"
#include "buffers/pixel_conversion.h"
#include "buffers/result_codes.h"

namespace tessaline {
namespace {

class ResamplingTest : public testing::Test {
 protected:
  void SetUp() override { ResetBufferTable(); }
  static std::vector<int> Row(int32_t slot, int32_t row) {
    const uint8_t* bytes = BufferRow(slot, row);
    return {bytes, bytes + ShapeOf(slot).width * ShapeOf(slot).bytesPerPixel};
  }
};

TEST_F(ResamplingTest, MagnifiesFromAnOffsetAndShowsBlackOutside) {
  OwnedBuffer source, view;
  source.Create("source", 3, 2, 1);
  view.Create("view", 6, 4, 1);
  const uint8_t rows[2][3] = {{1, 2, 3}, {4, 5, 6}};
  WriteBufferRow(source.slot(), 0, 0, 3, rows[0]);
  WriteBufferRow(source.slot(), 0, 1, 3, rows[1]);
  EXPECT_EQ(kSuccess, ResampleBuffer(source.slot(), 1.0f, 0.0f, 2.0f, view.slot()));
  EXPECT_EQ((std::vector<int>{2, 2, 3, 3, 0, 0}), Row(view.slot(), 0));
  EXPECT_EQ((std::vector<int>{2, 2, 3, 3, 0, 0}), Row(view.slot(), 1));
  EXPECT_EQ((std::vector<int>{5, 5, 6, 6, 0, 0}), Row(view.slot(), 3));
  EXPECT_EQ(kSuccess,
            ResampleBuffer(source.slot(), 0.0f, 0.0f, 0.5f, view.slot()));  // the middle of two is the second
  EXPECT_EQ((std::vector<int>{5, 0, 0, 0, 0, 0}), Row(view.slot(), 0));
  EXPECT_EQ(kSuccess, ResampleBuffer(source.slot(), -1.0f, -1.0f, 1.0f, view.slot()));
  EXPECT_EQ((std::vector<int>{0, 0, 0, 0, 0, 0}), Row(view.slot(), 0));
  EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 0, 0}), Row(view.slot(), 1));
}

TEST_F(ResamplingTest, MovesWholePixelsOfEveryKind) {
  for (const int32_t bytes : {1, 2, 3, 4, 6, 8, 12, 16, 24}) {
    OwnedBuffer source, view;
    source.Create("source", 2, 1, bytes);
    view.Create("view", 1, 1, bytes);
    for (int32_t i = 0; i < 2 * bytes; ++i) BufferRow(source.slot(), 0)[i] = static_cast<uint8_t>(i);
    ASSERT_EQ(kSuccess, ResampleBuffer(source.slot(), 1.0f, 0.0f, 4.0f, view.slot()));
    std::vector<int> expected = Row(source.slot(), 0);
    expected.erase(expected.begin(), expected.begin() + bytes);
    EXPECT_EQ(expected, Row(view.slot(), 0)) << bytes;
  }
}

TEST_F(ResamplingTest, ConvertsBetweenKindsAsTheConversionDoes) {
  OwnedBuffer source, view;
  source.Create("source", 2, 1, kRgb8);
  const uint8_t pixels[] = {10, 20, 60, 200, 201, 202};
  WriteBufferRow(source.slot(), 0, 0, sizeof pixels, pixels);
  view.Create("view", 4, 2, kGray8);
  ASSERT_EQ(kSuccess, ResampleBuffer(source.slot(), 0, 0, 2.0f, view.slot()));
  EXPECT_EQ((std::vector<int>{30, 30, 201, 201}), Row(view.slot(), 0));
  EXPECT_EQ(Row(view.slot(), 0), Row(view.slot(), 1));
  for (const int32_t kind : {kGray16, kGrayFloat, kRgb16}) {
    OwnedBuffer converted, resampled;
    converted.Create("converted", 2, 1, kind);
    resampled.Create("resampled", 2, 1, kind);
    ASSERT_EQ(kSuccess, ConvertBuffer(source.slot(), converted.slot()));
    ASSERT_EQ(kSuccess, ResampleBuffer(source.slot(), 0, 0, 1.0f, resampled.slot()));
    EXPECT_EQ(Row(converted.slot(), 0), Row(resampled.slot(), 0)) << kind;
  }
}

TEST_F(ResamplingTest, RefusesUnknownKindsAndSenselessZooms) {
  OwnedBuffer gray, other;
  gray.Create("gray", 2, 2, 1);
  other.Create("other", 2, 2, 16);
  EXPECT_EQ(kUnknownPixelKind, ResampleBuffer(gray.slot(), 0, 0, 1, other.slot()));
  EXPECT_EQ(kUnequalSizes, ResampleBuffer(gray.slot(), 0, 0, 0, gray.slot()));
  EXPECT_EQ(kUnequalSizes, ResampleBuffer(gray.slot(), 0, 0, __builtin_nanf(""), gray.slot()));
  EXPECT_EQ(kInvalidSlotOrFile, ResampleBuffer(0, 0, 0, 1, gray.slot()));
}

}  // namespace
}  // namespace tessaline
