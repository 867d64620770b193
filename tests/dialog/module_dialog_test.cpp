// The built module with its dialog, from a host's call to the file that the host writes.
#include <sstream>

#include "testhost/filterhost.h"
#include "tests/dialog/dialog_driver.h"
#include "tests/glue/scratch_folder.h"
// After windows.h.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

namespace tessaline::testhost {
namespace {

constexpr const char* kPicture = TESSALINE_TEST_DATA "/lines-grey8/input.png";

std::string BytesOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class ModuleDialog : public testing::Test {
 protected:
  // The module keeps its preferences where GetTempPathA says.
  void SetUp() override { SetEnvironmentVariableA("TMP", folder_.path().c_str()); }

  // filterhost OPTIONS MODULE PICTURE OUTPUT
  ExitStatus Filter(std::vector<std::string> options, const std::string& output) {
    options.insert(options.end(), {TESSALINE_MODULE, kPicture, folder_.File(output.c_str())});
    err_.str("");
    std::ostringstream out;
    return FilterHost(options, out, err_);
  }
  // The same with the dialog, and `steps` in that.
  ExitStatus FilterWithDialog(std::vector<std::string> options, const std::string& output,
                              const std::function<void(HWND)>& steps) {
    options.push_back("--dialog");
    ExitStatus status = ExitStatus::kWrongUsage;
    const bool hasOpened =
        RunInside([&] { status = Filter(options, output); }, [&] { steps(EnabledDialog()); });
    EXPECT_TRUE(hasOpened);
    return status;
  }

  ScratchFolder folder_;
  std::ostringstream err_;
};

TEST_F(ModuleDialog, OkGivesThePictureOfTheValuesChosenThroughBothDoors) {
  ASSERT_EQ(ExitStatus::kDone, Filter({"-a", "98", "-n", "3.5", "-p", "16"}, "wanted.png")) << err_.str();
  const std::string wanted = BytesOf(folder_.File("wanted.png"));
  for (const char* const door : {"--window", "--interface"}) {
    SCOPED_TRACE(door);
    const auto choose = [](HWND dialog) {
      EXPECT_EQ("50", TextOf(GetDlgItem(dialog, 9)));
      Type(GetDlgItem(dialog, 9), "98");
      Command(dialog, 121);  // notch radius up by 0.5
      Command(dialog, 311);  // protection radius from 8 to 16
      Settle();
      Command(dialog, IDOK);
    };
    EXPECT_EQ(ExitStatus::kDone,
              FilterWithDialog({door, "-a", "50", "-n", "3", "-p", "8"}, "chosen.png", choose))
        << err_.str();
    EXPECT_TRUE(wanted == BytesOf(folder_.File("chosen.png")));
  }
  EXPECT_FALSE(wanted == BytesOf(kPicture));
}

}  // namespace
}  // namespace tessaline::testhost
