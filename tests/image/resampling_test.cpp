#include "image/resampling.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "image/pixel_conversion.h"
#include "image/pixel_kind.h"
#include "image/result_codes.h"

namespace tessaline {
namespace {

std::vector<int> Row(const Image& image, int32_t row) {
  const uint8_t* const bytes = image.view().Row(row);
  return {bytes, bytes + image.view().PackedRowBytes()};
}

TEST(ResamplingTest, MagnifiesFromAnOffsetAndShowsBlackOutside) {
  Image source, view;
  source.Create(3, 2, 1);
  view.Create(6, 4, 1);
  const uint8_t rows[2][3] = {{1, 2, 3}, {4, 5, 6}};
  std::memcpy(source.view().Row(0), rows[0], sizeof rows[0]);
  std::memcpy(source.view().Row(1), rows[1], sizeof rows[1]);
  EXPECT_EQ(kSuccess, ResampleImage(source.view(), 1.0f, 0.0f, 2.0f, view.view()));
  EXPECT_EQ((std::vector<int>{2, 2, 3, 3, 0, 0}), Row(view, 0));
  EXPECT_EQ((std::vector<int>{2, 2, 3, 3, 0, 0}), Row(view, 1));
  EXPECT_EQ((std::vector<int>{5, 5, 6, 6, 0, 0}), Row(view, 3));
  EXPECT_EQ(kSuccess, ResampleImage(source.view(), -1.0f, -1.0f, 1.0f, view.view()));
  EXPECT_EQ((std::vector<int>{0, 0, 0, 0, 0, 0}), Row(view, 0));
  EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 0, 0}), Row(view, 1));
  view.Create(3, 1, 1);  // no wider than what is shown
  EXPECT_EQ(kSuccess, ResampleImage(source.view(), -1.0f, 1.0f, 1.0f, view.view()));
  EXPECT_EQ((std::vector<int>{0, 4, 5}), Row(view, 0));
  EXPECT_EQ(kSuccess, ResampleImage(source.view(), 0.0f, 0.0f, 0.5f, view.view()));
  EXPECT_EQ((std::vector<int>{5, 0, 0}), Row(view, 0));  // the pixel under the middle
}

TEST(ResamplingTest, MovesWholePixelsOfEveryKind) {
  for (const int32_t bytes : {1, 2, 3, 4, 6, 8, 12, 16, 24}) {
    Image source, view;
    source.Create(2, 1, bytes);
    view.Create(1, 1, bytes);
    for (int32_t i = 0; i < 2 * bytes; ++i) source.view().Row(0)[i] = static_cast<uint8_t>(i);
    ASSERT_EQ(kSuccess, ResampleImage(source.view(), 1.0f, 0.0f, 4.0f, view.view()));
    std::vector<int> expected = Row(source, 0);
    expected.erase(expected.begin(), expected.begin() + bytes);
    EXPECT_EQ(expected, Row(view, 0)) << bytes;
  }
}

TEST(ResamplingTest, ConvertsBetweenKindsAsTheConversionDoes) {
  Image source, view;
  source.Create(2, 1, kRgb8);
  const uint8_t pixels[] = {10, 20, 60, 200, 201, 202};
  std::memcpy(source.view().Row(0), pixels, sizeof pixels);
  view.Create(4, 2, kGray8);
  ASSERT_EQ(kSuccess, ResampleImage(source.view(), 0, 0, 2.0f, view.view()));
  EXPECT_EQ((std::vector<int>{30, 30, 201, 201}), Row(view, 0));
  EXPECT_EQ(Row(view, 0), Row(view, 1));
  for (const int32_t kind : {kGray16, kGrayFloat, kRgb16}) {
    Image converted, resampled;
    converted.Create(2, 1, kind);
    resampled.Create(2, 1, kind);
    FindRowConverter(kRgb8, kind)(source.view().Row(0), converted.view().Row(0), 2);
    ASSERT_EQ(kSuccess, ResampleImage(source.view(), 0, 0, 1.0f, resampled.view()));
    EXPECT_EQ(Row(converted, 0), Row(resampled, 0)) << kind;
  }
}

TEST(ResamplingTest, RefusesUnknownKindsAndSenselessZooms) {
  Image gray, other;
  gray.Create(2, 2, 1);
  other.Create(2, 2, 16);
  EXPECT_EQ(kUnknownPixelKind, ResampleImage(gray.view(), 0, 0, 1, other.view()));
  EXPECT_EQ(kUnequalSizes, ResampleImage(gray.view(), 0, 0, 0, gray.view()));
  EXPECT_EQ(kUnequalSizes, ResampleImage(gray.view(), 0, 0, __builtin_nanf(""), gray.view()));
  EXPECT_EQ(kInvalidSlotOrFile, ResampleImage({}, 0, 0, 1, gray.view()));
}

}  // namespace
}  // namespace tessaline
