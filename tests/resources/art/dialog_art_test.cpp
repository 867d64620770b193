// The small pictures of the dialogs: files that other programs read, and what is kept of them.
#include <gtest/gtest.h>

#include "resources/art/icons.h"
#include "tests/resources/art/kept_files.h"

namespace tessaline::art {
namespace {

TEST(DialogArt, KeptIconsAreWhatTheProgramDraws) {
  for (const Icon& icon : Icons()) EXPECT_EQ(icon.draw(), KeptFile(icon.fileName)) << icon.fileName;
}

}  // namespace
}  // namespace tessaline::art
