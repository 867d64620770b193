#include "buffers/buffer_table.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <numeric>
#include <vector>

#include "image/result_codes.h"
#include "platform/memory.h"

namespace tessaline {
namespace {

class BufferTableTest : public testing::Test {
 protected:
  void SetUp() override { ResetBufferTable(); }
  void TearDown() override {
    ClearAllocationFailure();
    for (int32_t slot = 1; slot < kBufferSlots; ++slot) ReleaseBuffer(slot);
    liveBufferCount = 0;
  }

  static int32_t Create(int32_t width, int32_t height, int32_t bytesPerPixel) {
    int32_t slot = 0;
    EXPECT_EQ(kSuccess, CreateBuffer("test", width, height, bytesPerPixel, &slot));
    return slot;
  }
  // A one-row buffer holding 1, 2, 3, ...
  static int32_t CreateCountingRow(int32_t width, int32_t bytesPerPixel) {
    const int32_t slot = Create(width, 1, bytesPerPixel);
    std::vector<uint8_t> bytes(static_cast<size_t>(width * bytesPerPixel));
    std::iota(bytes.begin(), bytes.end(), uint8_t{1});
    WriteBufferRow(slot, 0, 0, width * bytesPerPixel, bytes.data());
    return slot;
  }
  static std::vector<int> Read(int32_t slot, int32_t offset, int32_t row, int32_t count) {
    std::vector<uint8_t> bytes(static_cast<size_t>(count), 0xEE);
    ReadBufferRow(slot, offset, row, count, bytes.data());
    return {bytes.begin(), bytes.end()};
  }
};

TEST_F(BufferTableTest, HandsOut2047SlotsLowestFirst) {
  for (int32_t expected = 1; expected < kBufferSlots; ++expected) ASSERT_EQ(expected, Create(1, 1, 1));
  int32_t slot = 99;
  EXPECT_EQ(kOutOfMemory, CreateBuffer("one too many", 1, 1, 1, &slot));
  EXPECT_EQ(0, slot);
  EXPECT_EQ(2047, liveBufferCount);
  ReleaseBuffer(3);
  ReleaseBuffer(900);
  EXPECT_EQ(3, Create(1, 1, 1));
}

TEST_F(BufferTableTest, RefusesWhatItCannotHoldAndLeavesTheSlotFree) {
  int32_t slot = 99;
  for (const auto& size :
       {std::array{0, 5, 1}, {5, -1, 1}, {5, 5, 0}, {65536, 32768, 1}, {INT32_MAX, INT32_MAX, 24}}) {
    EXPECT_EQ(kOutOfMemory, CreateBuffer("bad", size[0], size[1], size[2], &slot));
    EXPECT_EQ(0, slot);
  }
  FailAllocationAfter(0);
  EXPECT_EQ(kOutOfMemory, CreateBuffer("no memory", 5, 5, 1, &slot));
  ClearAllocationFailure();
  EXPECT_EQ(kOutOfMemory, BindBuffer(nullptr, 5, 5, 1, &slot));
  EXPECT_EQ(0, liveBufferCount);
  EXPECT_EQ(1, Create(5, 5, 1));
}

TEST_F(BufferTableTest, ReadsClipToWholePixelsAndZeroFill) {
  const int32_t gray = CreateCountingRow(10, 1), rgb = CreateCountingRow(4, 3), two = Create(4, 2, 1);
  std::memset(BufferRow(two, 1), 77, 4);  // never part of the row before
  const struct {
    int32_t slot, offset, row;
    std::vector<int> expected;
  } reads[] = {
      {gray, -6, 0, {0, 0, 0, 0, 0, 0, 1, 2, 3}},
      {gray, 8, 0, {9, 10, 0, 0, 0, 0}},
      {gray, 10, 0, {0, 0, 0}},
      {two, 2, 0, {0, 0, 0, 0, 0}},
      {gray, -4, 0, {0, 0, 0}},
      {gray, 0, -1, {0, 0, 0}},
      {gray, 0, 1, {0, 0, 0}},
      {0, 0, 0, {0, 0, 0}},
      {kBufferSlots, 0, 0, {0, 0, 0}},
      // Offset 4 becomes 3 and count 7 becomes 6; nothing is clipped, so the seventh byte is left alone.
      {rgb, 4, 0, {4, 5, 6, 7, 8, 9, 0xEE}},
      {rgb, -4, 0, {0, 0, 0, 1, 2, 3, 0}}};  // towards zero: -3
  for (const auto& read : reads) {
    EXPECT_EQ(read.expected,
              Read(read.slot, read.offset, read.row, static_cast<int32_t>(read.expected.size())));
  }
}

TEST_F(BufferTableTest, WritesClipAndMarkDirtyOnlyWhenInside) {
  const int32_t slot = Create(4, 2, 1);
  BufferTable[slot].dirty = 0;
  const uint8_t source[6] = {1, 2, 3, 4, 5, 6};
  WriteBufferRow(slot, 0, -1, 4, source);
  WriteBufferRow(slot, 0, 2, 4, source);
  WriteBufferRow(slot, 4, 0, 4, source);
  WriteBufferRow(slot, 0, 0, 0, source);
  WriteBufferRow(slot, 0, 0, 4, nullptr);
  EXPECT_EQ(0, BufferTable[slot].dirty);
  EXPECT_EQ((std::vector<int>{0, 0, 0, 0}), Read(slot, 0, 0, 4));
  WriteBufferRow(slot, -1, 1, 6, source);
  EXPECT_EQ((std::vector<int>{2, 3, 4, 5}), Read(slot, 0, 1, 4));
  EXPECT_EQ(1, BufferTable[slot].dirty);
}

TEST_F(BufferTableTest, ColumnGroupsRoundTripAndStayInsideTheRow) {
  const int32_t slot = Create(20, 3, 8);
  uint64_t written[8][3], read[8][3] = {};
  const uint64_t* sources[8];
  uint64_t* destinations[8];
  for (uint64_t i = 0; i < 8; ++i) {
    for (uint64_t r = 0; r < 3; ++r) written[i][r] = 100 * r + i;
    sources[i] = written[i];
    destinations[i] = read[i];
  }
  WriteBufferColumns(slot, 12, sources);
  ReadBufferColumns(slot, 12, destinations);
  EXPECT_EQ(0, std::memcmp(written, read, sizeof read));
  uint64_t element = 0;
  ReadBufferRow(slot, 17 * 8, 2, 8, &element);
  EXPECT_EQ(205u, element);
  WriteBufferColumns(slot, 13, sources);  // would touch the next row
  WriteBufferColumns(slot, -1, sources);
  ReadBufferColumns(slot, 12, destinations);
  EXPECT_EQ(0, std::memcmp(written, read, sizeof read));
}

TEST_F(BufferTableTest, BoundMemoryStaysTheCallers) {
  uint8_t pixels[6] = {1, 2, 3, 4, 5, 6};
  int32_t bound = 0;
  ASSERT_EQ(kSuccess, BindBuffer(pixels, 3, 2, 1, &bound));
  EXPECT_EQ(0, BufferTable[bound].dirty);
  const int32_t owned = Create(2, 2, 1);
  EXPECT_EQ(1, BufferTable[owned].dirty);
  EXPECT_FALSE(UnbindBuffer(owned));
  EXPECT_FALSE(UnbindBuffer(0));
  EXPECT_EQ(2, liveBufferCount);
  EXPECT_TRUE(UnbindBuffer(bound));
  EXPECT_FALSE(UnbindBuffer(bound));
  ASSERT_EQ(kSuccess, BindBuffer(pixels, 3, 2, 1, &bound));
  ReleaseBuffer(bound);
  EXPECT_EQ(6, pixels[5]);
  EXPECT_EQ(1, liveBufferCount);
}

TEST_F(BufferTableTest, FlushStopsAtTheShrinkingCountAndOfOneBufferVisitsNothing) {
  const int32_t only = Create(2, 2, 1);
  FlushBufferTable();
  EXPECT_TRUE(liveBufferCount == 0 && BufferTable[only].data != nullptr);
  liveBufferCount = 1;
  for (int i = 0; i < 3; ++i) Create(2, 2, 1);
  FlushBufferTable();
  EXPECT_EQ(0, liveBufferCount);
  for (int32_t slot = 1; slot <= 4; ++slot) EXPECT_EQ(slot <= 2, BufferTable[slot].data == nullptr) << slot;
}

TEST_F(BufferTableTest, FlushWritesDirtyFileBackedBuffersAndReleaseDeletesTheFile) {
  const int32_t slot = CreateCountingRow(2, 1);
  Create(1, 1, 1);
  const std::string path = testing::TempDir() + "tessaline_buffer_spill.bin";
  BufferTable[slot].fileBacked = 1;
  std::strcpy(BufferTable[slot].name, path.c_str());
  FlushBufferTable();
  uint8_t bytes[32] = {};
  std::FILE* file = std::fopen(path.c_str(), "rb");
  ASSERT_NE(nullptr, file);
  ASSERT_EQ(14u, std::fread(bytes, 1, sizeof bytes, file));
  std::fclose(file);
  const uint8_t expected[14] = {2, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 2};
  EXPECT_EQ(0, std::memcmp(expected, bytes, sizeof expected));

  const int32_t again = Create(2, 1, 1);
  BufferTable[again].fileBacked = 1;
  std::strcpy(BufferTable[again].name, path.c_str());
  ReleaseBuffer(again);
  EXPECT_EQ(nullptr, std::fopen(path.c_str(), "rb"));
}

}  // namespace
}  // namespace tessaline
