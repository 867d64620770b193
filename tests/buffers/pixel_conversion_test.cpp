#include "buffers/pixel_conversion.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "buffers/buffer_table.h"
#include "buffers/levels.h"
#include "buffers/result_codes.h"

namespace tessaline {
namespace {

// One pixel through the converter of a key.
template <typename To, typename From>
std::vector<double> Convert(int32_t key, std::vector<From> pixel, size_t samples) {
  std::vector<To> result(samples, static_cast<To>(77));
  const RowConverter convert = FindRowConverter(key / 100, key % 100);
  if (convert == nullptr) return {};
  convert(pixel.data(), result.data(), 1);
  return {result.begin(), result.end()};
}
using Levels = std::vector<double>;

TEST(PixelConversion, ScalesAndTruncatesBetweenIntegerKinds) {
  EXPECT_EQ(Levels{255}, (Convert<uint8_t, uint16_t>(201, {32768}, 1)));
  EXPECT_EQ(Levels{127}, (Convert<uint8_t, uint16_t>(201, {16384}, 1)));
  EXPECT_EQ(Levels{32768}, (Convert<uint16_t, uint8_t>(102, {255}, 1)));
  EXPECT_EQ(Levels{128}, (Convert<uint16_t, uint8_t>(102, {1}, 1)));
  EXPECT_EQ((Levels{127, 127, 127}), (Convert<uint8_t, uint16_t>(203, {16384}, 3)));
  EXPECT_EQ((Levels{9, 9, 9}), (Convert<uint16_t, uint16_t>(206, {9}, 3)));
  EXPECT_EQ((Levels{0, 128, 32768}), (Convert<uint16_t, uint8_t>(306, {0, 1, 255}, 3)));
}

TEST(PixelConversion, GreyFromRgbKeepsTheRuleOfItsKey) {
  EXPECT_EQ(Levels{1}, (Convert<uint8_t, uint8_t>(301, {1, 1, 0}, 1)));
  EXPECT_EQ(Levels{0}, (Convert<uint8_t, uint8_t>(301, {1, 0, 0}, 1)));
  EXPECT_EQ(Levels{32768}, (Convert<uint16_t, uint8_t>(302, {255, 255, 255}, 1)));
  EXPECT_EQ(Levels{42}, (Convert<uint16_t, uint8_t>(302, {0, 1, 0}, 1)));
  EXPECT_EQ(Levels{0}, (Convert<uint8_t, uint16_t>(601, {0, 0, 32768}, 1)));
  EXPECT_EQ(Levels{170}, (Convert<uint8_t, uint16_t>(601, {0, 32768, 0}, 1)));
  EXPECT_EQ(Levels{0}, (Convert<uint16_t, uint16_t>(602, {0, 32768, 32768}, 1)));
  EXPECT_EQ(Levels{32768}, (Convert<uint16_t, uint16_t>(602, {32768, 0, 0}, 1)));
  EXPECT_EQ(Levels{255}, (Convert<float, uint16_t>(604, {32768, 32768, 32768}, 1)));
  EXPECT_EQ(Levels{101}, (Convert<uint8_t, float>(1201, {100.0f, 101.0f, 104.9f}, 1)));
}

TEST(PixelConversion, FloatsClampAndTruncate) {
  EXPECT_EQ(Levels{0}, (Convert<uint8_t, float>(401, {-3.0f}, 1)));
  EXPECT_EQ(Levels{255}, (Convert<uint8_t, float>(401, {300.0f}, 1)));
  EXPECT_EQ(Levels{254}, (Convert<uint8_t, float>(401, {254.99f}, 1)));
  EXPECT_EQ(Levels{32768}, (Convert<uint16_t, float>(402, {300.0f}, 1)));
  EXPECT_EQ(Levels{0}, (Convert<uint16_t, float>(402, {__builtin_nanf("")}, 1)));
}

TEST(PixelConversion, ComplexKindsKeepTheRealPart) {
  EXPECT_EQ((Levels{127.5, 0, 127.5, 0, 127.5, 0}), (Convert<float, uint16_t>(224, {16384}, 6)));
  EXPECT_EQ(Levels{7}, (Convert<uint8_t, float>(801, {7.5f, 900.0f}, 1)));
  EXPECT_EQ((Levels{1, 2, 3}), (Convert<uint8_t, float>(2403, {1, 90, 2, 90, 3, 90}, 3)));
  EXPECT_EQ((Levels{4, 0, 4, 0, 4, 0}), (Convert<float, float>(824, {4, 90}, 6)));
  EXPECT_EQ((Levels{5, 0, 6, 0, 7, 0}), (Convert<float, float>(1224, {5, 6, 7}, 6)));
}

TEST(PixelConversion, TheTableHoldsEveryPairOfDifferentKinds) {
  const int32_t kinds[] = {1, 2, 3, 4, 6, 8, 12, 24};
  for (const int32_t from : kinds) {
    for (const int32_t to : kinds) {
      EXPECT_EQ(from == to, FindRowConverter(from, to) == nullptr) << from << " to " << to;
    }
  }
  // 1 x 100 + 103 is the number of 16-bit grey to 8-bit RGB.
  for (const int32_t none : {5, 103, 424, -97}) EXPECT_EQ(nullptr, FindRowConverter(1, none)) << none;
}

class ConvertBufferTest : public testing::Test {
 protected:
  void SetUp() override { ResetBufferTable(); }
  static std::vector<int> Row(int32_t slot, int32_t row) {
    const BufferShape shape = ShapeOf(slot);
    const uint8_t* bytes = BufferRow(slot, row);
    return {bytes, bytes + shape.width * shape.bytesPerPixel};
  }
};

TEST_F(ConvertBufferTest, EqualByteCountsCopyRawWhateverTheKinds) {
  OwnedBuffer gray16, gray8;
  gray16.Create("from", 2, 2, 2);
  gray8.Create("to", 4, 2, 1);
  const uint16_t levels[2] = {0x0102, 0x0304};
  WriteBufferRow(gray16.slot(), 0, 1, 4, levels);
  BufferTable[gray8.slot()].dirty = 0;
  EXPECT_EQ(kSuccess, ConvertBuffer(gray16.slot(), gray8.slot()));
  EXPECT_EQ((std::vector<int>{2, 1, 4, 3}), Row(gray8.slot(), 1));
  EXPECT_EQ(1, BufferTable[gray8.slot()].dirty);
}

TEST_F(ConvertBufferTest, ASmallerSourceFillsTheTopLeftOfAClearedDestination) {
  OwnedBuffer gray8, rgb8;
  gray8.Create("from", 1, 1, 1);
  rgb8.Create("to", 2, 2, 3);
  std::memset(BufferRow(gray8.slot(), 0), 9, 1);
  std::memset(BufferRow(rgb8.slot(), 0), 200, 12);
  EXPECT_EQ(kSuccess, ConvertBuffer(gray8.slot(), rgb8.slot()));
  EXPECT_EQ((std::vector<int>{9, 9, 9, 0, 0, 0}), Row(rgb8.slot(), 0));
  EXPECT_EQ((std::vector<int>{0, 0, 0, 0, 0, 0}), Row(rgb8.slot(), 1));
}

TEST_F(ConvertBufferTest, SaysWhatItCannotConvert) {
  OwnedBuffer odd, gray8, smaller;
  odd.Create("odd kind", 2, 2, 5);
  gray8.Create("to", 2, 2, 1);
  smaller.Create("same kind", 1, 2, 1);
  std::memset(BufferRow(gray8.slot(), 0), 200, 4);
  std::memset(BufferRow(smaller.slot(), 0), 200, 2);
  EXPECT_EQ(kInvalidSlotOrFile, ConvertBuffer(0, gray8.slot()));
  EXPECT_EQ(kInvalidSlotOrFile, ConvertBuffer(gray8.slot(), -1));
  EXPECT_EQ((std::vector<int>{200, 200}), Row(gray8.slot(), 1));
  EXPECT_EQ(kUnknownPixelKind, ConvertBuffer(odd.slot(), gray8.slot()));
  // The same kind at another size has no converter: black.
  EXPECT_EQ(kSuccess, ConvertBuffer(gray8.slot(), smaller.slot()));
  EXPECT_EQ(std::vector<int>{0}, Row(smaller.slot(), 0));
}

}  // namespace
}  // namespace tessaline
