#include "testhost/picture_document.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace tessaline::testhost {
namespace {

Picture TwoPixels(ColourSpace space, int32_t extraPlanes, uint16_t white, std::vector<uint16_t> samples) {
  return {2, 1, space, extraPlanes, white, std::move(samples)};
}

TEST(PictureDocument, ChangedColoursAreRescaledAndUntouchedExtraPlanesAreNot) {
  // 12347 is halved to 6173.59, 6174, and would come back as 12348.
  const Picture picture = TwoPixels(ColourSpace::kGrey, 1, kWhiteFile16, {12347, 12347, 7, 9});
  const Document before = MakeDocument(picture, {});
  Document after = before;
  after.pixels[4] ^= 0x10;  // the second pixel's grey
  EXPECT_EQ((std::vector<uint16_t>{12348, 12347, 40, 9}), PictureOf(after, before, picture).samples);
}

}  // namespace
}  // namespace tessaline::testhost
