// The built module, as hosts take it: by its resources, then by its entry point.
#include <gtest/gtest.h>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>
// After windows.h, which it needs.
#include <psapi.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "buffers/buffer_table.h"
#include "glue/host/color_rows.h"
#include "glue/parameters/settings.h"
#include "removal/removal_run.h"
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

constexpr FilterParameters kParameters = {100, 4, 16, 0, 0, {}};
const std::vector<std::string> kParameterOptions = {"-a", "100", "-n", "4", "-p", "16"};

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

enum class Mask { kNone, kSoft, kFaint };

// A selected rectangle with a border of every kind of coverage; only 128 and more counts for its bounds.
constexpr host::VRect kSelected = {11, 20, 200, 250};
uint16_t Coverage(Mask mask, int32_t x, int32_t y) {
  const auto distance = [](int32_t low, int32_t at, int32_t high) {
    return std::min(at - low, high - 1 - at);
  };
  const int32_t inside =
      std::min(distance(kSelected.top, y, kSelected.bottom), distance(kSelected.left, x, kSelected.right));
  constexpr uint16_t kInside[] = {128, 200};
  constexpr uint16_t kOutside[] = {127, 100};
  const uint16_t soft = inside >= 2    ? 255
                        : inside >= 0  ? kInside[inside]
                        : inside >= -2 ? kOutside[-1 - inside]
                                       : 0;
  return mask == Mask::kFaint ? std::min<uint16_t>(soft, 127) : soft;
}

// The colour planes of the area, cleaned by the engine linked into this test.
void CleanByEngine(Picture* picture, const host::VRect& area) {
  const int32_t width = area.right - area.left, height = area.bottom - area.top;
  const int32_t colourPlanes = ColourPlanesOf(picture->space);
  const bool isWide = picture->white != kWhite8;
  const auto sampleAt = [&](int32_t x, int32_t y) {
    return picture->samples.data() +
           (static_cast<size_t>(area.top + y) * picture->width + area.left + x) * picture->Planes();
  };
  ResetBufferTable();
  int32_t slot = 0;
  ASSERT_EQ(0, CreateBuffer("expected", width, height, colourPlanes * (isWide ? 2 : 1), &slot));
  const auto copy = [&](auto* row, int32_t y, bool isInto) {
    for (int32_t x = 0; x < width; ++x) {
      for (int32_t plane = 0; plane < colourPlanes; ++plane) {
        uint16_t* const sample = sampleAt(x, y) + plane;
        auto& buffered = row[x * colourPlanes + plane];
        if (isInto) {
          buffered = static_cast<std::remove_reference_t<decltype(buffered)>>(*sample);
        } else {
          *sample = buffered;
        }
      }
    }
  };
  const auto copyRows = [&](bool isInto) {
    for (int32_t y = 0; y < height; ++y) {
      uint8_t* const row = BufferRow(slot, y);
      auto* const wideRow = reinterpret_cast<uint16_t*>(row);
      if (!isInto && picture->space == ColourSpace::kLab) {
        isWide ? CopyBackLabRow16(wideRow, width) : CopyBackLabRow8(row, width);
      }
      isWide ? copy(wideRow, y, isInto) : copy(row, y, isInto);
    }
  };
  copyRows(true);
  FilterParameters parameters = kParameters;
  bool isFound = false;
  RemovalContext context;
  context.user = &isFound;
  context.inspect = [](void* user, const RemovalFindings& findings) {
    *static_cast<bool*>(user) = findings.seedCells > 0;
    return true;
  };
  ASSERT_EQ(0, RunRemoval(slot, &parameters, nullptr, true, context));
  EXPECT_TRUE(isFound) << "the picture of this test has no pattern in it";
  copyRows(false);
  ReleaseBuffer(slot);
}

// How many samples differ; the test says where the first one lies.
size_t Differences(const Picture& a, const Picture& b) {
  if (a.samples.size() != b.samples.size() || a.white != b.white) return SIZE_MAX;
  size_t count = 0;
  for (size_t i = 0; i < a.samples.size(); ++i) count += a.samples[i] != b.samples[i];
  return count;
}

struct ModeCase {
  ColourSpace space;
  uint16_t white;
};

class ModuleMatrix : public Module, public testing::WithParamInterface<ModeCase> {};

