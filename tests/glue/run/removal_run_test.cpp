#include "glue/run/removal_run.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "buffers/buffer_table.h"
#include "glue/parameters/settings_record.h"
#include "image/pixel_kind.h"
#include "image/result_codes.h"
#include "platform/memory.h"
#include "platform/message.h"
#include "removal/padding_fill.h"
#include "tests/support/failing_allocations.h"

namespace tessaline {
namespace {

std::string g_message, g_title;

class RemovalRunTest : public testing::Test {
 protected:
  void SetUp() override {
    ResetBufferTable();
    ClearSettings();
    g_message = g_title = "";
    SetMessageHandler([](const char* text, const char* title) {
      g_message = text;
      g_title = title;
    });
  }
  void TearDown() override {
    ClearAllocationFailure();
    SetMessageHandler(nullptr);
    ReleaseBuffer(slot_);
    EXPECT_EQ(0, liveBufferCount) << "a run left buffers behind";
  }

  // A gradient with a strong grid and a little noise on it; two bytes a sample are read as a wide one.
  void MakePatternedImage(int width, int height, int bytesPerPixel) {
    ASSERT_EQ(kSuccess, CreateBuffer("main", width, height, bytesPerPixel, &slot_));
    const bool isWide = bytesPerPixel == 2 || bytesPerPixel == 6;
    for (int y = 0; y < height; ++y) {
      uint8_t* const row = BufferRow(slot_, y);
      for (int x = 0; x < width; ++x) {
        for (int i = 0; i < bytesPerPixel; ++i) {
          const int at = x * bytesPerPixel + i;
          if (!isWide) row[at] = Level(x, y);
          if (isWide && i % 2 == 0)
            reinterpret_cast<uint16_t*>(row)[at / 2] = static_cast<uint16_t>(Level(x, y) * 128);
        }
      }
    }
    original_ = Pixels();
  }
  // Noise keeps the darkest cell of the spectrum from lying so low that no peak reaches half of the range.
  static uint8_t Level(int x, int y) {
    const int noise = (x * 7919 ^ y * 104729) % 97 * 31 % 15 - 7;
    return static_cast<uint8_t>(100 + (x + y) / 32.0 + noise + 50 * std::cos(x * 1.2) * std::cos(y * 1.3));
  }
  std::vector<uint8_t> Pixels() const {
    const BufferShape shape = ShapeOf(slot_);
    const uint8_t* const data = BufferRow(slot_, 0);
    return {data, data + shape.width * shape.height * shape.bytesPerPixel};
  }
  int32_t Run(const RunDoor& context = {}, bool suppressDialog = true, ParameterList* list = nullptr) {
    return RunRemoval(slot_, &parameters_, list, suppressDialog, context);
  }

