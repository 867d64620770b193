#include "testhost/filterhost_options.h"

#include <gtest/gtest.h>

#include <fstream>

#include "testhost/descriptor_file.h"
#include "testhost/refusal.h"
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

TEST(FilterHostOptions, WithoutOptionsTheHostIsAnEasyOne) {
  const FilterHostOptions options = Read({});
  EXPECT_EQ("m.8bf", options.module);
  EXPECT_EQ("in.png", options.input);
  EXPECT_EQ("out.png", options.output);
  EXPECT_EQ(1, options.runs);
  EXPECT_TRUE(options.host.parameters && options.host.autoMask && options.host.freshAddresses);
  EXPECT_FALSE(options.host.hasRecording || options.host.offer32Bits || options.throughInterface);
  EXPECT_NE(host::kDialogDisplay, options.host.playInfo) << "a dialog would wait for somebody";
}

TEST(FilterHostOptions, PathsMayBeginWithASlash) {
  const FilterHostOptions options =
      ReadCommandLine({"--trace", "/m/m.8bf", "/tmp/in.png", "/tmp/out.png"}).options;
  EXPECT_EQ("/tmp/in.png", options.input);
  EXPECT_EQ("/tmp/out.png", options.output);
}

TEST(FilterHostOptions, SwitchesReachTheHost) {
  const FilterHostOptions options = Read({"--coordinates",
                                          "32",
                                          "--style",
                                          "clip",
                                          "--row-padding",
                                          "5,16,3",
                                          "--filter-rect",
                                          "1,2,30,40",
                                          "--handles",
                                          "seven",
                                          "--fail-advance",
                                          "7,-50",
                                          "--abort",
                                          "3",
                                          "--record-bytes",
                                          "556",
                                          "--dialog",
                                          "--no-blend",
                                          "--stable-addresses",
                                          "--no-parameters-call",
                                          "--depth",
                                          "16",
                                          "--select",
                                          "0,0,5,-6"});
  EXPECT_TRUE(options.host.offer32Bits && options.host.hasFilterRectangle);
  EXPECT_EQ(Style::kRefillOnChangeAndClip, options.host.style);
  EXPECT_EQ(5, options.host.inputPadding);
  EXPECT_EQ(16, options.host.outputPadding);
  EXPECT_EQ(3, options.host.maskPadding);
  EXPECT_EQ(2, options.host.filterRectangle.left);
  EXPECT_EQ(30, options.host.filterRectangle.bottom);
  EXPECT_EQ(HandleTable::kSevenRoutines, options.host.handles);
  EXPECT_EQ(7, options.host.failAdvanceAt);
  EXPECT_EQ(-50, options.host.failCode);
  EXPECT_EQ(3, options.host.abortAtCall);
  EXPECT_EQ(556u, options.host.recordBytes);
  EXPECT_EQ(host::kDialogDisplay, options.host.playInfo);
  EXPECT_FALSE(options.host.autoMask || options.host.freshAddresses || options.host.parameters);
  EXPECT_EQ(16, options.depth);
  EXPECT_EQ(-6, options.selectedRectangle->right);
}

// One parameter alone would be lost: without a protection radius the filter takes its defaults for all three.
TEST(FilterHostOptions, OneParameterBringsTheOthersAlong) {
  const FilterHostOptions options = Read({"-a", "90"});
  EXPECT_TRUE(options.host.hasRecording);
  EXPECT_EQ("epsT long 90\nNoRd doub 6\nLFct doub 8\n", DescriptorText(options.host.recording));
}

TEST(FilterHostOptions, APlayedFileIsHandedOverAsItIsAndThenWhatWasGivenByHand) {
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
  EXPECT_NE("", refused({"--runs", "0"}));
  EXPECT_NE("", refused({"--unknown"}));
  EXPECT_NE("", refused({"one", "more"}));
}

TEST(FilterHostOptions, HelpNamesEveryExitStatus) {
  const std::string help = ReadCommandLine({"--help"}).help;
  EXPECT_NE(std::string::npos, help.find("Usage: filterhost [options] MODULE INPUT OUTPUT"));
  for (int status = 0; status <= static_cast<int>(ExitStatus::kOutOfMemory); ++status) {
    EXPECT_NE(std::string::npos, help.find(std::to_string(status) + " ")) << status;
  }
}

}  // namespace
}  // namespace tessaline::testhost
