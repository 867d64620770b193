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

}  // namespace
}  // namespace tessaline::cli
