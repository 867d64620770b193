// The small pictures of the dialogs: files that other programs read, and what is kept of them.
#include <gtest/gtest.h>

#include "resources/art/icons.h"
#include "tests/resources/art/kept_files.h"

namespace tessaline::art {
namespace {

TEST(DialogArt, OddWidthsKeepTheirRowsAndClearPixelsAreDialogFace) {
  Canvas canvas(5, 3);
  canvas.Fill(Box(4, 0, 5, 1, 0), {10, 20, 30});  // top right
  canvas.Fill(Box(0, 2, 0.5, 3, 0), {0, 0, 0});   // bottom left, half of it
  const DecodedBitmap picture(BitmapFile(canvas));
  ASSERT_EQ(5, picture.width);
  ASSERT_EQ(3, picture.height);
  EXPECT_EQ((Bytes{10, 20, 30}), picture.At(4, 0));
  EXPECT_EQ((Bytes{120, 120, 120}), picture.At(0, 2));
  EXPECT_EQ((Bytes{240, 240, 240}), picture.At(2, 1));
}

TEST(DialogArt, PaletteFilesHoldUpTo256ColoursExactly) {
  Bytes rgb;  // 256 colours in rows of 43, one pixel to spare in each row's padding
  for (int i = 0; i < 43 * 6; ++i) {
    const auto level = static_cast<uint8_t>(i % 256);
    rgb.insert(rgb.end(), {level, static_cast<uint8_t>(255 - level), 7});
  }
  const DecodedBitmap picture(PaletteBitmapFile(rgb, 43, 6));
  EXPECT_EQ(rgb, picture.rgb);
  rgb[2] = 8;  // one more: 0, 255, 7 is still there, 256 pixels on
  EXPECT_TRUE(PaletteBitmapFile(rgb, 43, 6).empty());
}

TEST(DialogArt, KeptIconsAreWhatTheProgramDraws) {
  for (const Icon& icon : Icons()) EXPECT_EQ(icon.draw(), KeptFile(icon.fileName)) << icon.fileName;
}

}  // namespace
}  // namespace tessaline::art
