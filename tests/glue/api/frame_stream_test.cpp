#include <cstring>
#include <fstream>
#include <iterator>

#include "image/result_codes.h"
#include "tests/glue/api/interface_fixture.h"

namespace tessaline {
namespace {

class FrameStreamTest : public InterfaceTest {
 protected:
  static constexpr int32_t kWidth = 6, kHeight = 4;
  static constexpr size_t kFrameBytes = kWidth * kHeight;

  FrameStreamTest() {
    stream.width = kWidth;
    stream.height = kHeight;
    stream.kind = 1;
    stream.dialogFrame = -1;
    Point(stream.inputPath, folder.File("in.raw"));
    Point(stream.outputPath, folder.File("out.raw"));
    SetText("<long>epsT,0\r\n<doub>NoRd,6\r\n<doub>LFct,8\r\n");
  }
  static void Point(char (&field)[1024], const std::string& path) { std::strcpy(field, path.c_str()); }
  // Frames of different levels, `bytes` in all.
  std::string WriteInput(size_t bytes) const {
    std::string input(bytes, '\0');
    for (size_t i = 0; i < bytes; ++i) input[i] = static_cast<char>(20 + 30 * (i / kFrameBytes) + i % 5);
    std::ofstream(stream.inputPath, std::ios::binary) << input;
    return input;
  }
  static std::string Content(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  std::string Output() const { return Content(stream.outputPath); }
  int32_t ProcessFrames(int32_t first, int32_t last, int64_t showDialog = 0) {
    stream.firstFrame = first;
    stream.lastFrame = last;
    return OSAPI_ProcessStream(&instance, &stream, showDialog);
  }
  // The frames `first` to `last` of the input, each processed by itself.
  std::string Expected(std::string input, size_t first, size_t last) {
    std::string frames = input.substr(first * kFrameBytes, (last + 1 - first) * kFrameBytes);
    for (size_t start = 0; start < frames.size(); start += kFrameBytes) {
      EXPECT_EQ(0, Process(kWidth, kHeight, 1, &frames[start]));
    }
    return frames;
  }

  TessalineStream stream{};
};

TEST_F(FrameStreamTest, WritesTheFramesOfTheRangeAndDropsTheOthers) {
  const std::string input = WriteInput(5 * kFrameBytes);
  EXPECT_EQ(0, ProcessFrames(2, 3));
  EXPECT_EQ(Expected(input, 2, 3), Output());
  EXPECT_EQ(0, ProcessFrames(-7, INT32_MAX));
  EXPECT_EQ(Expected(input, 0, 4), Output());
  EXPECT_EQ(0, ProcessFrames(5, 9));
  EXPECT_EQ("", Output());
}

TEST_F(FrameStreamTest, AFrameCutShortIsNotMadeUp) {
  const std::string input = WriteInput(2 * kFrameBytes + kFrameBytes / 2);
  EXPECT_EQ(2, ProcessFrames(0, 9));
  EXPECT_EQ(Expected(input, 0, 1), Output());
  EXPECT_EQ(0, ProcessFrames(0, 1));
  EXPECT_FALSE(HasFailed());
}

TEST_F(FrameStreamTest, RefusalsBeforeAnyFileIsTouched) {
  WriteInput(kFrameBytes);
  std::ofstream(stream.outputPath) << "kept";
  const TessalineStream sound = stream;
  const auto refused = [&](auto change) {
    stream = sound;
    change(stream);
    EXPECT_EQ(2, OSAPI_ProcessStream(&instance, &stream, 0));
    stream = sound;
    EXPECT_EQ("kept", Output());
    EXPECT_EQ(kFrameBytes, Content(stream.inputPath).size());
  };
  refused([](TessalineStream& s) { s.lastFrame = -1; });
  refused([](TessalineStream& s) { s.width = s.height = 65536; });
  refused([](TessalineStream& s) { s.width = s.height = INT32_MAX, s.kind = -6; });
  refused([](TessalineStream& s) { s.height = 1, s.kind = 2; });
  refused([](TessalineStream& s) { std::memset(s.inputPath, 'x', sizeof s.inputPath); });
  refused([](TessalineStream& s) { std::memset(s.outputPath, 'x', sizeof s.outputPath); });
  refused([](TessalineStream& s) { s.inputPath[std::strlen(s.inputPath) - 1] = 'x'; });
  refused([&](TessalineStream& s) { Point(s.outputPath, folder.path() + "/./in.raw"); });
  EXPECT_EQ(2, OSAPI_ProcessStream(nullptr, &stream, 0));
  EXPECT_EQ("kept", Output());
}

TEST_F(FrameStreamTest, ABadRecordLeavesAnEmptyOutput) {
  WriteInput(kFrameBytes);
  const TessalineStream sound = stream;
  for (const int field : {0, 1, 2}) {
    stream = sound;
    std::ofstream(stream.outputPath) << "lost";
    (field == 0 ? stream.width : field == 1 ? stream.height : stream.kind) = 0;
    EXPECT_EQ(2, ProcessFrames(0, 0));
    EXPECT_TRUE(std::filesystem::exists(stream.outputPath));
    EXPECT_EQ("", Output());
  }
  stream = sound;
  EXPECT_EQ(0, ProcessFrames(0, 0)) << "refusals of a stream are not remembered";
}

TEST_F(FrameStreamTest, OnlyTheDialogFrameShowsTheDialogAndItsCancelEndsTheStream) {
  const std::string input = WriteInput(4 * kFrameBytes);
  OfferDialog(0);
  stream.dialogFrame = 2;
  EXPECT_EQ(0, ProcessFrames(0, 3, 1));
  EXPECT_EQ(1, dialogs);
  EXPECT_EQ(0, ProcessFrames(0, 3, 0));
  EXPECT_EQ(1, dialogs);
  OfferDialog(1);
  SetText("<long>epsT,0\r\n<doub>NoRd,6\r\n<doub>LFct,8\r\n");
  EXPECT_EQ(kUserCancelled, ProcessFrames(0, 3, 1));
  EXPECT_EQ(Expected(input, 0, 1), Output());
}

// The frames that a stream has written when memory runs out are whole.
TEST_F(FrameStreamTest, WithoutMemoryWhatIsWrittenIsWhole) {
  const std::string input = WriteInput(2 * kFrameBytes);
  const std::string expected = Expected(input, 0, 1);
  for (FailingAllocations failing; failing.Next();) {
    const int32_t result = failing.During([&] { return ProcessFrames(0, 1); });
    EXPECT_TRUE(result == kSuccess || (failing.hasFailed() && result == kOutOfMemory)) << result;
    const std::string output = Output();
    EXPECT_EQ(expected.substr(0, output.size() / kFrameBytes * kFrameBytes), output);
    EXPECT_TRUE(result != kSuccess || output == expected);
    EXPECT_EQ(input, Content(stream.inputPath));
  }
}

}  // namespace
}  // namespace tessaline