// Every way in which a host may hand over the same picture gives the same pixels: those of the engine inside
// the work rectangle, those of the source everywhere else.
TEST_P(ModuleMatrix, CleansColoursInsideTheSelectionAndNothingElse) {
  const auto [space, white] = GetParam();
  Picture mask = {kWidth, kHeight, ColourSpace::kGrey, 0, kWhite8, {}};
  int32_t combination = 0;
  for (const Mask kind : {Mask::kNone, Mask::kSoft, Mask::kFaint}) {
    mask.samples.clear();
    for (int32_t i = 0; i < kWidth * kHeight; ++i)
      mask.samples.push_back(Coverage(kind, i % kWidth, i / kWidth));
    WritePictureFile(Path("mask.pgm"), mask);
    Picture cleaned = PatternedPicture(space, 0, white);
    if (kind != Mask::kFaint) {
      CleanByEngine(&cleaned, kind == Mask::kSoft ? kSelected : host::VRect{0, 0, kHeight, kWidth});
    }
    for (const int32_t extraPlanes : {0, 1}) {
      const Picture source = PatternedPicture(space, extraPlanes, white);
      Picture expected = source;
      for (int32_t i = 0; i < kWidth * kHeight; ++i) {
        std::copy_n(&cleaned.samples[static_cast<size_t>(i) * cleaned.Planes()], cleaned.Planes(),
                    &expected.samples[static_cast<size_t>(i) * expected.Planes()]);
      }
      WritePictureFile(Path("in.pam"), source);
      for (const char* bits : {"16", "32"}) {
        std::vector<std::string> options = kParameterOptions;
        options.insert(options.end(), {"--no-blend", "--coordinates", bits});
        if (kind != Mask::kNone) options.insert(options.end(), {"--selection", Path("mask.pgm")});
        // What must not matter changes along.
        constexpr const char* kStyles[] = {"always", "change", "clip"};
        options.insert(options.end(), {"--style", kStyles[combination % 3]});
        if (combination % 2 == 1) options.insert(options.end(), {"--row-padding", "5,16,3"});
        if (combination % 4 == 2) options.insert(options.end(), {"--no-tables", "--no-callbacks", "--about"});
        if (combination % 5 == 3)
          options.insert(options.end(), {"--handles", "none", "--no-parameters-call"});
        if (combination % 5 == 4)
          options.insert(options.end(), {"--record-bytes", "556", "--stable-addresses"});
        ++combination;
        std::filesystem::remove(Path("out.pam"));
        ASSERT_EQ(ExitStatus::kDone, Filter(options)) << err_.str();
        EXPECT_EQ("", err_.str());
        EXPECT_EQ(0u, Differences(expected, ReadPictureFile(Path("out.pam"))))
            << "mask " << static_cast<int>(kind) << ", extra planes " << extraPlanes << ", coordinates "
            << bits;
      }
    }
  }
}

std::string ModeName(const testing::TestParamInfo<ModeCase>& mode) {
  constexpr const char* kNames[] = {"Grey", "Rgb", "Cmyk", "Lab"};
  return kNames[static_cast<int>(mode.param.space)] + std::string(mode.param.white == kWhite8 ? "8" : "16");
}

constexpr ModeCase kCleanedModes[] = {
    {ColourSpace::kGrey, kWhite8},      {ColourSpace::kRgb, kWhite8},      {ColourSpace::kLab, kWhite8},
    {ColourSpace::kGrey, kWhiteHost16}, {ColourSpace::kRgb, kWhiteHost16}, {ColourSpace::kLab, kWhiteHost16},
};
INSTANTIATE_TEST_SUITE_P(Modes, ModuleMatrix, testing::ValuesIn(kCleanedModes), ModeName);

TEST_F(Module, HostBlendsTheResultThroughTheSelection) {
  const Picture source = PatternedPicture(ColourSpace::kGrey, 0, kWhite8);
  WritePictureFile(Path("in.pam"), source);
  Picture expected = source;
  CleanByEngine(&expected, {0, 0, 190, 230});
  std::vector<std::string> options = kParameterOptions;
  options.insert(options.end(), {"--select", "0,0,190,230"});
  ASSERT_EQ(ExitStatus::kDone, Filter(options)) << err_.str();
  EXPECT_EQ(0u, Differences(expected, ReadPictureFile(Path("out.pam"))));
}

