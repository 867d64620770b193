#include "testhost/interface_door.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "testhost/descriptor_file.h"

namespace tessaline::testhost {
namespace {

// An interface that inverts bytes and remembers what it was given.
std::string g_text;
int32_t g_kind;
char g_block[4096];

int32_t Create(TessalineInstance* instance) {
  instance->parameterText = g_block;
  instance->textCapacity = sizeof g_block;
  return 0;
}
void Free(TessalineInstance*) {}
int32_t Invert(TessalineInstance* instance, const TessalineImage* image, int64_t) {
  g_text = instance->parameterText;
  g_kind = image->kind;
  const int32_t pixelBytes = image->kind < 0 ? -image->kind : image->kind;
  auto* const bytes = static_cast<uint8_t*>(image->pixels);
  for (int32_t i = 0; i < image->width * image->height * pixelBytes; ++i) bytes[i] ^= 0xFF;
  constexpr char kUsed[] = "<long>epsT,77\r\n<doub>NoRd,6.500000\r\n";
  std::copy(std::begin(kUsed), std::end(kUsed), g_block);
  return 0;
}
constexpr InterfaceFunctions kFunctions = {Create, Free, Invert};

TEST(InterfaceDoor, HandsOverColoursAndParametersAndLeavesExtraPlanesAlone) {
  const Document source = {host::kModeRgb, 8, 4, 2, 1, {1, 2, 3, 4, 5, 6, 7, 8}, {}};
  const auto parameters = ParseDescriptor("here", "epsT long 90\nNoRd doub 3.5\naaaa bool true");
  const InterfaceReport report = RunInterface(kFunctions, source, parameters, false);
  EXPECT_EQ(0, report.result);
  EXPECT_EQ(TESSALINE_RGB8, g_kind);
  EXPECT_EQ("<long>epsT,90\r\n<doub>NoRd,3.5\r\n", g_text);
  EXPECT_EQ((std::vector<uint8_t>{254, 253, 252, 4, 250, 249, 248, 8}), report.document.pixels);
  EXPECT_EQ("epsT long 77\nNoRd doub 6.5\n", DescriptorText(report.parameters));
}

}  // namespace
}  // namespace tessaline::testhost
