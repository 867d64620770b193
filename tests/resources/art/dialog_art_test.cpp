// The small pictures of the dialogs, of which drawn files are kept.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "resources/art/icons.h"

namespace tessaline::art {
namespace {

TEST(DialogArt, KeptIconsAreWhatTheProgramDraws) {
  for (const Icon& icon : Icons()) {
    std::ifstream file(std::string(TESSALINE_ART "/") + icon.fileName, std::ios::binary);
    EXPECT_EQ(icon.draw(), Bytes(std::istreambuf_iterator<char>(file), {})) << icon.fileName;
  }
}

}  // namespace
}  // namespace tessaline::art
