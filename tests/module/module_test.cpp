// The built module, as hosts take it: by its resources, then by its entry point.
#include <gtest/gtest.h>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>
// After windows.h, which it needs.
#include <psapi.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "glue/parameters/settings.h"
#include "resources/resource_bytes.h"
#include "testhost/descriptor_file.h"
#include "testhost/filterhost.h"
#include "testhost/loaded_module.h"
#include "testhost/picture_document.h"
#include "testhost/picture_file.h"
#include "tests/glue/scratch_folder.h"

namespace tessaline::testhost {
namespace {

const std::string kModule = TESSALINE_MODULE;

// Files and preferences of the test's own: the module keeps its preferences where GetTempPathA says.
class Module : public testing::Test {
 protected:
  void SetUp() override { SetEnvironmentVariableA("TMP", folder_.path().c_str()); }

  std::string Path(const std::string& name) const { return folder_.path() + "\\" + name; }

  // filterhost OPTIONS MODULE INPUT OUTPUT
  ExitStatus Filter(const std::vector<std::string>& options, const std::string& input = "in.pam",
                    const std::string& output = "out.pam") {
    std::vector<std::string> arguments = options;
    arguments.insert(arguments.end(), {kModule, Path(input), Path(output)});
    out_.str("");
    err_.str("");
    return FilterHost(arguments, out_, err_);
  }

  ScratchFolder folder_;
  std::ostringstream out_, err_;
};

TEST_F(Module, ResourcesArriveInTheFileAsTheyWereMade) {
  EXPECT_EQ(PluginPropertyList(), ReadModuleResource(kModule, "PiPL", kResourceId));
  EXPECT_EQ(ScriptingTerminology(), ReadModuleResource(kModule, "AETE", kResourceId));
  EXPECT_TRUE(ReadModuleResource(kModule, "PiPL", 1).empty());
}

TEST_F(Module, ManifestAndVersionAreThere) {
  const std::vector<uint8_t> manifest = ReadModuleResource(kModule, RT_MANIFEST, 2);
  EXPECT_NE(std::string::npos,
            std::string(manifest.begin(), manifest.end()).find("Microsoft.Windows.Common-Controls"));
  EXPECT_FALSE(ReadModuleResource(kModule, RT_VERSION, 1).empty());
}

// The next free handle. A count would do, but Wine answers 0 when it is asked for one; handles that stay
// behind push the next one up on both systems.
uintptr_t NextHandle() {
  const HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
  CloseHandle(event);
  return reinterpret_cast<uintptr_t>(event);
}

// Some hosts load every module they find, only to look at it.
TEST_F(Module, LoadingAndFreeingLeavesNothingBehind) {
  { const LoadedModule first(kModule); }
  // Every editor has these loaded. Wine's own leave a handle behind each time they go.
  for (const char* system : {"comctl32.dll", "comdlg32.dll", "shell32.dll"}) LoadLibraryA(system);
  const uintptr_t handleBefore = NextHandle();
  for (int i = 0; i < 20; ++i) {
    const LoadedModule module(kModule);
    EXPECT_NE(nullptr, GetModuleHandleA("Tessaline64.8bf"));
  }
  EXPECT_EQ(handleBefore, NextHandle());
  EXPECT_EQ(nullptr, GetModuleHandleA("Tessaline64.8bf"));
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

// --- pictures ---

constexpr int32_t kWidth = 260, kHeight = 210;

// A gradient with a strong grid and some noise, in which a run finds the grid, and extra planes. In much
// smaller pictures, or with less noise, no pattern stands out enough.
Picture PatternedPicture(ColourSpace space, int32_t extraPlanes, uint16_t white) {
  Picture picture = {kWidth, kHeight, space, extraPlanes, white, {}};
  const int32_t colourPlanes = ColourPlanesOf(space);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      for (int32_t plane = 0; plane < picture.Planes(); ++plane) {
        const int noise = (x * 7919 ^ y * 104729) % 97 * 31 % 15 * 5 - 35;
        const double level = plane < colourPlanes ? 100 + 10 * plane + (x + y) / 32.0 + noise +
                                                        50 * std::cos(x * 1.2) * std::cos(y * 1.3)
                                                  : (x * 3 + y * 5 + plane) % 256;
        picture.samples.push_back(static_cast<uint16_t>(level / 255 * white));
      }
    }
  }
  return picture;
}

// --- parameters ---

// --- soak ---

int64_t PrivateBytes() {
  PROCESS_MEMORY_COUNTERS counters = {};
  GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
  return static_cast<int64_t>(counters.PagefileUsage);
}

// Every way a run can end, over and over. The table's flush alone would leave buffers behind; the module
// releases its own by name, so nothing adds up. A single block of 528 bytes, the parameter list, forgotten
// each time shows as 70 kB here.
TEST_F(Module, TwoHundredRunsInOneLoadedModuleKeepTheirMemory) {
  const LoadedModule module(kModule);
  const auto entry = module.Export<host::EntryPoint>("PluginMain");
  Document picture = MakeDocument(PatternedPicture(ColourSpace::kGrey, 1, kWhite8), {});
  for (int32_t i = 0; i < kWidth * kHeight; ++i) {
    picture.mask.push_back(static_cast<uint8_t>(i % kWidth < 20 ? 100 : i % 128 + 128));
  }
  Document floats = MakeDocument(PatternedPicture(ColourSpace::kRgb, 0, kWhite8), {std::nullopt, 32});
  Document inks = MakeDocument(PatternedPicture(ColourSpace::kCmyk, 0, kWhite8), {});

  Switches whole;
  whole.hasRecording = true;
  whole.recording = ParseDescriptor("here", "epsT long 100\nNoRd doub 4\nLFct doub 16");
  Switches cancelled = whole;
  cancelled.abortAtCall = 2;
  Switches fetchFails = whole;
  fetchFails.failAdvanceAt = kHeight + 100;
  Switches storeFails = whole;
  storeFails.failAdvanceAt = 2 * kHeight + 100;
  const struct {
    const Document& document;
    const Switches& switches;
    int16_t result;
  } endings[] = {{picture, whole, 0},         {picture, cancelled, -128}, {picture, fetchFails, -108},
                 {picture, fetchFails, -108}, {floats, whole, 0},         {floats, whole, 0},
                 {inks, whole, -30904},       {inks, whole, -30904},      {picture, storeFails, -108},
                 {inks, whole, -30904}};
  constexpr int kRuns = 200, kWarm = 20;
  int64_t warmBytes = 0;
  for (int run = 0; run < kRuns; ++run) {
    if (run == kWarm) warmBytes = PrivateBytes();
    const auto& ending = endings[run % std::size(endings)];
    const Report report = RunFilter(entry, ending.document, ending.switches);
    ASSERT_EQ(ending.result, report.result) << run;
    ASSERT_TRUE(report.complaints.empty()) << report.complaints[0];
    ASSERT_EQ(0, report.handlesLeft) << run;
  }
  EXPECT_LT(PrivateBytes() - warmBytes, 48 << 10);
}

}  // namespace
}  // namespace tessaline::testhost
