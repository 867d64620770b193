#include "resources/resource_bytes.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace tessaline {
namespace {

using namespace std::string_view_literals;

// Sixteen bytes a line, as dumps show them: known-good resources, which hosts list, load and run.
constexpr const char* kPropertyListDump = R"(
01 00 00 00 00 00 0B 00 00 00 4D 49 42 38 64 6E
69 6B 00 00 00 00 04 00 00 00 4D 46 42 38 4D 49
42 38 65 6D 61 6E 00 00 00 00 10 00 00 00 0C 54
65 73 73 61 6C 69 6E 65 2E 2E 2E 00 00 00 4D 49
42 38 67 74 61 63 00 00 00 00 1C 00 00 00 1A 56
69 73 74 72 65 6C 20 2D 20 35 2E 20 4E 6F 69 73
65 20 52 65 6D 6F 76 61 6C 00 4D 49 42 38 73 72
65 76 00 00 00 00 04 00 00 00 00 00 04 00 4D 49
42 38 34 36 36 38 00 00 00 00 0C 00 00 00 50 6C
75 67 69 6E 4D 61 69 6E 00 00 4D 49 42 38 65 64
6F 6D 00 00 00 00 04 00 00 00 5F C0 00 00 4D 49
42 38 6D 74 73 68 00 00 00 00 10 00 00 00 00 00
00 00 6E 49 73 74 6E 49 73 74 80 3E 00 00 4D 49
42 38 6C 62 6E 65 00 00 00 00 80 00 00 00 69 6E
20 28 50 53 48 4F 50 5F 49 6D 61 67 65 4D 6F 64
65 2C 20 52 47 42 4D 6F 64 65 2C 20 47 72 61 79
53 63 61 6C 65 4D 6F 64 65 2C 4C 61 62 4D 6F 64
65 2C 20 52 47 42 34 38 4D 6F 64 65 2C 20 47 72
61 79 31 36 4D 6F 64 65 29 20 7C 7C 50 53 48 4F
50 5F 49 6D 61 67 65 44 65 70 74 68 20 3D 3D 20
31 36 20 7C 7C 50 53 48 4F 50 5F 49 6D 61 67 65
44 65 70 74 68 20 3D 3D 20 33 32 00 00 00 4D 49
42 38 32 33 73 6D 00 00 00 00 08 00 00 00 80 84
1E 00 80 84 1E 00 4D 49 42 38 79 6C 6C 66 00 00
00 00 04 00 00 00 80 00 00 00 4D 49 42 38 69 63
69 66 00 00 00 00 1C 00 00 00 04 04 06 00 04 04
06 00 04 04 06 00 04 04 06 00 04 04 06 00 04 04
06 00 04 04 06 00)";

constexpr const char* kTerminologyDump = R"(
01 00 01 00 00 00 00 00 01 00 07 56 69 73 74 72
65 6C 00 75 53 73 74 01 00 01 00 01 00 09 54 65
73 73 61 6C 69 6E 65 00 6E 49 73 74 6E 49 73 74
6C 6C 75 6E 00 00 00 52 6D 49 23 00 00 B0 03 00
09 54 68 72 65 73 68 6F 6C 64 54 73 70 65 67 6E
6F 6C 00 00 80 0C 4E 6F 74 63 68 20 52 61 64 69
75 73 64 52 6F 4E 62 75 6F 64 00 00 80 14 4C 6F
77 20 46 72 65 71 75 65 6E 63 79 20 43 75 74 6F
66 66 74 63 46 4C 62 75 6F 64 00 00 80 00 00 00
00 00 00)";

std::string Dump(const std::vector<uint8_t>& bytes) {
  std::string dump;
  for (size_t i = 0; i < bytes.size(); ++i) {
    char text[4];
    std::snprintf(text, sizeof text, "%c%02X", i % 16 == 0 ? '\n' : ' ', bytes[i]);
    dump += text;
  }
  return dump;
}

TEST(ResourceBytes, AreThoseThatHostsAreKnownToRead) {
  EXPECT_EQ(438u, PluginPropertyList(kDialogFilter).size());
  EXPECT_EQ(kPropertyListDump, Dump(PluginPropertyList(kDialogFilter)));
  EXPECT_EQ(147u, ScriptingTerminology(kDialogFilter).size());
  EXPECT_EQ(kTerminologyDump, Dump(ScriptingTerminology(kDialogFilter)));
}

// The other filter's resources with what is its own: a longer name in the same menu, codes and id.
TEST(ResourceBytes, OfTheAutomaticFilterDifferInNameCodesAndParameters) {
  const auto replaced = [](std::vector<uint8_t> bytes, size_t at, size_t count, std::string_view by) {
    bytes.erase(bytes.begin() + at, bytes.begin() + at + count);
    bytes.insert(bytes.begin() + at, by.begin(), by.end());
    return bytes;
  };
  std::vector<uint8_t> wanted =
      replaced(PluginPropertyList(kDialogFilter), 0x2E, 16, "\016Tessaline Auto\0"sv);
  wanted = replaced(wanted, 0xC2, 10, "uAstuAst\x81>");
  EXPECT_EQ(Dump(wanted), Dump(PluginPropertyList(kAutomaticFilter)));
  const std::vector<uint8_t> terminology = ScriptingTerminology(kDialogFilter);
  wanted = replaced(terminology, 0x13, 29, "SAst\1\0\1\0\1\0\016Tessaline Auto\0uAstuAst"sv);
  const size_t parameters = wanted.size() - terminology.size() + 0x3E;
  wanted = replaced(wanted, parameters, wanted.size() - parameters, "\0\0\0\0\0\0\0\0"sv);
  EXPECT_EQ(Dump(wanted), Dump(ScriptingTerminology(kAutomaticFilter)));
}

}  // namespace
}  // namespace tessaline
