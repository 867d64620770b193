// Raw frames through the program.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <nlohmann/json.hpp>

#include "tests/cli/pictures.h"
#include "tests/cli/program.h"

namespace tessaline::cli {
namespace {

constexpr int kFrameWidth = 400, kFrameHeight = 300;

struct PixelFormat {
  const char* name;
  int colours, bits;
};
constexpr PixelFormat kPixelFormats[] = {
    {"gray", 1, 8}, {"rgb24", 3, 8}, {"gray16le", 1, 16}, {"rgb48le", 3, 16}};

std::string FrameOf(const Picture& picture) {
  std::string bytes;
  for (uint16_t sample : picture.samples) {
    bytes += static_cast<char>(sample);
    if (picture.bits == 16) bytes += static_cast<char>(sample >> 8);
  }
  return bytes;
}

Picture PictureOf(const std::string& frame, const PixelFormat& format) {
  Picture picture = {kFrameWidth, kFrameHeight, format.colours, format.bits, {}};
  const size_t step = static_cast<size_t>(format.bits / 8);
  for (size_t i = 0; i < frame.size(); i += step) {
    uint16_t sample = static_cast<uint8_t>(frame[i]);
    if (step == 2) sample = static_cast<uint16_t>(sample | static_cast<uint8_t>(frame[i + 1]) << 8);
    picture.samples.push_back(sample);
  }
  return picture;
}

std::vector<std::string> Stream(const char* format, std::vector<std::string> more) {
  std::vector<std::string> arguments = {
      "stream", "--width", std::to_string(kFrameWidth), "--height", std::to_string(kFrameHeight), "--pix-fmt",
      format,   "-a",      kFindingAcceptance};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

std::string ScreenFrame() {
  return FrameOf(DrawScreen(1, 0, 8));
}

TEST(Streams, EveryPixelFormatGivesWhatThePictureGives) {
  for (const PixelFormat& format : kPixelFormats) {
    const TemporaryFolder folder;
    const Picture picture = DrawScreen(format.colours, 0, format.bits);
    const Ended ended = RunProgram(Stream(format.name, {"-", "-"}), FrameOf(picture) + FrameOf(picture));
    ASSERT_EQ(0, ended.status) << ended.err;
    const size_t frameBytes = FrameOf(picture).size();
    ASSERT_EQ(2 * frameBytes, ended.out.size());
    EXPECT_EQ(ended.out.substr(0, frameBytes), ended.out.substr(frameBytes));
    Save(picture, folder / "in.png");
    ASSERT_EQ(0, RunProgram({"-a", kFindingAcceptance, folder / "in.png", folder / "out.png"}).status);
    const Picture clean = PictureOf(ended.out.substr(0, frameBytes), format);
    EXPECT_LT(ScreenAmplitude(clean, 0), kGone);
    EXPECT_EQ(Load(folder / "out.png"), clean) << format.name;
  }
}

TEST(Streams, FramesFlowOneByOne) {
  RunningProgram program(Stream("gray", {"-", "-"}));
  const std::string frame = ScreenFrame();
  for (size_t i = 1; i <= 3; ++i) {
    program.Write(frame);
    ASSERT_TRUE(program.WaitForOutput(i * frame.size())) << "frame " << i << " waits for the next";
  }
  EXPECT_EQ(0, program.Wait().status);
}

TEST(Streams, ShortLastFrameIsLeftOutAndWholeOnesStay) {
  const TemporaryFolder folder;
  const std::string frame = ScreenFrame();
  WriteWholeFile(folder / "in.raw", frame + frame + frame.substr(0, 1000));
  const Ended ended = RunProgram(Stream("gray", {folder / "in.raw", folder / "out.raw"}));
  EXPECT_EQ(3, ended.status);
  EXPECT_EQ(1, ended.ErrorLines()) << ended.err;
  EXPECT_NE(std::string::npos, ended.err.find("frame 2 is cut short (1000 of 120000 bytes)")) << ended.err;
  EXPECT_EQ(2 * frame.size(), ReadWholeFile(folder / "out.raw").size());
  // Outside the wanted range it does no harm.
  EXPECT_EQ(0,
            RunProgram(Stream("gray", {"-f", "--last", "1", folder / "in.raw", folder / "out.raw"})).status);
}

TEST(Streams, ReaderThatWentAwayAndFilesThatCannotBe) {
  const TemporaryFolder folder;
  RunningProgram program(Stream("gray", {"-", "-"}));
  program.CloseOutput();
  program.Write(ScreenFrame());
  const Ended ended = program.Wait();
  EXPECT_EQ(7, ended.status);
  EXPECT_EQ(1, ended.ErrorLines()) << ended.err;

  WriteWholeFile(folder / "in.raw", ScreenFrame());
  EXPECT_EQ(7, RunProgram(Stream("gray", {"-f", folder / "in.raw", folder / "in.raw"})).status);
  RunningProgram::Start start;
  start.inputFile = folder / "in.raw";
  RunningProgram redirected(Stream("gray", {"-f", "-", folder / "in.raw"}), start);
  EXPECT_EQ(7, redirected.Wait().status) << "the file behind stdin is the input too";
  EXPECT_EQ(ScreenFrame(), ReadWholeFile(folder / "in.raw"));
  EXPECT_EQ(7, RunProgram(Stream("gray", {folder / "in.raw", folder / "no/out.raw"})).status);
  EXPECT_EQ(3, RunProgram(Stream("gray", {folder / "none.raw", "-"})).status);
  EXPECT_EQ(5,
            RunProgram({"stream", "--width", "7501", "--height", "1", "--pix-fmt", "gray", "-", "-"}).status);
}

}  // namespace
}  // namespace tessaline::cli
