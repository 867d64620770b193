#include "buffers/buffer_conversion.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "buffers/buffer_table.h"
#include "image/pixel_conversion.h"
#include "image/pixel_kind.h"
#include "image/result_codes.h"

namespace tessaline {
namespace {

// One pixel through the converter of a key, as numbers.
template <typename To, typename From>
std::vector<double> Convert(int32_t key, std::vector<double> samples, size_t results) {
  const std::vector<From> pixel(samples.begin(), samples.end());
  std::vector<To> result(results, static_cast<To>(77));
  FindRowConverter(key / 100, key % 100)(pixel.data(), result.data(), 1);
  return {result.begin(), result.end()};
}

TEST(PixelConversion, EachKeyScalesTruncatesAndMixesByItsOwnRule) {
  constexpr auto kByteToByte = Convert<uint8_t, uint8_t>, kByteToHost = Convert<uint16_t, uint8_t>,
                 kHostToByte = Convert<uint8_t, uint16_t>, kHostToHost = Convert<uint16_t, uint16_t>,
                 kHostToFloat = Convert<float, uint16_t>, kFloatToByte = Convert<uint8_t, float>,
                 kFloatToHost = Convert<uint16_t, float>, kFloatToFloat = Convert<float, float>;
  const struct {
    int32_t key;
    std::vector<double> (*convert)(int32_t, std::vector<double>, size_t);
    std::vector<double> pixel, expected;
  } cases[] = {
      {201, kHostToByte, {32768}, {255}},
      {201, kHostToByte, {16384}, {127}},
      {102, kByteToHost, {255}, {32768}},
      {102, kByteToHost, {1}, {128}},
      {203, kHostToByte, {16384}, {127, 127, 127}},
      {206, kHostToHost, {9}, {9, 9, 9}},
      {306, kByteToHost, {0, 1, 255}, {0, 128, 32768}},
      // Grey from colours: the mean, rounded; a third of the sum; and what the two others make of it.
      {301, kByteToByte, {1, 1, 0}, {1}},
      {301, kByteToByte, {1, 0, 0}, {0}},
      {302, kByteToHost, {255, 255, 255}, {32768}},
      {302, kByteToHost, {0, 1, 0}, {42}},
      {601, kHostToByte, {0, 0, 32768}, {0}},
      {601, kHostToByte, {0, 32768, 0}, {170}},
      {602, kHostToHost, {0, 32768, 32768}, {0}},
      {602, kHostToHost, {32768, 0, 0}, {32768}},
      {604, kHostToFloat, {32768, 32768, 32768}, {255}},
      {1201, kFloatToByte, {100, 101, 104.9}, {101}},
      {1202, kFloatToHost, {100, 101, 105}, {13107}},
      // Floats are clamped.
      {401, kFloatToByte, {-3}, {0}},
      {401, kFloatToByte, {300}, {255}},
      {401, kFloatToByte, {254.99}, {254}},
      {402, kFloatToHost, {300}, {32768}},
      {402, kFloatToHost, {__builtin_nan("")}, {0}},
      {212, kHostToFloat, {16384}, {127.5, 127.5, 127.5}},
      // Of complex values the real part counts.
      {224, kHostToFloat, {16384}, {127.5, 0, 127.5, 0, 127.5, 0}},
      {801, kFloatToByte, {7.5, 900}, {7}},
      {2403, kFloatToByte, {1, 90, 2, 90, 3, 90}, {1, 2, 3}},
      {824, kFloatToFloat, {4, 90}, {4, 0, 4, 0, 4, 0}},
      {1224, kFloatToFloat, {5, 6, 7}, {5, 0, 6, 0, 7, 0}},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(row.expected, row.convert(row.key, row.pixel, row.expected.size())) << row.key;
  }
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