TEST_F(Module, ThePartOutsideTheFilterRectangleIsNeverTouched) {
  const Picture source = PatternedPicture(ColourSpace::kRgb, 1, kWhite8);
  WritePictureFile(Path("in.pam"), source);
  Picture expected = source;
  CleanByEngine(&expected, {5, 10, 200, 250});
  for (const char* bits : {"16", "32"}) {
    std::vector<std::string> options = kParameterOptions;
    options.insert(options.end(), {"--filter-rect", "5,10,200,250", "--coordinates", bits});
    ASSERT_EQ(ExitStatus::kDone, Filter(options)) << err_.str();
    EXPECT_EQ(0u, Differences(expected, ReadPictureFile(Path("out.pam"))));
  }
}

TEST_F(Module, TheProgrammaticInterfaceGivesTheSamePixels) {
  for (const uint16_t white : {kWhite8, kWhiteHost16}) {
    const Picture source = PatternedPicture(ColourSpace::kRgb, 1, white);
    WritePictureFile(Path("in.pam"), source);
    Picture expected = source;
    CleanByEngine(&expected, {0, 0, kHeight, kWidth});
    std::vector<std::string> options = kParameterOptions;
    options.insert(options.end(), {"--interface", "--record", Path("used.txt")});
    ASSERT_EQ(ExitStatus::kDone, Filter(options)) << err_.str();
    EXPECT_EQ(0u, Differences(expected, ReadPictureFile(Path("out.pam"))));
    EXPECT_EQ("epsT long 100\nNoRd doub 4\nLFct doub 16\n",
              DescriptorText(ReadDescriptorFile(Path("used.txt"))));
  }
}

// --- what is not cleaned ---

struct UncleanedCase {
  const char* mode;
  const char* depth;
  ExitStatus status;
  const char* says;  // part of what is printed
};

TEST_F(Module, OtherPicturesComeBackUnchangedOrNotAtAll) {
  constexpr const char* kWrongWidth = "message box \"_MainGlueProcess\": info->channelbytes is wrong";
  constexpr const char* kWorksOn = "greyscale, RGB and Lab";
  const UncleanedCase cases[] = {
      {"grey", "32", ExitStatus::kDone, ""},
      {"1", "32", ExitStatus::kDone, ""},  // greyscale by number, 32 bits by depth alone
      {"rgb", "32", ExitStatus::kDone, ""},
      {"bitmap", "8", ExitStatus::kDone, kWrongWidth},
      {"99", "8", ExitStatus::kDone, "message box \"_MainGlueProcess\": bad image mode"},
      {"cmyk", "8", ExitStatus::kFilterFailed, kWorksOn},
      {"cmyk", "16", ExitStatus::kFilterFailed, kWorksOn},
      {"indexed", "8", ExitStatus::kFilterFailed, kWorksOn},
      {"hsl", "8", ExitStatus::kFilterFailed, kWorksOn},
      {"multichannel", "16", ExitStatus::kFilterFailed, kWorksOn},
      {"duotone", "8", ExitStatus::kFilterFailed, kWorksOn},
  };
  for (const UncleanedCase& c : cases) {
    const std::string mode = c.mode;
    const ColourSpace space = mode == "cmyk"                   ? ColourSpace::kCmyk
                              : mode == "rgb" || mode == "hsl" ? ColourSpace::kRgb
                                                               : ColourSpace::kGrey;
    const Picture source = PatternedPicture(space, 0, kWhiteHost16);
    WritePictureFile(Path("in.pam"), source);
    std::filesystem::remove(Path("out.pam"));
    std::vector<std::string> options = kParameterOptions;
    options.insert(options.end(), {"--mode", mode, "--depth", c.depth});
    EXPECT_EQ(c.status, Filter(options)) << mode << c.depth << err_.str();
    EXPECT_NE(std::string::npos, err_.str().find(c.says)) << mode << c.depth << err_.str();
    EXPECT_EQ(c.says[0] == '\0', err_.str().empty()) << err_.str();
    if (c.status == ExitStatus::kDone) {
      EXPECT_EQ(0u, Differences(source, ReadPictureFile(Path("out.pam")))) << mode;
    } else {
      EXPECT_NE(std::string::npos, err_.str().find("answered -36")) << err_.str();
      EXPECT_FALSE(std::filesystem::exists(Path("out.pam"))) << mode;
    }
  }
}