  int32_t slot_ = 0;
  std::vector<uint8_t> original_;
  FilterParameters parameters_{100, 6, 8};
};

TEST_F(RemovalRunTest, TransformSizeFollowsTheLongerSide) {
  const int32_t expected[][2] = {{1, 1024},    {774, 1024},  {775, 2048},  {1748, 2048},  {1749, 4096},
                                 {3700, 4096}, {3701, 8192}, {7500, 8192}, {7593, 16384}, {15585, 32768}};
  for (const auto& [side, transformSize] : expected) EXPECT_EQ(transformSize, TransformSizeFor(side)) << side;
}

TEST_F(RemovalRunTest, ProgressTellsTheStepsOfBothPasses) {
  struct Progress {
    std::vector<std::pair<int32_t, int32_t>> calls;
  } progress;
  RunDoor context;
  context.user = context.progress.user = &progress;
  context.progress.progressEnabled = true;
  context.progress.progress = [](void* user, int32_t done, int32_t total) {
    static_cast<Progress*>(user)->calls.emplace_back(total, done);
  };
  MakePatternedImage(400, 300, 3);
  ASSERT_EQ(kSuccess, Run(context));
  // Steps 0..3 of 6, then 8..14 of 16: a sixth of the bar is there from the start, and a step is four of its
  // 600th.
  std::vector<std::pair<int32_t, int32_t>> steps;
  EXPECT_TRUE(std::is_sorted(progress.calls.begin(), progress.calls.end()));
  for (const auto& [total, done] : progress.calls) {
    const std::pair<int32_t, int32_t> step = {total / 600, (done - total / 6) / 400};
    if (steps.empty() || steps.back() != step) steps.push_back(step);
  }
  EXPECT_EQ((std::vector<std::pair<int32_t, int32_t>>{
                {6, 0}, {6, 1}, {6, 2}, {16, 8}, {16, 9}, {16, 10}, {16, 11}, {16, 12}, {16, 13}}),
            steps);
}

TEST_F(RemovalRunTest, WhereNothingIsFoundEverySampleStays) {
  MakePatternedImage(120, 90, 3);
  parameters_.acceptance = 0;
  ASSERT_EQ(kSuccess, Run());
  EXPECT_EQ(original_, Pixels());
}

TEST_F(RemovalRunTest, LargerThan7500IsRefusedWithItsMessage) {
  for (const auto& [width, height] : {std::pair{7501, 1}, {1, 7501}}) {
    ASSERT_EQ(kSuccess, CreateBuffer("main", width, height, 1, &slot_));
    EXPECT_EQ(kUserCancelled, Run());
    EXPECT_EQ("Ombrant Vistrel", g_title);
    EXPECT_EQ(
        "Tessaline is limited to 7500x7500 pixels\n for the image or selection.\n Try using either a smaller "
        "image or "
        "a selection.",
        g_message);
    ReleaseBuffer(slot_);
  }
}

TEST_F(RemovalRunTest, UnsupportedKindsAreRefusedUntouched) {
  for (const int bytesPerPixel : {4, 5, 8, 12}) {
    MakePatternedImage(40, 30, bytesPerPixel);
    EXPECT_EQ(kUnknownPixelKind, Run());
    EXPECT_EQ(original_, Pixels());
    ReleaseBuffer(slot_);
  }
  slot_ = 0;
  EXPECT_EQ(kUnknownPixelKind, Run());
}

TEST_F(RemovalRunTest, SmallestAndBlackImagesPass) {
  for (const auto& [width, height] : {std::pair{1, 1}, {1, 700}, {500, 2}}) {
    ASSERT_EQ(kSuccess, CreateBuffer("main", width, height, 6, &slot_));
    EXPECT_EQ(kSuccess, Run());
    EXPECT_EQ(std::vector<uint8_t>(static_cast<size_t>(width * height * 6)), Pixels());
    ReleaseBuffer(slot_);
  }
}

TEST_F(RemovalRunTest, CancelInTheSecondPassIsNotTakenAndNobodyIsCalledOnceProgressIsSwitchedOff) {
  struct Progress {
    RunDoor context;
    int reports = 0, checks = 0;  // of the second pass
    bool inSecondPass = false;
  } progress;
  RunDoor& context = progress.context;
  context.user = context.progress.user = &progress;
  context.progress.progressEnabled = true;
  context.progress.progress = [](void* user, int32_t, int32_t total) {
    auto* const p = static_cast<Progress*>(user);
    p->inSecondPass = total == 600 * 16;
    p->reports += p->inSecondPass;
  };
  context.progress.abortCheck = [](void* user) {
    auto* const p = static_cast<Progress*>(user);
    p->checks += p->inSecondPass;
    p->context.progress.progressEnabled = p->checks < 3;
    return p->inSecondPass;
  };
  MakePatternedImage(400, 300, 1);
  ASSERT_EQ(kSuccess, Run());
  const std::vector<uint8_t> expected = Pixels();
  ReleaseBuffer(slot_);
  MakePatternedImage(400, 300, 1);
  EXPECT_NE(original_, expected);
  EXPECT_EQ(kSuccess, Run(context));
  EXPECT_EQ(3, progress.reports);
  EXPECT_EQ(3, progress.checks);
  EXPECT_EQ(expected, Pixels());
}

TEST_F(RemovalRunTest, TheDialogsValuesAreUsedAndStoredOnlyAfterOk) {
  RunDoor context;
  int32_t answer = 2;
  context.user = &answer;
  context.openDialog = [](void* user, int32_t, FilterParameters* parameters) {
    EXPECT_EQ(512, ShapeOf(parameters->gray16Slot).width);
    EXPECT_EQ(1, ShapeOf(parameters->gray8Slot).bytesPerPixel);
    int32_t raw = 0, enhanced = 0;  // the display copy is of the spectrum before its peaks are enhanced
    for (int32_t y = 0; y < 512; ++y) {
      const uint8_t* const display = BufferRow(parameters->gray8Slot, y);
      raw += static_cast<int32_t>(std::count(display, display + 512, 0));
      const auto* const row = reinterpret_cast<const uint16_t*>(BufferRow(parameters->gray16Slot, y));
      enhanced += static_cast<int32_t>(std::count(row, row + 512, 0));
    }
    EXPECT_TRUE(raw < 100 && enhanced > 100000) << raw << " " << enhanced;
    *parameters = {37.9f, 2.5f, 16.0f};
    return *static_cast<int32_t*>(user);
  };
  ParameterList* const list = MakeParameterList();
  MakePatternedImage(60, 40, 1);
  EXPECT_EQ(kUserCancelled, Run(context, false, list));
  EXPECT_EQ(original_, Pixels());
  EXPECT_EQ(0u, FindEntry(list, kKeyAcceptance)->valueBits);
  EXPECT_EQ(0.0f, imageInfo.settings.acceptance);

  answer = 0;
  EXPECT_EQ(kSuccess, Run(context, true, list));  // suppressed
  EXPECT_EQ(0.0f, imageInfo.settings.acceptance);

  EXPECT_EQ(kSuccess, Run(context, false, list));
  EXPECT_EQ(37u, FindEntry(list, kKeyAcceptance)->valueBits);
  EXPECT_EQ(37.9f, imageInfo.settings.acceptance);
  EXPECT_EQ(16.0f, imageInfo.settings.protectionRadius);
  FreeParameterList(list);
}

TEST_F(RemovalRunTest, SenselessValuesNeverReachTheMask) {
  MakePatternedImage(60, 40, 1);
  RunDoor context;
  context.openDialog = [](void*, int32_t, FilterParameters* parameters) {
    EXPECT_EQ(6.0f, parameters->notchRadius);
    *parameters = {1e30f, -1e30f, std::nanf("")};
    return 0;
  };
  const auto expectValues = [&](float acceptance, float notchRadius, float protectionRadius) {
    EXPECT_EQ(acceptance, parameters_.acceptance);
    EXPECT_EQ(notchRadius, parameters_.notchRadius);
    EXPECT_EQ(protectionRadius, parameters_.protectionRadius);
  };
  parameters_ = {std::nanf(""), std::nanf(""), INFINITY};
  EXPECT_EQ(kSuccess, Run());
  expectValues(60, 6, 128);
  EXPECT_EQ(kSuccess, Run(context, false));
  expectValues(100, 1, 8);
}

TEST_F(RemovalRunTest, WithoutMemoryTheSourceStaysAsItWas) {
  RunDoor context;  // behind a dialog all memory is taken anew
  context.openDialog = [](void*, int32_t, FilterParameters*) { return 0; };
  for (const int32_t kind : {kGray8, kGray16, kRgb8, kRgb16}) {
    MakePatternedImage(400, 300, kind);
    ASSERT_EQ(kSuccess, Run(context, false));
    const std::vector<uint8_t> finished = Pixels();
    ASSERT_NE(original_, finished);
    for (FailingAllocations failing; failing.Next();) {
      ReleaseBuffer(slot_);
      MakePatternedImage(400, 300, kind);
      BufferTable[slot_].dirty = 0;
      const int32_t result = failing.During([&] { return Run(context, false); });
      ASSERT_EQ(failing.hasFailed() ? kOutOfMemory : kSuccess, result);
      ASSERT_EQ(result == kSuccess ? finished : original_, Pixels());
      EXPECT_EQ(result == kSuccess, BufferTable[slot_].dirty == 1);
    }
    ReleaseBuffer(slot_);
  }
}

}  // namespace
}  // namespace tessaline
