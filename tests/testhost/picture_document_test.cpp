#include "testhost/picture_document.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace tessaline::testhost {
namespace {

Picture TwoPixels(ColourSpace space, int32_t extraPlanes, uint16_t white, std::vector<uint16_t> samples) {
  return {2, 1, space, extraPlanes, white, std::move(samples)};
}

TEST(PictureDocument, SamplesLieAsHostsHoldThem) {
  const Document bytes = MakeDocument(TwoPixels(ColourSpace::kGrey, 1, kWhite8, {1, 2, 3, 4}), {});
  EXPECT_EQ((std::vector<uint8_t>{1, 2, 3, 4}), bytes.pixels);
  EXPECT_EQ(2, bytes.planes);
  const Document wide = MakeDocument(TwoPixels(ColourSpace::kGrey, 0, kWhiteFile16, {65535, 2}), {});
  EXPECT_EQ((std::vector<uint8_t>{0x00, 0x80, 0x01, 0x00}), wide.pixels) << "32768 and 1, low byte first";
  const Document floats =
      MakeDocument(TwoPixels(ColourSpace::kGrey, 0, kWhite8, {255, 0}), {std::nullopt, 32});
  const float expected[] = {1.0f, 0.0f};
  ASSERT_EQ(sizeof expected, floats.pixels.size());
  EXPECT_EQ(0, std::memcmp(expected, floats.pixels.data(), sizeof expected));
}

TEST(PictureDocument, ChangedColoursAreRescaledAndUntouchedExtraPlanesAreNot) {
  // 12347 is halved to 6173.59, 6174, and would come back as 12348.
  const Picture picture = TwoPixels(ColourSpace::kGrey, 1, kWhiteFile16, {12347, 12347, 7, 9});
  const Document before = MakeDocument(picture, {});
  Document after = before;
  after.pixels[4] ^= 0x10;  // the second pixel's grey
  EXPECT_EQ((std::vector<uint16_t>{12348, 12347, 40, 9}), PictureOf(after, before, picture).samples);
}

TEST(PictureDocument, DepthDecidesTheBitsOfTheResult) {
  const Picture picture = TwoPixels(ColourSpace::kGrey, 0, kWhite8, {10, 20});
  const auto result = [&picture](int32_t depth) {
    const Document before = MakeDocument(picture, {std::nullopt, depth});
    Document after = before;
    std::fill(after.pixels.begin(), after.pixels.end(), uint8_t{0});
    return PictureOf(after, before, picture);
  };
  EXPECT_EQ(kWhite8, result(8).white);
  EXPECT_EQ(kWhiteFile16, result(16).white);
  EXPECT_EQ(kWhite8, result(32).white);
  EXPECT_EQ((std::vector<uint16_t>{0, 0}), result(32).samples);
}

}  // namespace
}  // namespace tessaline::testhost
