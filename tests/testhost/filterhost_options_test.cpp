#include "testhost/filterhost_options.h"

#include <gtest/gtest.h>

#include <fstream>

#include "testhost/descriptor_file.h"
#include "testhost/host_refusal.h"
#include "tests/glue/scratch_folder.h"

namespace tessaline::testhost {
namespace {

FilterHostOptions Read(std::vector<std::string> options) {
  options.insert(options.end(), {"m.8bf", "in.png", "out.png"});
  return ReadCommandLine(options).options;
}

std::string RefusalOf(const std::vector<std::string>& arguments) {
  try {
    ReadCommandLine(arguments);
  } catch (const Refusal& refusal) {
    EXPECT_EQ(ExitStatus::kWrongUsage, refusal.status());
    const std::string what = refusal.what();
    return what.substr(0, what.find(" (filterhost --help"));
  }
  return "";
}

// One parameter alone would be lost: without a protection radius the filter takes its defaults for all three.
TEST(FilterHostOptions, OneParameterBringsTheOthersAlongAndAPlayedFileComesFirst) {
  EXPECT_EQ("epsT long 90\nNoRd doub 6\nLFct doub 8\n", DescriptorText(Read({"-a", "90"}).host.recording));
  const ScratchFolder folder;
  std::ofstream(folder.File("play.txt")) << "LFct doub 500\nabcd bool true\n";
  EXPECT_EQ("LFct doub 500\nabcd bool true\n",
            DescriptorText(Read({"--play", folder.File("play.txt")}).host.recording));
  EXPECT_EQ("LFct doub 500\nabcd bool true\nNoRd doub 2.5\nepsT long 60\n",
            DescriptorText(Read({"--play", folder.File("play.txt"), "-n", "2.5"}).host.recording));
}

TEST(FilterHostOptions, RefusalsSayWhatWouldBeRight) {
  const auto refused = [](std::vector<std::string> options) {
    options.insert(options.end(), {"m.8bf", "in.png", "out.png"});
    return RefusalOf(options);
  };
  EXPECT_EQ("MODULE is required", RefusalOf({}));
  EXPECT_EQ("OUTPUT is missing: where is the picture to go?", RefusalOf({"m.8bf", "in.png"}));
  EXPECT_EQ("--acceptance takes a number from 0 to 100, not '101'", refused({"-a", "101"}));
  EXPECT_EQ("--acceptance takes a whole number", refused({"-a", "60.5"}));
  EXPECT_EQ("--notch-radius takes a number from 1 to 16, not 'nan'", refused({"-n", "nan"}));
  EXPECT_EQ("--coordinates takes one of 16, 32, not '64'", refused({"--coordinates", "64"}));
  EXPECT_EQ("--filter-rect takes 4 whole numbers with commas, not '1,2,3'",
            refused({"--filter-rect", "1,2,3"}));
  EXPECT_EQ("--select takes 4 whole numbers with commas, not '1,2,3,4,5'",
            refused({"--select", "1,2,3,4,5"}));
  EXPECT_EQ("--row-padding takes no negative numbers", refused({"--row-padding", "0,-1,0"}));
  EXPECT_EQ("--selection and --select are both a selection",
            refused({"--selection", "m.png", "--select", "0,0,1,1"}));
  EXPECT_EQ("--interface takes whole pictures only", refused({"--interface", "--select", "0,0,1,1"}));
  EXPECT_EQ("parameters cannot be handed over without descriptor routines",
            refused({"-a", "90", "--descriptors", "none"}));
  EXPECT_NE("", refused({"--record-bytes", "511"})) << "smaller than the fields that every host has";
}

}  // namespace
}  // namespace tessaline::testhost
