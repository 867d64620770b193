#include "glue/host/plugin_main.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <new>
#include <thread>

#include "glue/automatic/automatic_main.h"
#include "glue/host/color_rows.h"
#include "glue/host/host_access.h"
#include "glue/parameters/filter_parameters.h"
#include "glue/parameters/parameter_list.h"
#include "glue/run/removal_run.h"
#include "tests/glue/host/host_fixture.h"

namespace tessaline {
namespace {

using testhost::DescriptorTables;
using testhost::DescriptorValue;
using testhost::HandleTable;
using testhost::Style;

constexpr FilterParameters kDefaults = {60, 6, 8};
constexpr FilterParameters kSharp = {100, 4, 8};

// The colour planes of an area through the run itself, without any host: what every door must give.
Document Cleaned(const Document& source, int32_t colorPlanes, const host::VRect& area,
                 FilterParameters parameters) {
  const int32_t sampleBytes = source.depth / 8;
  const int32_t colorBytes = colorPlanes * sampleBytes;
  Document document = source;
  ResetBufferTable();
  OwnedBuffer buffer;
  EXPECT_EQ(kSuccess, buffer.Create("picture", WidthOf(area), HeightOf(area), colorBytes));
  const auto forEachPixel = [&](auto action) {
    for (int32_t y = area.top; y < area.bottom; ++y) {
      for (int32_t x = area.left; x < area.right; ++x) {
        action(const_cast<uint8_t*>(PixelAt(document, x, y)),
               BufferRow(buffer.slot(), y - area.top) + (x - area.left) * colorBytes);
      }
    }
  };
  forEachPixel([&](uint8_t* pixel, uint8_t* inside) { std::memcpy(inside, pixel, colorBytes); });
  EXPECT_EQ(kSuccess, RunRemoval(buffer.slot(), &parameters, nullptr, true, RunDoor{}));
  forEachPixel([&](uint8_t* pixel, uint8_t* inside) { std::memcpy(pixel, inside, colorBytes); });
  return document;
}

int LargestByteChange(const Document& a, const Document& b) {
  int largest = 0;
  for (size_t i = 0; i < a.pixels.size(); ++i) {
    largest = std::max(largest, std::abs(int{a.pixels[i]} - int{b.pixels[i]}));
  }
  return largest;
}

std::vector<DescriptorValue> RecordingOf(const FilterParameters& parameters) {
  return {{kKeyAcceptance, host::kDescriptorInteger, static_cast<int64_t>(parameters.acceptance), 0.0, {}},
          {kKeyNotchRadius, host::kDescriptorFloat, 0, parameters.notchRadius, {}},
          {kKeyProtectionRadius, host::kDescriptorFloat, 0, parameters.protectionRadius, {}}};
}

Switches Playing(const FilterParameters& parameters) {
  Switches switches;
  switches.hasRecording = true;
  switches.recording = RecordingOf(parameters);
  return switches;
}

class PluginMainTest : public HostTest {
 protected:
  bool PreferencesExist() const { return std::ifstream(PreferencesPath()).good(); }

