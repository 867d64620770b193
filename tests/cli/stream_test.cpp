// Raw frames through the program.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <nlohmann/json.hpp>

#include "tests/cli/pictures.h"
#include "tests/cli/program.h"

namespace tessaline::cli {
namespace {

constexpr int kWidth = 400, kHeight = 300;

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
  Picture picture = {kWidth, kHeight, format.colours, format.bits, {}};
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
      "stream", "--width", std::to_string(kWidth), "--height", std::to_string(kHeight), "--pix-fmt",
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

TEST(Streams, FrameWithoutPatternIsUnchanged) {
  for (const PixelFormat& format : kPixelFormats) {
    const std::string frame = FrameOf(DrawScreen(format.colours, 0, format.bits));
    std::vector<std::string> arguments = Stream(format.name, {"-a", "0", "-", "-"});
    EXPECT_EQ(frame, RunProgram(arguments, frame).out) << format.name;
  }
}

TEST(Streams, FramesOutsideTheRangeAreDropped) {
  const TemporaryFolder folder;
  std::string frames;
  for (int i = 0; i < 5; ++i) frames += std::string(kWidth * kHeight, static_cast<char>('0' + i));
  WriteWholeFile(folder / "in.raw", frames);
  const Ended ended =
      RunProgram(Stream("gray", {"--first", "2", "--last", "3", folder / "in.raw", folder / "out.raw"}));
  ASSERT_EQ(0, ended.status) << ended.err;
  EXPECT_EQ(frames.substr(2 * kWidth * kHeight, 2 * kWidth * kHeight), ReadWholeFile(folder / "out.raw"));
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

TEST(Streams, NoWholeFrameGivesNoFile) {
  const TemporaryFolder folder;
  for (const std::string& input : {std::string(), std::string(1000, 'x')}) {
    EXPECT_EQ(3, RunProgram(Stream("gray", {"-", folder / "out.raw"}), input).status);
    EXPECT_TRUE(folder.Names().empty());
  }
  EXPECT_EQ(3, RunProgram(Stream("gray", {"--first", "4", "-", folder / "out.raw"}), ScreenFrame()).status);
  EXPECT_TRUE(folder.Names().empty());
}

TEST(Streams, InterruptedWithAFrameOnItsWayLeavesNothing) {
  const TemporaryFolder folder;
  RunningProgram program(Stream("gray", {"--progress", "-", folder / "out.raw"}));
  program.Write(ScreenFrame());
  ASSERT_TRUE(program.WaitForError("removing"));
  program.Signal(SIGTERM);
  EXPECT_EQ(130, program.Wait().status);
  EXPECT_TRUE(folder.Names().empty());
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

TEST(Streams, ReportTellsOfEveryFrame) {
  const TemporaryFolder folder;
  const std::string input = ScreenFrame() + std::string(kWidth * kHeight, 'x');
  ASSERT_EQ(
      0, RunProgram(Stream("gray", {"-", folder / "out.raw", "--report", folder / "r.json"}), input).status);
  const auto frames = nlohmann::json::parse(ReadWholeFile(folder / "r.json"))["stream"]["frames"];
  ASSERT_EQ(2u, frames.size());
  EXPECT_TRUE(frames[0]["patternFound"]);
  EXPECT_NEAR(kScreenPeriod, frames[0]["notches"][0]["periodPixels"].get<double>(), 0.02);
  EXPECT_FALSE(frames[1]["patternFound"]);
}

TEST(Streams, StandBetweenTwoFfmpegs) {
  const TemporaryFolder folder;
  const std::string command =
      "set -o pipefail; ffmpeg -loglevel error -f lavfi -i testsrc=size=160x120:rate=5:duration=1 -f "
      "rawvideo -pix_fmt "
      "rgb24 - | '" TESSALINE_PROGRAM
      "' stream --width 160 --height 120 --pix-fmt rgb24 -q -a 90 - - | ffmpeg -loglevel error -f rawvideo "
      "-pix_fmt "
      "rgb24 -s 160x120 -r 5 -i - -c:v ffv1 '" +
      (folder / "out.mkv") + "' && ffmpeg -loglevel error -i '" + (folder / "out.mkv") +
      "' -f rawvideo -pix_fmt rgb24 '" + (folder / "back.raw") + "'";
  ASSERT_EQ(0, system(("bash -c \"" + command + "\"").c_str()));
  EXPECT_EQ(5u * 160 * 120 * 3, ReadWholeFile(folder / "back.raw").size());
}

}  // namespace
}  // namespace tessaline::cli
