#include "glue/automatic/automatic_main.h"

#include <fstream>

#include "glue/parameters/parameter_list.h"
#include "removal/steps.h"
#include "restoration/decision.h"
#include "restoration/restoration.h"
#include "tests/glue/host/host_fixture.h"

namespace tessaline {
namespace {

constexpr int32_t kWidth = 400, kHeight = 300;

class AutomaticMainTest : public HostTest {
 protected:
  ~AutomaticMainTest() override {
    EXPECT_FALSE(std::ifstream(PreferencesPath()).good()) << "they are the other filter's";
  }

  static Report Run(const Document& source, const Switches& switches) {
    Report report = RunFilter(AutomaticMain, source, switches);
    EXPECT_NO_COMPLAINTS(report);
    EXPECT_EQ(0, report.handlesLeft);
    EXPECT_TRUE(AllSlotsAreEmpty());
    if (report.result != 0) {
      EXPECT_EQ(source.pixels, report.document.pixels);
      EXPECT_FALSE(report.wasRecorded);
    }
    return report;
  }
};

// What `tessaline -a auto` makes of an area's colour planes: the steps, where the samples lie.
Document Cleaned(const Document& source, int32_t colorPlanes, const host::VRect& area,
                 RestorationSettings restoration) {
  Document document = source;
  const auto format = source.depth == 8 ? SampleFormat::kByte : SampleFormat::kHost16;
  PictureView picture = {WidthOf(area), HeightOf(area), format, colorPlanes};
  for (int32_t c = 0; c < colorPlanes; ++c) {
    picture.channel[c] = {const_cast<uint8_t*>(PixelAt(document, area.left, area.top)) + c * source.depth / 8,
                          source.PixelBytes(), static_cast<ptrdiff_t>(source.RowBytes())};
  }
  Settings settings;
  settings.isAutomatic = true;
  Workspace workspace;
  Analysis analysis;
  Findings findings;
  Mask mask;
  EXPECT_EQ(0, Analyse(picture, workspace, {}, &analysis));
  EXPECT_EQ(
      0, DecideWhole(picture, analysis, settings, workspace, &findings) + Shape(findings, settings, &mask));
  EXPECT_EQ(0, Restore(picture, picture, findings, mask, workspace, {{}, analysis.chain}, restoration, {}));
  EXPECT_NE(source.pixels, document.pixels) << "nothing was cleaned, so this shows nothing";
  return document;
}

// Documents with extra planes in an inner rectangle and 32-bit coordinates, the others with a selection; Lab
// without the conversion that the other filter ends with.
TEST_F(AutomaticMainTest, GivesThePixelsOfTheFourSteps) {
  constexpr auto kRgb = ChannelMeaning::kRgb, kLab = ChannelMeaning::kOpponents;
  const struct {
    int16_t mode;
    int32_t depth, planes, colorPlanes;
    ChannelMeaning meaning;
  } kinds[] = {{host::kModeGray, 8, 2, 1, kRgb},   {host::kModeRgb, 8, 3, 3, kRgb},
               {host::kModeLab, 8, 3, 3, kLab},    {host::kModeGray16, 16, 1, 1, kRgb},
               {host::kModeRgb48, 16, 4, 3, kRgb}, {host::kModeLab48, 16, 3, 3, kLab}};
  for (const auto& kind : kinds) {
    SCOPED_TRACE(kind.mode * 10 + kind.planes);
    Document source = MakePatterned(kind.mode, kind.depth, kind.planes, kWidth, kHeight);
    const host::VRect area = {7, 11, 290, 389};
    Switches switches;
    switches.inputPadding = 5;
    switches.outputPadding = 16;
    switches.recordBytes = 512;
    if (kind.planes > kind.colorPlanes) {
      switches.offer32Bits = switches.hasFilterRectangle = true;
      switches.filterRectangle = area;
    } else {
      source.mask.assign(kWidth * kHeight, 0);
      for (int32_t y = area.top; y < area.bottom; ++y) {
        std::fill_n(source.mask.begin() + y * kWidth + area.left, area.right - area.left, 255 - y % 9);
      }
    }
    RestorationSettings restoration;
    restoration.meaning = kind.meaning;
    const Report report = Run(source, switches);
    EXPECT_EQ(Cleaned(source, kind.colorPlanes, area, restoration).pixels, report.document.pixels);
    EXPECT_GT(report.progressCalls, 10);
  }
  EXPECT_TRUE(messages.empty()) << Joined(messages);
}

TEST_F(AutomaticMainTest, WhatIsNotCleanedIsToldOnce) {
  Document unselected = MakePatterned(host::kModeGray, 8, 1, 40, 30);
  unselected.mask.assign(40 * 30, 127);
  const struct {
    Document document;
    const char* told;
    bool isSilentInBatches;
  } cases[] = {{MakeDocument(host::kModeRgb, 8, 4, kWidth, kHeight), "found no repeating pattern", true},
               {unselected, "no pixel is selected", true},
               {MakeDocument(host::kModeCmyk, 8, 4, 20, 10), "greyscale, RGB and Lab", false},
               {MakeDocument(host::kModeRgb96, 32, 3, 20, 10), "8 or 16 bits", false},
               {MakeDocument(host::kModeRgb, 16, 3, 20, 10), "8 or 16 bits", false},
               {MakeDocument(18, 8, 3, 20, 10), "greyscale, RGB and Lab", false},
               {MakeDocument(host::kModeGray, 8, 1, 1, 1000001), "1,000,000 pixels a side", false}};
  for (const auto& [document, told, isSilentInBatches] : cases) {
    SCOPED_TRACE(told);
    Switches switches;
    switches.offer32Bits = true;
    Report report = Run(document, switches);
    EXPECT_EQ(host::kReportString, report.result);
    EXPECT_NE(std::string::npos, report.errorString.find(told)) << report.errorString;
    EXPECT_TRUE(messages.empty());

    switches.callbacksAreNull = true;
    EXPECT_EQ(kUserCancelled, Run(document, switches).result);
    ASSERT_EQ(1u, messages.size());
    EXPECT_NE(std::string::npos, messages[0].find(told)) << messages[0];
    messages.clear();

    switches.callbacksAreNull = false;
    switches.playInfo = host::kDialogSilent;
    report = Run(document, switches);
    EXPECT_EQ(isSilentInBatches ? 0 : int32_t{host::kReportString}, report.result);
    EXPECT_EQ(isSilentInBatches, report.wasRecorded && report.errorString.empty());
    EXPECT_EQ(document.pixels, report.document.pixels);
  }
}

// First; "last filter" (no parameters call); an action with values of another filter; hosts that cannot
// record.
TEST_F(AutomaticMainTest, RecordsAnEmptyStepAndPlaysItWithoutAWindow) {
  const Document source = MakePatterned(host::kModeGray, 8, 1, kWidth, kHeight);
  std::vector<Switches> hosts(5);
  hosts[1].hasRecording = hosts[2].hasRecording = true;
  hosts[1].parameters = false;
  hosts[2].recording = {{kKeyAcceptance, host::kDescriptorInteger, 0, 0.0, {}}};
  hosts[2].playInfo = host::kDialogDisplay;
  hosts[3].descriptors = testhost::DescriptorTables::kTablesNull;
  hosts[4].descriptors = testhost::DescriptorTables::kRecordNull;
  const std::vector<uint8_t> cleaned = Cleaned(source, 1, {0, 0, kHeight, kWidth}, {}).pixels;
  for (size_t i = 0; i < hosts.size(); ++i) {
    SCOPED_TRACE(i);
    const Report report = Run(source, hosts[i]);
    EXPECT_EQ(cleaned, report.document.pixels);
    EXPECT_EQ(i < 3, report.wasRecorded);
    EXPECT_TRUE(report.recorded.empty());
    EXPECT_TRUE(i >= 3 || report.recordInfo == host::kDialogNone);
  }
}

// Whatever happens, and whenever: the picture is as it was, or done. Run looks at the picture of every
// failure.
TEST_F(AutomaticMainTest, StopsFailuresAndTheEndOfMemoryLeaveThePictureUntouched) {
  constexpr int32_t kRows = 150;
  Document source = MakePatterned(host::kModeGray, 8, 2, 200, kRows);
  source.mask.assign(200 * kRows, 200);
  const Report whole = Run(source, Switches{});
  ASSERT_NE(source.pixels, whole.document.pixels);
  for (int32_t at = whole.abortCalls; at > 0; at -= 1 + whole.abortCalls / 8) {
    Switches switches;
    switches.abortAtCall = at;
    const Report report = Run(source, switches);
    EXPECT_EQ(kUserCancelled, report.result) << at;
    EXPECT_FALSE(report.isOutputTouched);
  }
  for (const int32_t row : {1, kRows, kRows + 1, 2 * kRows}) {  // of the fetch and of the copy back
    Switches fails, deliversNothing;
    fails.failAdvanceAt = deliversNothing.deliverNothingAt = kRows + row;
    EXPECT_EQ(fails.failCode, Run(source, fails).result);
    EXPECT_EQ(host::kHostIsInsufficient, Run(source, deliversNothing).result);
  }
  for (FailingAllocations failing; failing.Next();) {
    const Report report = failing.During([&] { return Run(source, Switches{}); });
    EXPECT_EQ(failing.hasFailed() ? kOutOfMemory : kSuccess, report.result);
    EXPECT_EQ(failing.hasFailed() ? source.pixels : whole.document.pixels, report.document.pixels);
    EXPECT_EQ(failing.hasFailed(), !report.isOutputTouched);
  }
}

TEST_F(AutomaticMainTest, LargerThanOneTransformIsCleanedInTiles) {
  const Document source = MakePatterned(host::kModeGray, 8, 1, kLargestSide + 100, 520);
  const Report report = Run(source, Switches{});
  for (const int32_t x : {50, kLargestSide / 2, kLargestSide}) {
    EXPECT_NE(0, std::memcmp(PixelAt(source, x, 260), PixelAt(report.document, x, 260), 50)) << x;
  }
}

}  // namespace
}  // namespace tessaline
