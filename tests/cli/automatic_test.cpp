// The acceptance found from the picture itself, through the program.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <tuple>

#include "samples/film.h"
#include "tests/cli/pictures.h"
#include "tests/cli/program.h"

namespace tessaline::cli {
namespace {

constexpr int kWidth = 400, kHeight = 300;

std::string TextPage() {
  return std::string(TESSALINE_TEST_DATA) + "/text-grey8/input.png";
}

struct Rgb {
  int red, green, blue;
};
Rgb PixelAt(const Picture& picture, int x, int y) {
  return {picture.At(x, y, 0), picture.At(x, y, 1), picture.At(x, y, 2)};
}

TEST(Automatic, TakesTheScreenOutAndNamesWhatIsLicensed) {
  const TemporaryFolder folder;
  const Picture picture = DrawScreen(1, 0, 8, kWidth, kHeight);
  Save(picture, folder / "in.png");
  const Ended ended = RunProgram({"-v", "-a", "auto", folder / "in.png", folder / "out.png", "--report",
                                  folder / "report.json", "--spectrum", folder / "spectrum.png"});
  ASSERT_EQ(0, ended.status) << ended.err;
  EXPECT_LT(ScreenAmplitude(Load(folder / "out.png"), 0), ScreenAmplitude(picture, 0) / 10);
  EXPECT_NE(std::string::npos, ended.err.find("in.png: a 6.8 lpi screen at 45 deg was taken out"))
      << ended.err;
  EXPECT_NE(std::string::npos, ended.err.find(" licensed peaks, ")) << ended.err;
  EXPECT_NE(std::string::npos, ended.err.find("auto: period 3.7")) << ended.err;

  const auto report = nlohmann::json::parse(ReadWholeFile(folder / "report.json"))["pictures"][0];
  EXPECT_EQ("auto", report["parameters"]["acceptance"]);
  const auto& page = report["pages"][0];
  EXPECT_TRUE(page["threshold"].is_null());
  ASSERT_GE(page["peaks"].size(), 2u);
  const auto& peak = page["peaks"][0];
  EXPECT_TRUE(peak["licensed"]);
  EXPECT_EQ("used", peak["verdict"]);
  EXPECT_NEAR(kScreenPeriod, peak["periodPixels"], 0.05);
  // A yellow circle of radius 9 on both sides.
  const Picture spectrum = Load(folder / "spectrum.png");
  for (const int side : {1, -1}) {
    const int x = 256 + side * peak["dx"].get<int>() + 9, y = 256 + side * peak["dy"].get<int>();
    const Rgb rim = PixelAt(spectrum, x, y);
    EXPECT_GT(rim.red, 200);
    EXPECT_GT(rim.green, 170);
    EXPECT_LT(rim.blue, 80);
  }
}

TEST(Automatic, TakesDotsOutInLightWhereTheFileTellsItsCurve) {
  const TemporaryFolder folder;
  Picture picture = DrawScreen(1, 0, 8, kWidth, kHeight);
  for (uint16_t& sample : picture.samples) {  // as black on white
    sample = static_cast<uint16_t>(std::clamp(3 * (sample - 128) + 128, 0, 255));
  }
  Save(picture, folder / "bare.png");
  Save(picture, folder / "told.tif", "[profile=srgb]");
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"bare.png", "auto", "coded"},
      {"told.tif", "auto", "linear"},
      {"told.tif", "coded", "coded"},
      {"bare.png", "linear", "linear"}};  // sRGB both: as the file says, and where none does
  std::map<std::string, std::vector<uint16_t>> results;
  for (const auto& [name, light, used] : cases) {
    const Ended ended = RunProgram({"-f", "-a", "auto", "--sensitivity", "1.3", "--light", light,
                                    folder / name, folder / "out.png", "--report", folder / "report.json"});
    ASSERT_EQ(0, ended.status) << ended.err;
    const auto report = nlohmann::json::parse(ReadWholeFile(folder / "report.json"))["pictures"][0];
    EXPECT_EQ(light, report["parameters"]["light"]);
    EXPECT_EQ(used, report["pages"][0]["light"]) << name;
    const Picture result = Load(folder / "out.png");
    const auto other = results.emplace(used, result.samples).first;
    for (size_t i = 0; i < result.samples.size(); ++i) ASSERT_NEAR(other->second[i], result.samples[i], 2);
  }
  EXPECT_NE(results["coded"], results["linear"]);
}

