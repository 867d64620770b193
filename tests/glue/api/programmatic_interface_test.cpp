#include "glue/api/programmatic_interface.h"

#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <new>
#include <numeric>
#include <thread>

#include "glue/parameters/filter_parameters.h"
#include "image/result_codes.h"
#include "tests/glue/api/interface_fixture.h"
#include "tests/glue/api/screened_picture.h"

namespace tessaline {
namespace {

// What a run saw when it began.
struct Observed {
  std::vector<uint16_t> firstRow, lastRow;
};

class ProgrammaticInterfaceTest : public InterfaceTest {
 protected:
  static constexpr int32_t kSide = kScreenedSide;

  // The picture with the same samples in every channel, `scale` levels to an 8-bit level.
  template <typename Sample>
  static std::vector<Sample> Screen(size_t channels, float scale) {
    std::vector<Sample> samples;
    for (const uint8_t level : ScreenedPicture()) {
      samples.insert(samples.end(), channels, static_cast<Sample>(static_cast<float>(level) * scale));
    }
    return samples;
  }
  // The same picture through the run itself.
  template <typename Sample>
  static std::vector<Sample> RunDirectly(std::vector<Sample> samples, int32_t bytesPerPixel) {
    int32_t slot = 0;
    EXPECT_EQ(kSuccess, BindBuffer(samples.data(), kSide, kSide, bytesPerPixel, &slot));
    FilterParameters parameters{};
    parameters.acceptance = 98;
    parameters.notchRadius = 5.5f;
    parameters.protectionRadius = 16;
    EXPECT_EQ(kSuccess, RunRemoval(slot, &parameters, nullptr, true, {}));
    UnbindBuffer(slot);
    return samples;
  }
  template <typename Sample>
  void ExpectSamePixelsAsTheRun(int32_t kind, std::vector<Sample> samples) {
    SetText("<long>epsT,98\r\n<doub>NoRd,5.5\r\n<doub>LFct,16\r\n");
    const std::vector<Sample> original = samples;
    const std::vector<Sample> expected = RunDirectly(samples, std::abs(kind));
    EXPECT_EQ(0, Process(kSide, kSide, kind, samples.data()));
    EXPECT_TRUE(expected == samples);
    int64_t difference = 0;
    for (size_t i = 0; i < samples.size(); ++i) difference += std::abs(int{original[i]} - int{samples[i]});
    EXPECT_GT(difference, static_cast<int64_t>(samples.size()) * 5) << "nothing was removed";
  }

