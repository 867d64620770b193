// Pictures that are cleaned in tiles: large ones, and others on wish.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "tests/cli/pictures.h"
#include "tests/cli/program.h"
#include "tests/support/sanitizers.h"

namespace tessaline::cli {
namespace {

class Tiles : public testing::Test {
 protected:
  TemporaryFolder folder;
};

Picture PartOf(const Picture& whole, int x, int y, int width, int height) {
  Picture part = {width, height, whole.channels, whole.bits, {}};
  for (int row = y; row < y + height; ++row) {
    const auto* first = &whole.samples[static_cast<size_t>((row * whole.width + x) * whole.channels)];
    part.samples.insert(part.samples.end(), first, first + width * whole.channels);
  }
  return part;
}

// Drawn a row at a time, with memory that depends on the width alone.
TEST_F(Tiles, PicturesLargerThanATransformAreCleanedWithoutBeingHeld) {
  constexpr int kLargeWidth = 7600, kLargeHeight = kIsWatched ? 300 : 5000;  // memory is another then, too
  const Picture strip = DrawScreen(3, 0, 8, kLargeWidth, 75);  // twenty periods high: rows repeat
  std::string file = "P6\n" + std::to_string(kLargeWidth) + " " + std::to_string(kLargeHeight) + "\n255\n";
  std::string rows;
  for (const uint16_t sample : strip.samples) rows += static_cast<char>(sample);
  for (int y = 0; y < kLargeHeight; y += 75)
    file.append(rows, 0, static_cast<size_t>(std::min(75, kLargeHeight - y) * kLargeWidth * 3));
  WriteWholeFile(folder / "large.ppm", file);
  const Ended ended = RunProgram(
      {"-a", "auto", folder / "large.ppm", folder / "clean.tif", "--report", folder / "report.json"});
  ASSERT_EQ(0, ended.status) << ended.err;
  const auto report = nlohmann::json::parse(ReadWholeFile(folder / "report.json"));
  if (!kIsWatched) {
    EXPECT_LT(report["pictures"][0]["peakMemoryBytes"].get<double>(), 540e6);
  }
  const Picture clean = Load(folder / "clean.tif");
  ASSERT_EQ(kLargeHeight, clean.height);
  for (const int x : {0, 3600, 7200}) {
    for (const int y : {0, kLargeHeight / 2 - 150, kLargeHeight - 300}) {
      EXPECT_LT(ScreenAmplitude(PartOf(clean, x, y, 400, 300), 1), 5) << x << " " << y;
    }
  }
  // Damage at its end is found with nothing written.
  file.resize(file.size() - 100);
  WriteWholeFile(folder / "cut.ppm", file);
  EXPECT_EQ(3, RunProgram({"-a", "auto", folder / "cut.ppm", folder / "cut.tif"}).status);
  EXPECT_EQ((std::vector<std::string>{"clean.tif", "cut.ppm", "large.ppm", "report.json"}), folder.Names());
}

TEST_F(Tiles, GiveWhatTheWholeGivesAndLeaveTheRestAlone) {
  struct Samples {
    int colours, extras, bits;
  };
  for (const Samples& kind : {Samples{1, 0, 16}, Samples{3, 1, 8}, Samples{3, 0, 16}}) {
    if (kIsWatched && kind.extras == 0) continue;
    const std::string input = folder / "in.tif";
    Save(DrawScreen(kind.colours, kind.extras, kind.bits, 1400, 1100), input);
    for (const char* acceptance : {"auto", kFindingAcceptance}) {
      ASSERT_EQ(0, RunProgram({"-f", "-a", acceptance, input, folder / "whole.tif"}).status);
      const Ended ended = RunProgram({"-f", "-a", acceptance, "--tile", "700", input, folder / "tiles.tif"});
      ASSERT_EQ(0, ended.status) << ended.err;
      const Picture before = Load(input), whole = Load(folder / "whole.tif"),
                    tiles = Load(folder / "tiles.tif");
      ASSERT_EQ(whole.samples.size(), tiles.samples.size());
      double apart = 0;
      for (size_t i = 0; i < whole.samples.size(); ++i) {
        const bool isAlpha = static_cast<int>(i % static_cast<size_t>(whole.channels)) >= kind.colours;
        if (isAlpha) {
          ASSERT_EQ(before.samples[i], tiles.samples[i]);
        }
        apart += std::abs(whole.samples[i] - tiles.samples[i]) / (kind.bits == 16 ? 257.0 : 1.0);
      }
      EXPECT_LT(apart / static_cast<double>(whole.samples.size()), 1.0) << kind.bits << " " << acceptance;
      EXPECT_LT(ScreenAmplitude(tiles, 0), kGone);
    }
    // Nothing found, another format: every sample as it was.
    ASSERT_EQ(0, RunProgram({"-f", "-a", "0", "--tile", "auto", input, folder / "same.png"}).status);
    EXPECT_EQ(Load(input).samples, Load(folder / "same.png").samples);
  }
}

TEST_F(Tiles, PagesGoThroughAndTheGateIsRefused) {
  const ImagePointer pages = ImageOf(DrawScreen(1, 0, 8, 600, 1200));
  vips_image_set_int(pages.get(), VIPS_META_PAGE_HEIGHT, 600);
  Save(pages, folder / "pages.tif");
  const Ended ended =
      RunProgram({"-a", kFindingAcceptance, "--tile", "512", folder / "pages.tif", folder / "out.tif"});
  ASSERT_EQ(0, ended.status) << ended.err;
  EXPECT_NE(std::string::npos, ended.err.find("2 of 2 pages")) << ended.err;
  EXPECT_EQ(2, RunProgram({"-a", "auto", "--tile", "512", "--gate", folder / "g.png", folder / "pages.tif",
                           folder / "o.tif"})
                   .status);
}

}  // namespace
}  // namespace tessaline::cli
