// Parts of the program that are easier to judge by themselves.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "buffers/buffer_table.h"
#include "cli/engine_run.h"
#include "cli/iptc.h"
#include "cli/jpeg_tables.h"
#include "cli/refusal.h"
#include "cli/tiff_tags.h"
#include "platform/memory.h"
#include "tests/cli/pictures.h"
#include "tests/cli/program.h"

namespace tessaline::cli {
namespace {

TEST(JpegCompression, EveryQualityIsRecognised) {
  const TemporaryFolder folder;
  const Picture picture = DrawScreen(3, 0, 8, 16, 16);
  for (int quality = 1; quality <= 100; ++quality) {
    Save(picture, folder / "q.jpg", "[Q=" + std::to_string(quality) + "]");
    const int file = open((folder / "q.jpg").c_str(), O_RDONLY);
    EXPECT_EQ(quality, ReadJpegCompression(file).value().quality);
    close(file);
  }
}

TEST(TiffStructure, BigEndianFilesReadLikeLittleEndianOnes) {
  // One directory: a SHORT in place, a LONG behind it, text at an offset.
  const std::vector<uint8_t> file = {'M', 'M',  0,   42,  0,   0,   0, 8,               //
                                     0,   3,                                            // entries
                                     1,   3,    0,   3,   0,   0,   0, 1, 0, 5, 0, 0,   // compression 5
                                     1,   0x42, 0,   4,   0,   0,   0, 1, 0, 0, 1, 0,   // tile width 256
                                     1,   0x0F, 0,   2,   0,   0,   0, 7, 0, 0, 0, 50,  // maker at 50
                                     0,   0,    0,   0,                                 // no next one
                                     'S', 'c',  'a', 'n', 'C', 'o', 0};
  const auto structure = TiffStructure::Read(ByteSource(file.data(), file.size()));
  ASSERT_TRUE(structure);
  EXPECT_EQ(5u, structure->Value(0, kTiffCompression, 0));
  EXPECT_EQ(256u, structure->Value(0, kTiffTileWidth, 0));
  const DescriptiveTags tags = structure->Descriptive(0);
  ASSERT_EQ(1u, tags.main.size());
  EXPECT_EQ(std::vector<uint8_t>(file.end() - 7, file.end()), tags.main[0].bytes);
  EXPECT_TRUE(structure->FitsInto(file.size()));
  EXPECT_FALSE(structure->FitsInto(file.size() - 1));
  for (size_t size = 0; size < 50; ++size) EXPECT_FALSE(TiffStructure::Read(ByteSource(file.data(), size)));
}

TEST(Iptc, RecordsComeBackOutOfTheirSegment) {
  const std::vector<uint8_t> records = {0x1C, 2, 105, 0, 1, 'h', 0x1C};  // an odd number of bytes
  const std::vector<uint8_t> segment = IptcSegmentData(records);
  EXPECT_EQ(records, BareIptcRecords(segment.data(), segment.size()));
  EXPECT_EQ(records, BareIptcRecords(records.data(), records.size()));
  for (size_t size = 14; size < segment.size() - 1; ++size)
    EXPECT_TRUE(BareIptcRecords(segment.data(), size).empty());
}

TEST(RunEngine, WantOfMemoryIsRefusedAndTheSamplesStay) {
  ResetBufferTable();
  int32_t slot = 0;
  ASSERT_EQ(0, CreateBuffer("main", 64, 48, 1, &slot));
  for (int failing = 0; failing < 6; ++failing) {
    FailAllocationAfter(failing);
    try {
      RunEngine(slot, EngineWishes(), nullptr, "a.png");
      ADD_FAILURE() << "not refused at allocation " << failing;
    } catch (const Refusal& refusal) {
      EXPECT_EQ(ExitStatus::kOutOfMemory, refusal.status());
    }
    ClearAllocationFailure();
  }
  ReleaseBuffer(slot);
}

}  // namespace
}  // namespace tessaline::cli