  static void ExpectUnchanged(const Document& source, const Report& report) {
    EXPECT_FALSE(report.isOutputTouched);
    EXPECT_EQ(source.pixels, report.document.pixels);
    EXPECT_NO_COMPLAINTS(report);
  }
};

// ---------------------------------------------------------------------------------------------------
// selectors

TEST_F(PluginMainTest, SelectorsAnswerAlsoWithoutARecord) {
  host::FilterRecord record = {};
  const struct {
    int16_t selector;
    void* record;
    int16_t answer;  // a host comes with -77
  } calls[] = {{host::kSelectorAbout, nullptr, 0},
               {host::kSelectorParameters, nullptr, 0},
               {host::kSelectorPrepare, nullptr, 0},
               {host::kSelectorFinish, nullptr, 0},
               {host::kSelectorStart, nullptr, host::kParameterError},
               {host::kSelectorContinue, nullptr, host::kParameterError},
               {-1, &record, -77},
               {6, &record, -77}};
  for (const auto entry : {PluginMain, AutomaticMain}) {
    for (const auto& call : calls) {
      int16_t result = -77;
      EXPECT_EQ(call.answer, entry(call.selector, call.record, nullptr, &result)) << call.selector;
      EXPECT_EQ(call.answer, result);
    }
  }
  EXPECT_EQ(0, PluginMain(host::kSelectorAbout, nullptr, nullptr, nullptr));
}

// A host that gives less than was asked for, and one whose rectangles have 16 bits.
TEST(HostAccess, RowsShorterThanAskedAreNoneAndNarrowRectanglesAreClamped) {
  host::FilterRecord record = {};
  uint8_t memory[10];
  record.inData = record.outData = record.maskData = memory;
  for (const int32_t rowBytes : {9, 10, -10}) {
    record.inRowBytes = record.outRowBytes = record.maskRowBytes = rowBytes;
    const bool isEnough = rowBytes != 9;
    EXPECT_EQ(isEnough, InputRow(record, 10) != nullptr);
    EXPECT_EQ(isEnough, OutputRow(record, 10) != nullptr);
    EXPECT_EQ(isEnough, MaskRow(record, 10) != nullptr);
  }
  RequestInput(&record, {-40000, -5, 70000, 32768});
  EXPECT_EQ(
      (std::vector<int>{-32768, -5, 32767, 32767}),
      (std::vector<int>{record.inRect.top, record.inRect.left, record.inRect.bottom, record.inRect.right}));
  // Of a document that cannot be no mask is asked for, which would take hours.
  static int asked;
  asked = 0;
  host::BigDocumentStruct big = {};
  big.filterRect32 = {0, 0, INT32_MAX, 10};
  record.bigDocumentData = &big;
  record.haveMask = 1;
  record.advanceState = []() -> host::OSErr { return ++asked < 100 ? 0 : -1; };
  EXPECT_EQ(INT32_MAX, FindWorkRectangle(&record).bottom);
  EXPECT_EQ(0, asked);
}

// ------------------------------------------------------------------------------------------------- whole
// runs

struct Kind {
  const char* name;
  int16_t mode;
  int32_t depth, planes, colorPlanes;
};
constexpr Kind kCleanedKinds[] = {
    {"grey", host::kModeGray, 8, 1, 1},       {"grey alpha", host::kModeGray, 8, 2, 1},
    {"RGB", host::kModeRgb, 8, 3, 3},         {"RGBA", host::kModeRgb, 8, 4, 3},
    {"gray 16", host::kModeGray16, 16, 1, 1}, {"RGB 48 alpha", host::kModeRgb48, 16, 4, 3}};

// Fetched and copied back: also floats, 0..255 in between, and the inks of a press, which no run reads.
TEST_F(PluginMainTest, TheTransferGivesBackWhatItFetched) {
  static float largest;
  const host::EntryPoint transfer = [](int16_t selector, void* block, intptr_t*, int16_t* result) {
    auto* const record = static_cast<host::FilterRecord*>(block);
    *result = 0;
    if (selector == host::kSelectorContinue) RequestNothing(record);
    if (selector != host::kSelectorStart) return intptr_t{0};
    const host::VRect area = FindWorkRectangle(record);
    const PixelLayout layout = LayoutOf(*record);
    ResetBufferTable();
    *result = static_cast<int16_t>(FetchImage(record, area, layout));
    const auto* const row = reinterpret_cast<const float*>(BufferRow(imageInfo.mainBuffer, 0));
    if (layout.channelBytes == 4) largest = *std::max_element(row, row + WidthOf(area) * layout.colorPlanes);
    if (*result == 0) *result = static_cast<int16_t>(CopyBack(record, area, layout));
    return intptr_t{*result};
  };
  for (const Kind& kind :
       {Kind{"RGB 96 alpha", host::kModeRgb96, 32, 4, 3}, Kind{"gray 32", host::kModeGray32, 32, 1, 1},
        Kind{"CMYK spots", host::kModeCmyk, 8, 6, 4}, Kind{"CMYK 64", host::kModeCmyk64, 16, 4, 4}}) {
    SCOPED_TRACE(kind.name);
    const Document source = MakeDocument(kind.mode, kind.depth, kind.planes, 40, 7);
    const Report report = RunFilter(transfer, source, Switches{});
    EXPECT_EQ(0, report.result);
    EXPECT_NO_COMPLAINTS(report);
    Document expected = source;
    const auto asRows = [&]<typename Sample>(void (*fetch)(Sample*, int32_t),
                                             void (*copyBack)(Sample*, int32_t)) {
      for (int32_t i = 0; i < source.width * source.height; ++i) {
        auto* const inks = reinterpret_cast<Sample*>(expected.pixels.data()) + i * kind.planes;
        fetch(inks, 1);
        inks[3] = 0;
        copyBack(inks, 1);
      }
    };
    if (kind.mode == host::kModeCmyk) asRows(FetchCmykRow8, CopyBackCmykRow8);
    if (kind.mode == host::kModeCmyk64) asRows(FetchCmykRow16, CopyBackCmykRow16);
    for (size_t i = 0; kind.depth == 32 && i < expected.pixels.size() / 4; ++i) {
      float got = 0, wanted = 0;
      std::memcpy(&got, report.document.pixels.data() + 4 * i, 4);
      std::memcpy(&wanted, expected.pixels.data() + 4 * i, 4);
      ASSERT_NEAR(wanted, got, 1e-6) << i;
    }
    EXPECT_TRUE(kind.depth == 32 || expected.pixels == report.document.pixels);
    EXPECT_TRUE(kind.depth < 32 || (largest > 200 && largest <= 255)) << largest;
  }
}

// Documents with extra planes in an inner rectangle and 32-bit coordinates, the others whole and in 16 bits.
TEST_F(PluginMainTest, GivesThePixelsOfTheRunItself) {
  for (const Kind& kind : kCleanedKinds) {
    SCOPED_TRACE(kind.name);
    const bool hasExtraPlanes = kind.planes > kind.colorPlanes;
    const Document source = MakePatterned(kind.mode, kind.depth, kind.planes, 400, 300);
    Switches switches = Playing(kSharp);
    switches.offer32Bits = hasExtraPlanes;
    switches.hasFilterRectangle = true;
    switches.filterRectangle = hasExtraPlanes ? host::VRect{7, 11, 290, 379} : host::VRect{0, 0, 300, 400};
    switches.inputPadding = 5;
    switches.outputPadding = 16;
    switches.recordBytes = 512;
    const Document expected = Cleaned(source, kind.colorPlanes, switches.filterRectangle, kSharp);
    ASSERT_GT(LargestByteChange(source, expected), 10) << "nothing was cleaned, so this shows nothing";
    const Report report = RunFilter(PluginMain, source, switches);
    EXPECT_EQ(0, report.result);
    EXPECT_NO_COMPLAINTS(report);
    EXPECT_EQ(expected.pixels, report.document.pixels);
    EXPECT_GT(report.progressCalls, 0);
    EXPECT_GT(report.abortCalls, 0);
  }
  EXPECT_TRUE(messages.empty()) << Joined(messages);
}

TEST_F(PluginMainTest, LabReachesTheRunAsItIsAndLeavesItConverted) {
  const Document source = MakePatterned(host::kModeLab, 8, 3, 64, 64);
  Document expected = Cleaned(source, 3, {0, 0, 64, 64}, kSharp);
  CopyBackLabRow8(expected.pixels.data(), 64 * 64);
  EXPECT_EQ(expected.pixels, RunFilter(PluginMain, source, Playing(kSharp)).document.pixels);
}

TEST_F(PluginMainTest, EveryStyleOfHostAndEveryMissingTableGivesTheSamePicture) {
  const Document source = MakePatterned(host::kModeGray, 8, 1, 40, 30);
  const Document expected = Cleaned(source, 1, {0, 0, 30, 40}, kDefaults);
  std::vector<Switches> hosts(11);
  hosts[0].style = Style::kRefillOnChange;
  hosts[1].style = Style::kRefillOnChangeAndClip;
  hosts[2].about = true;
  hosts[3].parameters = false;
  hosts[4].otherTablesAreNull = true;
  hosts[5].callbacksAreNull = true;
  hosts[6].handles = HandleTable::kNull;
  hosts[7].handles = HandleTable::kSevenRoutines;
  hosts[8].descriptors = DescriptorTables::kRecordNull;
  hosts[9].descriptors = DescriptorTables::kTablesNull;
  hosts[10].recordBytes = 556;
  hosts[10].freshAddresses = false;
  for (size_t i = 0; i < hosts.size(); ++i) {
    SCOPED_TRACE(i);
    ClearSettings();
    const Report report = RunFilter(PluginMain, source, hosts[i]);
    EXPECT_EQ(0, report.result);
    EXPECT_NO_COMPLAINTS(report);
    EXPECT_EQ(expected.pixels, report.document.pixels);
    EXPECT_EQ(0, report.handlesLeft);
  }
}

TEST_F(PluginMainTest, SelectionIsCleanedInItsBoxAndBlendedByTheHost) {
  Document source = MakePatterned(host::kModeGray, 8, 2, 440, 340);
  source.mask.assign(440 * 340, 0);
  for (int32_t y = 10; y < 330; ++y) {
    for (int32_t x = 5; x < 435; ++x) source.mask[y * 440 + x] = y < 200 ? 255 : 128;
  }
  const Document cleaned = Cleaned(source, 1, {10, 5, 330, 435}, kSharp);
  Switches switches = Playing(kSharp);
  EXPECT_EQ(cleaned.pixels, RunFilter(PluginMain, source, switches).document.pixels);
  EXPECT_TRUE(fetchFlags.selectionPartial);

  switches.autoMask = true;
  const Report blended = RunFilter(PluginMain, source, switches);
  const auto differsFrom = [&](int32_t y, const Document& wanted) {
    return std::memcmp(PixelAt(wanted, 0, y), PixelAt(blended.document, 0, y), source.RowBytes()) != 0;
  };
  EXPECT_FALSE(differsFrom(100, cleaned));
  EXPECT_TRUE(differsFrom(250, cleaned) && differsFrom(250, source));
  EXPECT_FALSE(differsFrom(335, source));
}

// ------------------------------------------------------------------------------- pictures that no run can
// take

TEST_F(PluginMainTest, WidePicturesPassThroughBitForBitWithoutAMessage) {
  for (const auto& [mode, planes] :
       {std::pair{host::kModeGray, 1}, std::pair{host::kModeGray32, 2}, std::pair{host::kModeRgb96, 4}}) {
    Document source = MakeDocument(mode, 32, planes, 20, 10);
    const float special[] = {1e38f,
                             -0.0f,
                             std::numeric_limits<float>::denorm_min(),
                             -3.5f,
                             std::numeric_limits<float>::infinity(),
                             std::nanf("1")};
    std::memcpy(source.pixels.data(), special, sizeof special);
    const Report report = RunFilter(PluginMain, source, Switches{});
    EXPECT_EQ(0, report.result);
    ExpectUnchanged(source, report);
    EXPECT_TRUE(messages.empty());
  }
}

TEST_F(PluginMainTest, BitmapAndUnknownModesPassThroughWithTheirMessages) {
  const std::string badWidth = "_MainGlueProcess: info->channelbytes is wrong";
  const std::string badMode = "_MainGlueProcess: bad image mode";
  Document source = MakeDocument(host::kModeBitmap, 8, 1, 20, 10);
  Report report = RunFilter(PluginMain, source, Switches{});
  EXPECT_EQ(0, report.result);
  ExpectUnchanged(source, report);
  EXPECT_EQ(std::vector<std::string>{badWidth}, messages);

  for (const int16_t mode : {int16_t{18}, int16_t{-1}}) {
    messages.clear();
    source.mode = mode;
    report = RunFilter(PluginMain, source, Switches{});
    EXPECT_EQ(0, report.result);
    ExpectUnchanged(source, report);
    EXPECT_EQ((std::vector<std::string>{badMode, badWidth}), messages);
  }
}

TEST_F(PluginMainTest, PlanesThatNoRunTakesAreRefusedWithTheReason) {
  const Kind refused[] = {{"indexed", host::kModeIndexed, 8, 1, 1},
                          {"CMYK", host::kModeCmyk, 8, 4, 4},
                          {"HSL", host::kModeHsl, 8, 3, 3},
                          {"multichannel", host::kModeMultichannel, 8, 3, 3},
                          {"CMYK 64", host::kModeCmyk64, 16, 5, 4},
                          {"duotone 16", host::kModeDuotone16, 16, 1, 1},
                          {"RGB of one plane", host::kModeRgb, 8, 1, 3}};
  for (const Kind& kind : refused) {
    SCOPED_TRACE(kind.name);
    const Document source = MakeDocument(kind.mode, kind.depth, kind.planes, 20, 10);
    for (const bool hasErrorString : {true, false}) {
      Switches switches;
      switches.callbacksAreNull = !hasErrorString;
      const Report report = RunFilter(PluginMain, source, switches);
      EXPECT_EQ(hasErrorString ? host::kReportString : -36, report.result);
      ExpectUnchanged(source, report);
      EXPECT_EQ(hasErrorString, report.errorString.find("greyscale, RGB and Lab") != std::string::npos);
    }
  }
  EXPECT_TRUE(messages.empty());
  EXPECT_FALSE(PreferencesExist());
}

TEST_F(PluginMainTest, PicturesBeyondTheLimitAreRefusedBeforeTheyAreFetched) {
  for (const auto& [width, height] : {std::pair{7501, 2}, std::pair{2, 7501}}) {
    messages.clear();
    const Document source = MakeDocument(host::kModeGray, 8, 1, width, height);
    const Report report = RunFilter(PluginMain, source, Switches{});
    EXPECT_EQ(kUserCancelled, report.result);
    EXPECT_EQ(0, report.advances);
    ASSERT_EQ(1u, messages.size());
    EXPECT_NE(std::string::npos, messages[0].find("7500x7500"));
  }
}

// ------------------------------------------------------------------------------------------ parameters,
// dialog

TEST_F(PluginMainTest, PlayedValuesAreUsedAndRecordedAgain) {
  const Document source = MakePatterned(host::kModeGray, 8, 1, 40, 30);
  const Report report = RunFilter(PluginMain, source, Playing(kSharp));
  EXPECT_EQ(RecordingOf(kSharp), report.recorded);
  EXPECT_EQ(host::kDialogOptional, report.recordInfo);
  EXPECT_TRUE(PreferencesExist());
  EXPECT_EQ(6.0f, imageInfo.settings.unusedSetting);
  // Values from scripting are those of this run alone.
  EXPECT_EQ(0.0f, imageInfo.settings.acceptance);
}

int g_window;  // stands for one: only its address counts

int32_t AcceptValues(void* ownerWindow, int32_t sourceSlot, FilterParameters* parameters) {
  EXPECT_EQ(&g_window, ownerWindow);
  EXPECT_EQ(imageInfo.mainBuffer, sourceSlot);
  EXPECT_EQ(60.0f, parameters->acceptance);
  parameters->acceptance = 90.75f;
  parameters->notchRadius = 3.5f;
  parameters->protectionRadius = 20.0f;
  return 0;
}

TEST_F(PluginMainTest, DialogsChoiceIsRecordedKeptAndUsedByTheNextRun) {
  const Document source = MakePatterned(host::kModeGray, 8, 1, 40, 30);
  SetDialogOpener(AcceptValues);
  Switches switches;
  switches.playInfo = host::kDialogDisplay;
  switches.window = &g_window;
  const Report first = RunFilter(PluginMain, source, switches);
  EXPECT_EQ(0, first.result);
  EXPECT_EQ(RecordingOf({90, 3.5f, 20}), first.recorded);
  EXPECT_EQ(90.75f, imageInfo.settings.acceptance);
  const Report second = RunFilter(PluginMain, source, Switches{});  // suppressed
  EXPECT_EQ(RecordingOf({90, 3.5f, 20}), second.recorded);

  // What is kept is the file: a run starts from the values in memory, and then has those of the file.
  std::remove(PreferencesPath().c_str());
  EXPECT_EQ(RecordingOf({90, 3.5f, 20}), RunFilter(PluginMain, source, Switches{}).recorded);
  EXPECT_EQ(RecordingOf(kDefaults), RunFilter(PluginMain, source, Switches{}).recorded);
}

// The third row of the copy back fails; the failure is the result, and the user's values are kept all the
// same.
TEST_F(PluginMainTest, AFailedCopyBackKeepsTheDialogsValues) {
  const Document source = MakePatterned(host::kModeGray, 8, 1, 40, 30);
  SetDialogOpener(AcceptValues);
  Switches switches;
  switches.playInfo = host::kDialogDisplay;
  switches.window = &g_window;
  switches.failAdvanceAt = 33;
  const Report report = RunFilter(PluginMain, source, switches);
  EXPECT_EQ(-108, report.result);
  EXPECT_EQ(source.pixels, report.document.pixels);
  EXPECT_EQ(90.75f, imageInfo.settings.acceptance);
  EXPECT_TRUE(PreferencesExist());
}

// A start out of the open dialog or from another thread, while a run is at work.
int32_t StartASecondRun(void*, int32_t sourceSlot, FilterParameters*) {
  const auto start = [] {
    host::Str255 text = {};
    host::FilterRecord record = {};
    int16_t result = 0;
    EXPECT_EQ(kUserCancelled, PluginMain(host::kSelectorStart, &record, nullptr, &result));
    record.errorString = &text;
    EXPECT_EQ(host::kReportString, PluginMain(host::kSelectorStart, &record, nullptr, &result));
    EXPECT_EQ(host::kReportString, result);
    EXPECT_NE(std::string::npos, std::string(text.text, text.length).find("still at work"));
    EXPECT_EQ(0, PluginMain(host::kSelectorAbout, nullptr, nullptr, &result));
  };
  const HostCall callBefore = hostCall;
  start();
  std::thread(start).join();
  EXPECT_EQ(callBefore.parameterBlock, hostCall.parameterBlock);
  EXPECT_NE(0, ShapeOf(sourceSlot).width);
  return 0;
}

TEST_F(PluginMainTest, SecondStartsAreRefusedAndExceptionsEndInACode) {
  const Document source = MakePatterned(host::kModeGray, 8, 1, 40, 30);
  Switches switches;
  switches.playInfo = host::kDialogDisplay;
  SetDialogOpener([](void*, int32_t, FilterParameters*) -> int32_t { throw std::bad_alloc(); });
  const Report thrown = RunFilter(PluginMain, source, switches);
  EXPECT_EQ(kOutOfMemory, thrown.result);
  ExpectUnchanged(source, thrown);
  EXPECT_TRUE(AllSlotsAreEmpty());

  SetDialogOpener(StartASecondRun);
  const Report report = RunFilter(PluginMain, source, switches);
  EXPECT_EQ(0, report.result);
  EXPECT_NO_COMPLAINTS(report);
  EXPECT_EQ(Cleaned(source, 1, {0, 0, 30, 40}, kDefaults).pixels, report.document.pixels);
}

int32_t CancelAlways(void*, int32_t, FilterParameters* parameters) {
  parameters->acceptance = 1.0f;
  return 1;
}

TEST_F(PluginMainTest, CancelledDialogLeavesPictureAndPreferencesAsTheyWere) {
  std::ofstream(PreferencesPath()) << "as it was";
  const Document source = MakePatterned(host::kModeRgb, 8, 3, 40, 30);
  SetDialogOpener(CancelAlways);
  Switches switches;
  switches.playInfo = host::kDialogDisplay;
  const Report report = RunFilter(PluginMain, source, switches);
  EXPECT_EQ(kUserCancelled, report.result);
  ExpectUnchanged(source, report);
  EXPECT_FALSE(report.wasRecorded);
  std::string preferences;
  std::getline(std::ifstream(PreferencesPath()), preferences);
  EXPECT_EQ("as it was", preferences);
}

TEST_F(PluginMainTest, RectanglesLeftByAnEarlierRunStoreNothing) {
  const Document source = MakePatterned(host::kModeRgb, 8, 3, 40, 30);
  for (const bool isWide : {false, true}) {
    Switches switches;
    switches.hasStaleRectangles = true;
    switches.offer32Bits = isWide;
    switches.abortAtCall = 1;
    for (const auto entry : {PluginMain, AutomaticMain}) {
      ExpectUnchanged(source, RunFilter(entry, source, switches));
    }
  }
}

// -------------------------------------------------------------------------------------------------- failures

TEST_F(PluginMainTest, StopsAndHostsWithoutAdvanceEndTheRunWithNothingWritten) {
  const Document source = MakePatterned(host::kModeRgb, 8, 3, 40, 30);
  for (const int32_t at : {1, 5, 0}) {
    Switches switches;
    if (at > 0) switches.abortAtCall = at;
    switches.advanceIsNull = at == 0;
    const Report report = RunFilter(PluginMain, source, switches);
    EXPECT_EQ(at > 0 ? int32_t{kUserCancelled} : int32_t{host::kHostIsInsufficient}, report.result);
    ExpectUnchanged(source, report);
  }
  EXPECT_FALSE(PreferencesExist());
}

TEST_F(PluginMainTest, FailureOfAnyHostCallLosesNothing) {
  Document source = MakePatterned(host::kModeGray, 8, 2, 20, 2);
  source.mask.assign(20 * 2, 200);
  Switches switches = Playing(kSharp);
  const Report undisturbed = RunFilter(PluginMain, source, switches);
  ASSERT_EQ(0, undisturbed.result);
  ASSERT_GT(undisturbed.failableCalls, 3 * 2 + 1 + 10);
  int32_t failures = 0;
  for (int32_t at = 1; at <= undisturbed.failableCalls; ++at) {
    SCOPED_TRACE(at);
    switches.failCallAt = at;
    const Report report = RunFilter(PluginMain, source, switches);
    EXPECT_NO_COMPLAINTS(report);
    EXPECT_TRUE(AllSlotsAreEmpty());
    EXPECT_EQ(0, report.handlesLeft);
    if (report.result != 0) {
      EXPECT_EQ(switches.failCode, report.result);
      EXPECT_EQ(source.pixels, report.document.pixels);
      ++failures;
    }
  }
  EXPECT_EQ(2 * 2, failures);  // every row of the fetch and of the copy back
}

TEST_F(PluginMainTest, NullPointersAtAnyAdvanceLoseNothing) {
  Document source = MakePatterned(host::kModeGray, 8, 2, 20, 3);
  source.mask.assign(20 * 3, 200);
  const int32_t advances = RunFilter(PluginMain, source, Switches{}).advances;
  for (int32_t at = 1; at <= advances; ++at) {
    Switches switches;
    switches.deliverNothingAt = at;
    const Report report = RunFilter(PluginMain, source, switches);
    EXPECT_NO_COMPLAINTS(report);
    EXPECT_TRUE(report.result == 0 || report.result == host::kHostIsInsufficient);
    EXPECT_TRUE(AllSlotsAreEmpty());
  }
}

// A mask and alpha, a conversion on the way out, and values that are played: untouched with kOutOfMemory, or
// finished.
TEST_F(PluginMainTest, MemoryRunningOutAnywhereLosesNothing) {
  Document masked = MakePatterned(host::kModeGray, 8, 2, 400, 300);
  masked.mask.assign(400 * 300, 200);
  for (const Document& source : {masked, MakePatterned(host::kModeLab48, 16, 4, 20, 3)}) {
    const Switches switches = Playing(kSharp);
    const Report finished = RunFilter(PluginMain, source, switches);
    ASSERT_NE(source.pixels, finished.document.pixels);
    for (FailingAllocations failing; failing.Next();) {
      const Report report = failing.During([&] { return RunFilter(PluginMain, source, switches); });
      ASSERT_TRUE(report.result == kSuccess || (failing.hasFailed() && report.result == kOutOfMemory));
      const bool isFinished = report.result == kSuccess;
      ASSERT_EQ(isFinished ? finished.document.pixels : source.pixels, report.document.pixels);
      EXPECT_EQ(isFinished, report.isOutputTouched);
      // What was played is the host's until it has been read.
      EXPECT_TRUE(report.wasRecorded ? report.recorded == switches.recording : !isFinished);
      EXPECT_NO_COMPLAINTS(report);
      EXPECT_EQ(0, report.handlesLeft);
      EXPECT_TRUE(AllSlotsAreEmpty());
      EXPECT_EQ(static_cast<uintmax_t>(kPreferencesFileBytes), std::filesystem::file_size(PreferencesPath()));
    }
  }
  EXPECT_TRUE(messages.empty()) << Joined(messages);
}

}  // namespace
}  // namespace tessaline
