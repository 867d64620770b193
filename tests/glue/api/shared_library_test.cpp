// libtessaline.so as other programs meet it: its names, and the C example.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/glue/api/screened_picture.h"
#include "tests/glue/scratch_folder.h"

namespace tessaline {
namespace {

struct Printed {
  int status;
  std::string text;
};

// What a shell command prints on stdout and stderr.
Printed RunShell(const std::string& command) {
  std::FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
  Printed printed;
  char bytes[4096];
  for (size_t count; (count = std::fread(bytes, 1, sizeof bytes, pipe)) > 0;)
    printed.text.append(bytes, count);
  printed.status = WEXITSTATUS(pclose(pipe));
  return printed;
}

TEST(SharedLibrary, ShowsTwelveNamesAndNoMore) {
  std::istringstream lines(
      RunShell(std::string(TESSALINE_NM) + " -D --defined-only " TESSALINE_LIBRARY).text);
  std::set<std::string> names;
  std::string address, kind, name;
  while (lines >> address >> kind >> name) names.insert(kind + " " + name);
  EXPECT_EQ((std::set<std::string>{"T MTAPI_CreateInstance", "T MTAPI_FreeInstance", "T MTAPI_Process",
                                   "T MTAPI_ProcessStream", "T OSAPI_CreateInstance", "T OSAPI_FreeInstance",
                                   "T OSAPI_Process", "T OSAPI_ProcessStream", "T _Alder", "T _Birch",
                                   "T _Cedar", "T _Larch"}),
            names);
}

class CleanPgm : public testing::Test {
 protected:
  static std::string Input() {
    const std::vector<uint8_t> levels = ScreenedPicture();
    return "P5\n700 700\n255\n" + std::string(levels.begin(), levels.end());
  }
  // How strong the screen is in the picture, in levels.
  static double ScreenLevel(const std::string& pgm) {
    constexpr int32_t kPixels = kScreenedSide * kScreenedSide;
    const char* const pixels = pgm.data() + pgm.size() - kPixels;
    double sum = 0;
    for (int32_t i = 0; i < kPixels; ++i) {
      sum += static_cast<uint8_t>(pixels[i]) * ScreenAt(i % kScreenedSide, i / kScreenedSide);
    }
    return 4 * sum / kPixels;
  }
  void WriteInput(const std::string& bytes) const {
    std::ofstream(folder.File("in.pgm"), std::ios::binary) << bytes;
  }
  Printed Clean(const std::string& options) const {
    const std::string folderPath = folder.path();
    return RunShell("XDG_STATE_HOME='" + folderPath + "' " TESSALINE_EXAMPLE " '" + folderPath +
                    "/in.pgm' '" + folderPath + "/out.pgm' " + options);
  }
  std::string Output() const {
    std::ifstream file(folder.File("out.pgm"), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  ScratchFolder folder;
};

TEST_F(CleanPgm, TakesTheScreenOutOfAPicture) {
  const std::string input = Input();
  WriteInput(input);
  const Printed printed = Clean("95 5 16");
  EXPECT_EQ("<long>epsT,95\r\n<doub>NoRd,5.000000\r\n<doub>LFct,16.000000\r\n", printed.text);
  EXPECT_EQ(0, printed.status);
  ASSERT_EQ(input.size(), Output().size());
  EXPECT_NEAR(kScreenAmplitude, ScreenLevel(input), 1);
  EXPECT_LT(ScreenLevel(Output()), kScreenAmplitude / 3);  // what is left stands near the edges
  EXPECT_TRUE(std::filesystem::exists(folder.File("tessaline/Plug-In Preferences.xyz")));
}

TEST_F(CleanPgm, RefusesADamagedPictureAndWritesNothing) {
  WriteInput(Input().substr(0, 5000));
  const Printed printed = Clean("");
  EXPECT_EQ(1, printed.status);
  EXPECT_NE(std::string::npos, printed.text.find("not a whole 8-bit binary PGM picture"));
  EXPECT_EQ("", Output());
}

}  // namespace
}  // namespace tessaline
