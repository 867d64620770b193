#include "dialog/control_pixels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "buffers/buffer_table.h"
#include "image/pixel_kind.h"

namespace tessaline {
namespace {

TEST(DrawBufferPixels, LifeSizeAndStretchedViewsScaleSixteenBitsEachInItsOwnWay) {
  ResetBufferTable();
  constexpr int32_t kLevels = 32769;
  OwnedBuffer buffer;
  buffer.Create("view", kLevels, 1, kGray16);
  for (int32_t x = 0; x < kLevels; ++x) {
    reinterpret_cast<uint16_t*>(BufferRow(buffer.slot(), 0))[x] = static_cast<uint16_t>(x);
  }
  std::vector<uint8_t> same(kLevels * 4), twice(kLevels * 2 * 4);
  EXPECT_EQ(0, DrawBufferPixels(buffer.slot(), kLevels, 1, same.data()));
  EXPECT_EQ(0, DrawBufferPixels(buffer.slot(), kLevels, 2, twice.data()));
  int32_t different = 0;
  for (int32_t x = 0; x < kLevels; ++x) {
    const auto level = static_cast<float>(x);
    ASSERT_EQ(std::min(static_cast<int32_t>(level * 0.0077821012f), 255), same[4 * x + 1]) << x;
    ASSERT_EQ(std::min(static_cast<int32_t>(level * 0.007781982f), 255), twice[(kLevels + x) * 4]) << x;
    different += same[4 * x] != twice[4 * x];
  }
  EXPECT_GT(different, 0);
}

TEST(DrawBufferPixels, OrdersChannelsForTheScreenAndFillsWithBlackWhereThereIsNothing) {
  ResetBufferTable();
  OwnedBuffer buffer;
  buffer.Create("view", 1, 1, kRgb8);
  const uint8_t color[] = {10, 20, 30};
  WriteBufferRow(buffer.slot(), 0, 0, 3, color);
  std::vector<uint8_t> pixels(3 * 2 * 4, 99);
  EXPECT_EQ(0, DrawBufferPixels(buffer.slot(), 3, 2, pixels.data()));
  for (size_t i = 0; i < pixels.size(); i += 4) {
    EXPECT_EQ((std::vector<uint8_t>{30, 20, 10, 0}), std::vector<uint8_t>(&pixels[i], &pixels[i] + 4));
  }
  for (const int32_t slot : {0, -1, 77}) {
    pixels.assign(24, 99);
    EXPECT_EQ(0, DrawBufferPixels(slot, 3, 2, pixels.data()));
    EXPECT_EQ(std::vector<uint8_t>(24, 0), pixels);
  }
}

}  // namespace
}  // namespace tessaline
