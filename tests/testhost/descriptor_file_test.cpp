#include "testhost/descriptor_file.h"

#include <gtest/gtest.h>

#include "glue/parameters/parameter_list.h"
#include "testhost/host_refusal.h"

namespace tessaline::testhost {
namespace {

TEST(DescriptorFile, SaysEveryTypeAndReadsItBack) {
  const std::vector<DescriptorValue> descriptor = {
      {kKeyAcceptance, host::kDescriptorInteger, -80, 0, ""},
      {kKeyNotchRadius, host::kDescriptorFloat, 0, 0.1, ""},
      {FourCharCode("aaaa"), host::kDescriptorBoolean, 1, 0, ""},
      {FourCharCode("bbbb"), host::kDescriptorText, 0, 0, "C:\\a b.png # no comment"},
      {kKeyUnit, FourCharCode("UniT"), 1, 0, ""},
      {FourCharCode("#num"), host::kDescriptorFloat, 0, 1e300, ""},
      {FourCharCode("a b "), host::kDescriptorBoolean, 0, 0, ""},
  };
  const std::string text = DescriptorText(descriptor);
  EXPECT_EQ(
      "epsT long -80\n"
      "NoRd doub 0.1\n"
      "aaaa bool true\n"
      "bbbb text C:\\a b.png # no comment\n"
      "unCd enum UniT 0x00000001\n"
      "0x236E756D doub 1e+300\n"
      "0x61206220 bool false\n",
      text);
  EXPECT_EQ(descriptor, ParseDescriptor("here", text));
}

TEST(DescriptorFile, RefusesWhatItCannotReadAndNamesTheLine) {
  const auto fault = [](const std::string& text) -> std::string {
    try {
      ParseDescriptor("run.txt", text);
    } catch (const Refusal& refusal) {
      return refusal.what();
    }
    return "";
  };
  EXPECT_EQ("run.txt, line 2: 'Threshold' is no key; keys have four characters, such as epsT",
            fault("# x\nThreshold long 80"));
  for (const char* line : {"epsT long 80.5", "epsT long", "epsT", "NoRd doub 3,5", "aaaa bool yes",
                           "unCd enum UniT", "unCd enum UniT 0001 0002", "epsT long 99999999999"}) {
    EXPECT_TRUE(fault(line).starts_with("run.txt, line 1: '")) << line;
  }
}

}  // namespace
}  // namespace tessaline::testhost