TEST_F(Module, TooLargeAPictureIsCancelledWithAMessage) {
  WritePictureFile(Path("in.pam"), {7501, 2, ColourSpace::kGrey, 0, kWhite8, std::vector<uint16_t>(15002)});
  EXPECT_EQ(ExitStatus::kFilterFailed, Filter({}));
  EXPECT_NE(std::string::npos, err_.str().find("7500")) << err_.str();
  EXPECT_NE(std::string::npos, err_.str().find("answered -128")) << err_.str();
}

// --- failures of the host ---

TEST_F(Module, AHostThatFailsGetsItsCodeAndNoPicture) {
  const Picture source = PatternedPicture(ColourSpace::kGrey, 0, kWhite8);
  WritePictureFile(Path("in.pam"), source);
  // The scan of the mask, the fetch, and the copy back; each without a mask, and with one.
  const std::vector<std::vector<std::string>> masks = {{}, {"--select", "10,10,190,220"}};
  for (const auto& mask : masks) {
    for (const char* at : {"100,-50", "250,-108", "390,-108"}) {
      std::vector<std::string> options = {"--fail-advance", at};
      options.insert(options.end(), mask.begin(), mask.end());
      const ExitStatus status = Filter(options);
      // A failing scan of the mask is no failure: the whole filter rectangle is taken.
      const bool isScan = !mask.empty() && std::string(at).starts_with("100");
      EXPECT_EQ(isScan ? ExitStatus::kDone : ExitStatus::kFilterFailed, status) << at << err_.str();
      if (isScan) continue;
      EXPECT_NE(std::string::npos, err_.str().find("answered " + std::string(at).substr(4))) << err_.str();
    }
  }
  EXPECT_EQ(ExitStatus::kFilterFailed, Filter({"--abort", "1"}));
  EXPECT_NE(std::string::npos, err_.str().find("answered -128")) << err_.str();
}

// --- parameters ---

TEST_F(Module, RecordsWhatItUsedAndPlaysItBack) {
  WritePictureFile(Path("in.pam"), PatternedPicture(ColourSpace::kGrey, 0, kWhite8));
  std::ofstream(Path("play.txt"))
      << "LFct doub 16\nabcd text nobody asked for this\nNoRd doub 20\nepsT long 98\n";
  ASSERT_EQ(ExitStatus::kDone, Filter({"--play", Path("play.txt"), "--record", Path("record.txt")}))
      << err_.str();
  // A notch radius of 20 is out of range; the list, made from settings that are still empty, holds 0 for it.
  EXPECT_EQ("epsT long 98\nNoRd doub 0\nLFct doub 16\n",
            DescriptorText(ReadDescriptorFile(Path("record.txt"))));
}

// The settings are the module's, not the run's: the preferences that a run reads are where the next one
// begins, as long as the module stays loaded.
TEST_F(Module, SettingsLiveAsLongAsTheModule) {
  WritePictureFile(Path("in.pam"), PatternedPicture(ColourSpace::kGrey, 0, kWhite8));
  SettingsRecord settings = {};
  settings.acceptance = 85;
  settings.notchRadius = 3;
  settings.protectionRadius = 12;
  std::vector<char> preferences(kPreferencesFileBytes);
  std::memcpy(preferences.data(), &settings, sizeof settings);
  const auto record = [&](std::vector<std::string> options) {
    std::ofstream(Path("Plug-In Preferences.xyz"), std::ios::binary)
        .write(preferences.data(), static_cast<std::streamsize>(preferences.size()));
    options.insert(options.end(), {"--record", Path("record.txt")});
    // The second run of a loaded module cleans with other values, and so gives other pixels.
    Filter(options);
    return DescriptorText(ReadDescriptorFile(Path("record.txt")));
  };
  EXPECT_EQ("epsT long 0\nNoRd doub 0\nLFct doub 0\n", record({}));
  EXPECT_EQ("epsT long 85\nNoRd doub 3\nLFct doub 12\n", record({"--runs", "2"}));
  EXPECT_EQ("epsT long 0\nNoRd doub 0\nLFct doub 0\n", record({"--runs", "2", "--reload"}));
}

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
    picture.mask.push_back(static_cast<uint8_t>(Coverage(Mask::kSoft, i % kWidth, i / kWidth)));
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
                 {inks, whole, -36},          {inks, whole, -36},         {picture, storeFails, -108},
                 {inks, whole, -36}};
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