TEST(Automatic, LeavesAPageOfTextAsItIsAndMarksItsLines) {
  const TemporaryFolder folder;
  const Ended ended = RunProgram(
      {"-a", "auto", TextPage(), folder / "out.png", "--report", "-", "--spectrum", folder / "spectrum.png"});
  ASSERT_EQ(0, ended.status) << ended.err;
  EXPECT_NE(std::string::npos, ended.err.find("auto: no regular pattern found, image unchanged"))
      << ended.err;
  EXPECT_EQ(1, ended.ErrorLines()) << ended.err;
  EXPECT_EQ(ReadWholeFile(TextPage()), ReadWholeFile(folder / "out.png"));
  const auto report = nlohmann::json::parse(ended.out);
  const auto& peak = report["pictures"][0]["pages"][0]["peaks"][0];
  EXPECT_EQ("text lines", peak["verdict"]);
  const Picture spectrum = Load(folder / "spectrum.png");
  EXPECT_GT(spectrum.height, spectrum.width) << "no legend below the spectrum";
  const Rgb square = PixelAt(spectrum, 256 + peak["dx"].get<int>() + 4, 256 + peak["dy"].get<int>());
  EXPECT_EQ(0, square.red);
  EXPECT_EQ(230, square.green);
  EXPECT_EQ(230, square.blue);
  // What only lacks a licence has its mark too.
  for (const auto& other : report["pictures"][0]["pages"][0]["peaks"]) {
    if (other["verdict"] != "no licence") continue;
    EXPECT_EQ(255, PixelAt(spectrum, 256 + other["dx"].get<int>() + 4, 256 + other["dy"].get<int>()).red);
  }
}

// Frames of a film: a plain one, one with a screen, a plain one.
class FrozenStreams : public testing::Test {
 protected:
  static std::string Frame(const Picture& picture) {
    return {picture.samples.begin(), picture.samples.end()};
  }
  void SetUp() override {
    screen_ = Frame(DrawScreen(1, 0, 8, kWidth, kHeight));
    // The text page is no film, but a plain frame: nothing is found in it.
    Picture page = Load(TextPage());
    Picture part = {kWidth, kHeight, 1, 8, {}};
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) part.samples.push_back(page.At(x, y, 0));
    }
    plain_ = Frame(part);
    WriteWholeFile(folder_ / "in.raw", plain_ + screen_ + plain_);
  }
  Ended Run(std::vector<std::string> more, const std::string& input = "") {
    std::vector<std::string> arguments = {
        "stream", "--width", std::to_string(kWidth), "--height", "300", "--pix-fmt", "gray", "-a", "auto"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunProgram(arguments, input);
  }
  static std::string FrameOf(const std::string& frames, size_t index) {
    const size_t bytes = size_t{kWidth} * kHeight;
    return frames.substr(index * bytes, bytes);
  }
  TemporaryFolder folder_;
  std::string plain_, screen_;
};

TEST_F(FrozenStreams, SeveralFramesDecideForAll) {
  // One frame's decision is its own; a frozen frame is not looked at again, so its padding fades to another
  // mean level, seen at its edges.
  const std::string alone = Run({"-", "-"}, screen_).out, frozen = Run({"--freeze", "-", "-"}, screen_).out;
  ASSERT_EQ(alone.size(), frozen.size());
  int largest = 0;
  for (size_t i = 0; i < alone.size(); ++i) {
    largest = std::max(largest, std::abs(static_cast<uint8_t>(alone[i]) - static_cast<uint8_t>(frozen[i])));
  }
  EXPECT_LE(largest, 3);
  // Eight without a pattern go out as they came; the next ones gather anew, also when cut short.
  std::string plain;
  for (int i = 0; i < 8; ++i) plain += plain_;
  const Ended ended = Run({"--freeze", "-", folder_ / "out.raw"}, plain + plain_ + screen_ + "x");
  EXPECT_EQ(3, ended.status) << ended.err;
  EXPECT_NE(std::string::npos, ended.err.find("10 whole frames were written")) << ended.err;
  const std::string out = ReadWholeFile(folder_ / "out.raw");
  EXPECT_EQ(plain, out.substr(0, plain.size()));
  EXPECT_NE(plain_, FrameOf(out, 8)) << "the frames that decide together are cleaned together";
  EXPECT_NE(screen_, FrameOf(out, 9));
}

TEST_F(FrozenStreams, AFaintPatternDoesNotFlicker) {
  constexpr int kFrames = 24;
  const samples::Film film = samples::ShootFilm(kWidth, kHeight, kFrames, samples::kStandingPattern);
  const std::string bytes = samples::ToBytes(film.frames);
  const double unfrozen = samples::FlickerOf(Run({"-", "-"}, bytes).out, film.originals);
  EXPECT_LT(samples::FlickerOf(Run({"--freeze", "-", "-"}, bytes).out, film.originals), 0.8 * unfrozen);
}

TEST_F(FrozenStreams, AFrameByItsNumberDecidesForTheOnesBeforeItToo) {
  const Ended ended = Run({"--freeze", "1", folder_ / "in.raw", "-"});
  ASSERT_EQ(0, ended.status) << ended.err;
  EXPECT_NE(plain_, FrameOf(ended.out, 0));
  EXPECT_EQ(FrameOf(ended.out, 0), FrameOf(ended.out, 2));
  // A plain frame's decision is to leave all as they are.
  EXPECT_EQ(plain_ + screen_ + plain_, Run({"--freeze", "0", folder_ / "in.raw", "-"}).out);
  // From a pipe the deciding frame must come before the first one taken.
  EXPECT_EQ(2, Run({"--freeze", "1", "-", "-"}, plain_).status);
  EXPECT_EQ(3, Run({"--freeze", "9", folder_ / "in.raw", folder_ / "out.raw"}).status);
  EXPECT_EQ(std::vector<std::string>{"in.raw"}, folder_.Names());
}

}  // namespace
}  // namespace tessaline::cli
