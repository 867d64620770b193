// The built module, as hosts take it: by its resources, then by its entry point.
#include <gtest/gtest.h>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>
// After windows.h, which it needs.
#include <psapi.h>

#include <cmath>
#include <cstring>
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

const struct BuiltModule {
  std::string path;
  const char* file;
  const FilterIdentity& filter;
} kModules[] = {{TESSALINE_MODULE, "Tessaline64.8bf", kDialogFilter},
                {TESSALINE_AUTOMATIC_MODULE, "TessalineAuto64.8bf", kAutomaticFilter}};

// Files and preferences of the test's own: the module keeps its preferences where GetTempPathA says.
class Module : public testing::Test {
 protected:
  void SetUp() override { SetEnvironmentVariableA("TMP", folder_.path().c_str()); }

  ScratchFolder folder_;
};

TEST_F(Module, ResourcesArriveInTheFileAsTheyWereMade) {
  for (const auto& [path, file, filter] : kModules) {
    SCOPED_TRACE(file);
    EXPECT_EQ(PluginPropertyList(filter), ReadModuleResource(path, "PiPL", filter.resourceId));
    EXPECT_EQ(ScriptingTerminology(filter), ReadModuleResource(path, "AETE", filter.resourceId));
    EXPECT_TRUE(ReadModuleResource(path, "PiPL", 1).empty());
    const std::vector<uint8_t> version = ReadModuleResource(path, RT_VERSION, 1);
    const std::u16string name(file, file + std::strlen(file));
    EXPECT_NE(
        std::u16string::npos,
        std::u16string(reinterpret_cast<const char16_t*>(version.data()), version.size() / 2).find(name));
  }
}

TEST_F(Module, ManifestIsThereForTheDialog) {
  const std::vector<uint8_t> manifest = ReadModuleResource(kModules[0].path, RT_MANIFEST, 2);
  EXPECT_NE(std::string::npos,
            std::string(manifest.begin(), manifest.end()).find("Microsoft.Windows.Common-Controls"));
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
  for (const BuiltModule& built : kModules) const LoadedModule first(built.path);
  // Every editor has these loaded. Wine's own leave a handle behind each time they go.
  for (const char* system : {"comctl32.dll", "comdlg32.dll", "shell32.dll"}) LoadLibraryA(system);
  for (const BuiltModule& built : kModules) {
    const uintptr_t handleBefore = NextHandle();
    for (int i = 0; i < 20; ++i) {
      const LoadedModule module(built.path);
      EXPECT_NE(nullptr, GetModuleHandleA(built.file));
    }
    EXPECT_EQ(handleBefore, NextHandle());
    EXPECT_EQ(nullptr, GetModuleHandleA(built.file));
  }
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
TEST_F(Module, TwoHundredRunsInALoadedModuleKeepTheirMemory) {
  Document picture = Patterned(host::kModeGray, 8, 2);
  for (int32_t i = 0; i < kWidth * kHeight; ++i) {
    picture.mask.push_back(static_cast<uint8_t>(i % kWidth < 20 ? 100 : i % 128 + 128));
  }
  const Document floats = Patterned(host::kModeRgb, 32, 3), inks = Patterned(host::kModeCmyk, 8, 4);
  const Document plain = {host::kModeGray, 8, 1, 40, 30, std::vector<uint8_t>(40 * 30, 99), {}};

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
    int16_t results[2];  // by module
  } endings[] = {{picture, whole, {0, 0}},
                 {picture, cancelled, {-128, -128}},
                 {picture, fetchFails, {-108, -108}},
                 {picture, fetchFails, {-108, -108}},
                 {floats, whole, {0, -30904}},
                 {floats, whole, {0, -30904}},
                 {inks, whole, {-30904, -30904}},
                 {inks, whole, {-30904, -30904}},
                 {picture, storeFails, {-108, -108}},
                 {plain, whole, {0, -30904}}};
  for (const int m : {0, 1}) {
    const LoadedModule module(kModules[m].path);
    const auto entry = module.Export<host::EntryPoint>("PluginMain");
    constexpr int kRuns = 200, kWarm = 20;
    int64_t warmBytes = 0;
    for (int run = 0; run < kRuns; ++run) {
      if (run == kWarm) warmBytes = PrivateBytes();
      const auto& ending = endings[run % std::size(endings)];
      const Report report = RunFilter(entry, ending.document, ending.switches);
      ASSERT_EQ(ending.results[m], report.result) << m << " " << run;
      ASSERT_TRUE(report.complaints.empty()) << report.complaints[0];
      ASSERT_EQ(0, report.handlesLeft) << run;
    }
    EXPECT_LT(PrivateBytes() - warmBytes, 48 << 10) << m;
  }
}

}  // namespace
}  // namespace tessaline::testhost