  Observed* Observe() {
    static Observed observed;
    observed = {};
    RunDoor context;
    context.progress.progressEnabled = true;
    context.progress.user = &observed;
    context.progress.progress = [](void* user, int32_t, int32_t) {
      auto* const seen = static_cast<Observed*>(user);
      if (!seen->firstRow.empty()) return;
      const int32_t slot = imageInfo.mainBuffer;
      const BufferShape shape = ShapeOf(slot);
      const auto row = [&](int32_t y) {
        const auto* const bytes = BufferRow(slot, y);
        std::vector<uint16_t> samples(static_cast<size_t>(shape.width) * shape.bytesPerPixel / 2);
        std::memcpy(samples.data(), bytes, samples.size() * 2);
        return samples;
      };
      seen->firstRow = row(0);
      seen->lastRow = row(shape.height - 1);
    };
    SetInterfaceContext(context);
    return &observed;
  }
};

TEST_F(ProgrammaticInterfaceTest, AnInstanceIsCreatedAndFreedAnyNumberOfTimes) {
  EXPECT_STREQ("", instance.parameterText);
  EXPECT_EQ(4096u, instance.textCapacity);
  EXPECT_STREQ(
      "Tessaline\nRemoves repeating patterns in images. Can remove halftones, electrical noise, etc.",
      instance.description);
  char* const text = instance.parameterText;
  instance.reserved = 77;
  _Birch(&instance);
  EXPECT_EQ(0u, instance.reserved);
  EXPECT_EQ(0u, instance.textCapacity);
  EXPECT_EQ(text, instance.parameterText);
  MTAPI_FreeInstance(&instance);
  OSAPI_FreeInstance(nullptr);
  uint8_t pixel = 9;
  EXPECT_EQ(2, Process(1, 1, 1, &pixel));
  EXPECT_FALSE(HasFailed());

  instance.reserved = 78;
  EXPECT_EQ(0, _Larch(&instance));
  EXPECT_EQ(78u, instance.reserved);
  EXPECT_EQ(2, MTAPI_CreateInstance(nullptr));
}

TEST_F(ProgrammaticInterfaceTest, BoundKindsGetThePixelsOfTheRun) {
  ExpectSamePixelsAsTheRun(1, Screen<uint8_t>(1, 1));
  ExpectSamePixelsAsTheRun(3, Screen<uint8_t>(3, 1));
  ExpectSamePixelsAsTheRun(-2, Screen<uint16_t>(1, 128.5f));
  ExpectSamePixelsAsTheRun(-6, Screen<uint16_t>(3, 128.5f));
}

TEST_F(ProgrammaticInterfaceTest, FullRangeKindsReadAndWriteTheSecondRowOnly) {
  const Observed* const seen = Observe();
  SetText("<long>epsT,0\r\n<doub>NoRd,6\r\n<doub>LFct,8\r\n");
  uint16_t pixels[3][4] = {{1, 2, 3, 4}, {0, 65535, 40000, 1}, {5, 6, 7, 8}};
  EXPECT_EQ(0, Process(4, 3, 2, pixels));
  const std::vector<uint16_t> scaled = {0, 32768, 20000, 0};
  EXPECT_EQ(scaled, seen->firstRow);
  EXPECT_EQ(scaled, seen->lastRow);
  const uint16_t first[4] = {1, 2, 3, 4}, third[4] = {5, 6, 7, 8};
  EXPECT_EQ(0, std::memcmp(first, pixels[0], sizeof first));
  EXPECT_EQ(0, std::memcmp(third, pixels[2], sizeof third));
  // Nothing is removed at acceptance 0, but every step truncates.
  const int expected[4] = {0, 65535, 40000, 0};
  for (int x = 0; x < 4; ++x) EXPECT_NEAR(expected[x], pixels[1][x], 6) << x;
}

TEST_F(ProgrammaticInterfaceTest, ABadImageRecordEndsTheInterfaceForGood) {
  uint8_t pixels[4] = {1, 2, 3, 4};
  const TessalineImage bad[] = {
      {0, 2, 1, pixels}, {2, -1, 1, pixels}, {2, 2, 4, pixels}, {2, 2, -1, pixels}, {2, 2, 1, nullptr},
  };
  for (const TessalineImage& image : bad) {
    ResetInterface();
    EXPECT_EQ(2, OSAPI_Process(&instance, &image, 0));
    EXPECT_TRUE(HasFailed());
    EXPECT_EQ(2, Process(2, 2, 1, pixels));
    TessalineStream stream{};
    stream.width = stream.height = stream.kind = 1;
    EXPECT_EQ(2, OSAPI_ProcessStream(&instance, &stream, 0));
  }
}

TEST_F(ProgrammaticInterfaceTest, OtherRefusalsAreForgotten) {
  uint16_t pixels[4] = {1, 2, 3, 4};
  const TessalineImage image = {1, 1, 1, pixels};
  EXPECT_EQ(2, OSAPI_Process(nullptr, &image, 0));
  EXPECT_EQ(2, OSAPI_Process(&instance, nullptr, 0));
  EXPECT_EQ(2, OSAPI_ProcessStream(&instance, nullptr, 0));
  EXPECT_EQ(2, Process(65536, 32768, 1, pixels));
  EXPECT_EQ(2, Process(INT32_MAX, INT32_MAX, -6, pixels));
  EXPECT_EQ(2, Process(2, 1, 2, pixels));
  EXPECT_EQ(2, Process(1, 1, 6, pixels));
  EXPECT_EQ(kUserCancelled, Process(7501, 1, 1, pixels));
  EXPECT_EQ(1, pixels[0]);
  EXPECT_FALSE(HasFailed());
  EXPECT_EQ(0, Process(2, 2, 1, pixels));
}

TEST_F(ProgrammaticInterfaceTest, TheTextNamesTheValuesThatWereUsed) {
  uint8_t pixels[4] = {1, 2, 3, 4};
  EXPECT_EQ(0, Process(2, 2, 1, pixels));
  EXPECT_STREQ("<long>epsT,60\r\n<doub>NoRd,6.000000\r\n<doub>LFct,8.000000\r\n", instance.parameterText);
  SetText("<long>epsT,0\r\n<doub>NoRd,17\r\n<doub>LFct,2.5\r\n");
  EXPECT_EQ(0, Process(2, 2, 1, pixels));
  EXPECT_STREQ("<long>epsT,0\r\n<doub>NoRd,6.000000\r\n<doub>LFct,2.500000\r\n", instance.parameterText);
  // Settings of a damaged file: the text has what the run made of them.
  imageInfo.settings.acceptance = imageInfo.settings.protectionRadius = 500;
  imageInfo.settings.notchRadius = 3;
  SetText("");
  EXPECT_EQ(0, Process(2, 2, 1, pixels));
  EXPECT_STREQ("<long>epsT,100\r\n<doub>NoRd,3.000000\r\n<doub>LFct,128.000000\r\n", instance.parameterText);
  EXPECT_EQ(53248u, std::filesystem::file_size(PreferencesPath()));
}

TEST_F(ProgrammaticInterfaceTest, TheDialogsValuesReachTextAndSettings) {
  uint8_t pixels[4] = {1, 2, 3, 4};
  OfferDialog(0);
  EXPECT_EQ(0, Process(2, 2, 1, pixels));
  EXPECT_EQ(0, dialogs);
  EXPECT_EQ(0, Process(2, 2, 1, pixels, int64_t{1} << 40));
  EXPECT_EQ(1, dialogs);
  EXPECT_STREQ("<long>epsT,33\r\n<doub>NoRd,6.000000\r\n<doub>LFct,8.000000\r\n", instance.parameterText);
  EXPECT_EQ(33.5f, imageInfo.settings.acceptance);
}

TEST_F(ProgrammaticInterfaceTest, ASecondCallIsRefusedAtOnceAndExceptionsEndInACode) {
  static int opened;
  opened = 0;
  RunDoor context;
  context.user = &instance;
  context.openDialog = [](void* user, int32_t sourceSlot, FilterParameters*) -> int32_t {
    const auto call = [user] {
      auto* const shared = static_cast<TessalineInstance*>(user);
      const TessalineImage bad = {};  // refused before it is looked at, so it is not remembered
      const TessalineStream stream = {1, 1, 1, 0, 0, -1, "no input", "no output"};
      EXPECT_EQ(2, OSAPI_Process(shared, &bad, 0));
      EXPECT_EQ(2, MTAPI_ProcessStream(shared, &stream, 0));
    };
    call();
    std::thread(call).join();
    EXPECT_NE(0, ShapeOf(sourceSlot).width);
    if (++opened == 2) throw std::bad_alloc();
    return 0;
  };
  SetInterfaceContext(context);
  uint8_t pixels[4] = {1, 2, 3, 4};
  for (const int32_t expected : {0, int32_t{kOutOfMemory}, 0})
    EXPECT_EQ(expected, Process(2, 2, 1, pixels, 1));
  EXPECT_EQ(0, liveBufferCount);
}

// Untouched with kOutOfMemory, or finished: without memory for the caller's text a run would use other
// values.
TEST_F(ProgrammaticInterfaceTest, WithoutMemoryEveryCallEndsWithACode) {
  constexpr char kText[] = "<long>epsT,100\r\n<doub>NoRd,3\r\n<doub>LFct,9\r\n";
  constexpr int32_t kEdge = 6;
  for (const int32_t kind : {3, 2, -6}) {
    std::vector<uint16_t> original(kEdge * kEdge * 3), finished;
    for (size_t i = 0; i < original.size(); ++i) original[i] = static_cast<uint16_t>(i * 7919 % 32768);
    finished = original;
    SetText(kText);
    ASSERT_EQ(0, Process(kEdge, kEdge, kind, finished.data()));
    const std::string finishedText = instance.parameterText;
    // For one kind those after the preferences' texts come first: the lines of the parameter text.
    for (FailingAllocations failing(kind == 3 ? kTextRecords : 0); failing.Next();) {
      std::vector<uint16_t> pixels = original;
      SetText(kText);
      const int32_t result = failing.During([&] { return Process(kEdge, kEdge, kind, pixels.data()); });
      ASSERT_TRUE(result == kSuccess || (failing.hasFailed() && result == kOutOfMemory)) << result;
      ASSERT_EQ(result == kSuccess ? finished : original, pixels) << result;
      if (result == kSuccess) {
        EXPECT_EQ(finishedText, instance.parameterText);
      }
      EXPECT_EQ(0, liveBufferCount);
    }
  }
  EXPECT_FALSE(HasFailed());
  for (FailingAllocations failing; failing.Next();) {
    TessalineInstance another = {};
    const int32_t result = failing.During([&] { return MTAPI_CreateInstance(&another); });
    EXPECT_EQ(failing.hasFailed() ? kOutOfMemory : kSuccess, result);
    MTAPI_FreeInstance(&another);
  }
}

}  // namespace
}  // namespace tessaline
