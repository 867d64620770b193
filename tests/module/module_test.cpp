// The built module, as hosts take it: by its resources, then by its entry point.
#include <gtest/gtest.h>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>
// After windows.h, which it needs.
#include <psapi.h>

#include <cmath>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "resources/resource_bytes.h"
#include "testhost/descriptor_file.h"
#include "testhost/fake_host.h"
#include "testhost/loaded_module.h"
#include "tests/glue/scratch_folder.h"

namespace tessaline::testhost {
namespace {

const std::string kModule = TESSALINE_MODULE;

// Files and preferences of the test's own: the module keeps its preferences where GetTempPathA says.
class Module : public testing::Test {
 protected:
  void SetUp() override { SetEnvironmentVariableA("TMP", folder_.path().c_str()); }

  ScratchFolder folder_;
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

constexpr int32_t kWidth = 260, kHeight = 210;

// A grid under noise, in which a run finds the grid.
Document Patterned(int16_t mode, int32_t depth, int16_t planes) {
  Document document = {mode, depth, planes, kWidth, kHeight, {}, {}};
  for (int32_t i = 0; i < kWidth * kHeight * planes * depth / 8; ++i) {
    const int32_t pixel = i * 8 / depth / planes, x = pixel % kWidth, y = pixel / kWidth;
    const int noise = (x * 7919 ^ y * 104729) % 97 * 31 % 15 * 5 - 35;
    document.pixels.push_back(static_cast<uint8_t>(110 + noise + 50 * std::cos(x * 1.2) * std::cos(y * 1.3)));
  }
  return document;
}

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
  Document picture = Patterned(host::kModeGray, 8, 2);
  for (int32_t i = 0; i < kWidth * kHeight; ++i) {
    picture.mask.push_back(static_cast<uint8_t>(i % kWidth < 20 ? 100 : i % 128 + 128));
  }
  const Document floats = Patterned(host::kModeRgb, 32, 3), inks = Patterned(host::kModeCmyk, 8, 4);

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
