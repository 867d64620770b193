#include "bench/quality/pictures.h"

#include <algorithm>
#include <cmath>

#include "bench/quality/measures.h"
#include "samples/noise.h"
#include "samples/picture_files.h"
#include "samples/scene.h"
#include "samples/subjects.h"

namespace tessaline::quality {

namespace {

using namespace samples;

constexpr int kWidth = 700, kHeight = 500;          // pixels, unless a case says otherwise
constexpr int kPageWidth = 800, kPageHeight = 640;  // of a page of text
constexpr Frame kOnPage = {190, 170, 610, 470};     // its picture

const Picture& Scene() {
  static const Picture scene = DrawScene(kWidth, kHeight);
  return scene;
}
const Picture& StillLife() {
  static const Picture picture = DrawStillLife(kWidth, kHeight, 4);
  return picture;
}
const Picture& OtherStillLife() {
  static const Picture picture = DrawStillLife(kWidth, kHeight, 9);
  return picture;
}
Picture InColour(const Picture& grey) {
  Picture colour(grey.width, grey.height, 3);
  constexpr float kTint[] = {1.0f, 0.9f, 0.75f};
  for (size_t i = 0; i < colour.samples.size(); ++i) colour.samples[i] = kTint[i % 3] * grey.samples[i / 3];
  return colour;
}
const Picture& Hair() {
  static const Picture hair = InColour(DrawTexture(kWidth, kHeight, {0.3, 0.012, 3, 0.6, 160, 0.9}));
  return hair;
}
const Picture& Gravel() {
  static const Picture gravel = InColour(DrawTexture(kWidth, kHeight, {0.12, 0.12, 4, 0.5, 90, 1.2}));
  return gravel;
}

Picture ToGrey(const Picture& rgb) {
  Picture grey(rgb.width, rgb.height, 1);
  for (size_t i = 0; i < grey.samples.size(); ++i) {
    const float* const from = &rgb.samples[3 * i];
    grey.samples[i] = 0.299f * from[0] + 0.587f * from[1] + 0.114f * from[2];
  }
  return grey;
}
Picture Cropped(const Picture& picture, const Frame& frame) {
  Picture part(frame.right - frame.left, frame.bottom - frame.top, picture.channels);
  for (int y = 0; y < part.height; ++y)
    for (int x = 0; x < part.width; ++x)
      for (int c = 0; c < part.channels; ++c) part.At(x, y, c) = picture.At(frame.left + x, frame.top + y, c);
  return part;
}

// Every fourth column and every eighth row are read by an amplifier of their own.
Picture WithAmplifiers(const Picture& original) {
  Picture picture = original;
  for (int y = 0; y < picture.height; ++y)
    for (int x = 0; x < picture.width; ++x)
      for (int c = 0; c < picture.channels; ++c)
        picture.At(x, y, c) += static_cast<float>((x % 4 == 1 ? 0.02 : 0) - (x % 4 == 3 ? 0.02 : 0));
  return AsShot(picture, 0.01, false);
}
// Every row and every column has an offset of its own.
Picture WithRowNoise(const Picture& original) {
  Random random(31);
  Picture picture = original;
  std::vector<float> columns(static_cast<size_t>(picture.width));
  for (float& column : columns) column = static_cast<float>(0.008 * random.Normal());
  for (int y = 0; y < picture.height; ++y) {
    const auto row = static_cast<float>(0.012 * random.Normal());
    for (int x = 0; x < picture.width; ++x)
      for (int c = 0; c < picture.channels; ++c) picture.At(x, y, c) += row + columns[x];
  }
  return picture;
}
// Hum of the mains in a video's lines, and its third harmonic.
Picture WithHum(const Picture& original) {
  Picture picture = original;
  for (int y = 0; y < picture.height; ++y)
    for (int x = 0; x < picture.width; ++x) {
      const double turns = 2 * 3.14159265358979 * (y / 6.3 + x / 410.0);
      for (int c = 0; c < picture.channels; ++c)
        picture.At(x, y, c) += static_cast<float>(0.03 * std::sin(turns) + 0.012 * std::sin(3 * turns));
    }
  return AsShot(picture, 0.01, false);
}

// clang-format off
const std::vector<PrintCase>& Prints() {
  static const std::vector<PrintCase> prints = {
    {"one ink", "65 lpi at 300 dpi", 0, Scene, {.linesPerInch = 65}},
    {"one ink", "85 lpi at 300 dpi", 0, Scene, {.linesPerInch = 85}},
    {"one ink", "100 lpi at 300 dpi", 0, StillLife, {.linesPerInch = 100}},
    {"one ink", "120 lpi at 300 dpi", 0, OtherStillLife, {.linesPerInch = 120}},
    {"one ink", "133 lpi at 400 dpi", 39.2, StillLife, {.linesPerInch = 133, .dotsPerInch = 400}},
    {"one ink", "150 lpi at 600 dpi", 0, Scene, {.linesPerInch = 150, .dotsPerInch = 600, .softness = 1}},
    {"one ink", "175 lpi at 600 dpi", 0, OtherStillLife, {.linesPerInch = 175, .dotsPerInch = 600, .softness = 1}},
    {"one ink", "65 lpi at 600 dpi", 0, StillLife, {.linesPerInch = 65, .dotsPerInch = 600, .softness = 1.2}},
    {"one ink", "85 lpi without noise", 0, StillLife, {.linesPerInch = 85, .noise = 0, .fibre = 0}},
    {"four inks", "65 lpi at 300 dpi", 0, Scene, {.inks = 4, .linesPerInch = 65}},
    {"four inks", "85 lpi at 300 dpi", 35.5, StillLife, {.inks = 4, .linesPerInch = 85}},
    {"four inks", "120 lpi at 300 dpi", 0, Scene, {.inks = 4, .linesPerInch = 120}},
    {"four inks", "133 lpi at 400 dpi", 0, OtherStillLife, {.inks = 4, .linesPerInch = 133, .dotsPerInch = 400}},
    {"four inks", "150 lpi at 600 dpi", 0, StillLife, {.inks = 4, .linesPerInch = 150, .dotsPerInch = 600, .softness = 1}},
    {"four inks", "175 lpi at 600 dpi", 0, Scene, {.inks = 4, .linesPerInch = 175, .dotsPerInch = 600, .softness = 1}},
    {"four inks", "85 lpi without noise", 0, OtherStillLife, {.inks = 4, .linesPerInch = 85, .noise = 0, .fibre = 0}},
    {"coarse", "four inks 54 lpi at 400 dpi", 28.4, StillLife, {.inks = 4, .linesPerInch = 54, .dotsPerInch = 400}},
    {"coarse", "four inks 42 lpi at 300 dpi", 0, Scene, {.inks = 4, .linesPerInch = 42}},
    {"coarse", "one ink 42 lpi at 300 dpi, 20 deg", 0, OtherStillLife, {.linesPerInch = 42, .turn = 20}},
    {"JPEG", "one ink 85 lpi, quality 75", 0, Scene, {.linesPerInch = 85}, 75},
    {"JPEG", "one ink 120 lpi, quality 85", 38.1, StillLife, {.linesPerInch = 120}, 85},
    {"JPEG", "four inks 85 lpi, quality 75", 0, OtherStillLife, {.inks = 4, .linesPerInch = 85}, 75},
    {"JPEG", "four inks 120 lpi, quality 90", 0, StillLife, {.inks = 4, .linesPerInch = 120}, 90},
    {"JPEG", "four inks 150 lpi at 600 dpi, quality 95", 0, Scene, {.inks = 4, .linesPerInch = 150, .dotsPerInch = 600, .softness = 1}, 95},
    {"turned", "one ink 85 lpi, 7 deg", 0, StillLife, {.linesPerInch = 85, .turn = 7}},
    {"turned", "one ink 100 lpi, 22 deg", 0, Scene, {.linesPerInch = 100, .turn = 22}},
    {"turned", "one ink 85 lpi, 44 deg", 37.8, OtherStillLife, {.linesPerInch = 85, .turn = 44}},
    {"turned", "four inks 85 lpi, 3 deg", 0, OtherStillLife, {.inks = 4, .linesPerInch = 85, .turn = 3}},
    {"turned", "four inks 133 lpi at 400 dpi, 11 deg", 0, Scene, {.inks = 4, .linesPerInch = 133, .dotsPerInch = 400, .turn = 11}},
    {"warped", "one ink 85 lpi, 4 px", 0, Scene, {.linesPerInch = 85, .warp = 4}},
    {"warped", "one ink 85 lpi, 8 px", 38.0, StillLife, {.linesPerInch = 85, .warp = 8}},
    {"warped", "one ink 65 lpi, 4 px", 0, OtherStillLife, {.linesPerInch = 65, .warp = 4}},
    {"warped", "four inks 85 lpi, 4 px", 0, StillLife, {.inks = 4, .linesPerInch = 85, .warp = 4}},
    {"warped", "four inks 65 lpi, 8 px", 30.9, Scene, {.inks = 4, .linesPerInch = 65, .warp = 8}},
    {"warped", "four inks 41 lpi, 5 px", 29.7, StillLife, {.inks = 4, .linesPerInch = 41, .warp = 5}},
    {"page", "one ink 85 lpi, lines of 18 px", 0, Scene, {.linesPerInch = 85, .frame = kOnPage}, 0, 18},
    {"page", "one ink 65 lpi, lines of 24 px", 37.9, StillLife, {.linesPerInch = 65, .frame = kOnPage}, 0, 24, nullptr, false, 35.2},
    {"page", "one ink 133 lpi at 400 dpi, lines of 32 px, JPEG 85", 0, OtherStillLife, {.linesPerInch = 133, .dotsPerInch = 400, .frame = kOnPage}, 85, 32},
    {"page", "one ink 100 lpi, turned 3 deg, lines of 14 px", 0, Scene, {.linesPerInch = 100, .turn = 3, .frame = kOnPage}, 0, 14},
    {"page", "four inks 85 lpi, lines of 20 px", 0, StillLife, {.inks = 4, .linesPerInch = 85, .frame = kOnPage}, 0, 20},
    {"page", "four inks 120 lpi, lines of 16 px", 0, Scene, {.inks = 4, .linesPerInch = 120, .frame = kOnPage}, 0, 16},
    {"page", "four inks 65 lpi, warped 7 px, lines of 26 px", 35.0, StillLife, {.inks = 4, .linesPerInch = 65, .warp = 7, .frame = kOnPage}, 0, 26, nullptr, false, 24.8},
    {"page", "four inks 100 lpi, warped 3 px, lines of 18 px", 36.8, Scene, {.inks = 4, .linesPerInch = 100, .warp = 3, .frame = kOnPage}, 0, 18, nullptr, false, 28.8},
    {"in light", "one ink 65 lpi", 39.8, StillLife, {.linesPerInch = 65, .gamma = 2.2}},
    {"in light", "one ink 100 lpi", 0, Scene, {.linesPerInch = 100, .gamma = 2.2}},
    {"in light", "four inks 85 lpi", 0, OtherStillLife, {.inks = 4, .linesPerInch = 85, .gamma = 2.2}},
    {"in light", "four inks 120 lpi", 0, Scene, {.inks = 4, .linesPerInch = 120, .gamma = 2.2}},
    {"16 bits", "one ink 85 lpi", 0, OtherStillLife, {.linesPerInch = 85, .noise = 0.004}, 0, 0, nullptr, true},
    {"16 bits", "four inks 100 lpi", 0, StillLife, {.inks = 4, .linesPerInch = 100, .noise = 0.004}, 0, 0, nullptr, true},
    {"texture", "hair, one ink 85 lpi", 0, Hair, {.linesPerInch = 85}},
    {"texture", "hair, four inks 120 lpi", 0, Hair, {.inks = 4, .linesPerInch = 120}},
    {"texture", "gravel, one ink 100 lpi", 0, Gravel, {.linesPerInch = 100}},
    {"texture", "gravel, four inks 133 lpi at 400 dpi", 0, Gravel, {.inks = 4, .linesPerInch = 133, .dotsPerInch = 400}},
    {"worn", "one ink 75 lpi", 31.2, Scene, {.linesPerInch = 75, .wear = 0.3}},
    {"worn", "four inks 85 lpi", 0, StillLife, {.inks = 4, .linesPerInch = 85, .wear = 0.2}},
    {"worn", "four inks 38 lpi", 27.3, Scene, {.inks = 4, .linesPerInch = 38, .turn = 0.9, .noise = 0, .wear = 0.27}},
    {"worn", "one ink 67 lpi at 200 dpi, soft", 34.0, OtherStillLife, {.linesPerInch = 67, .dotsPerInch = 200, .gamma = 2.2, .noise = 0.002, .wear = 0.26, .softness = 0.75}},
    {"lines", "65 lpi, 11 deg from upright", 0, StillLife, {.linesPerInch = 65, .turn = -34, .lines = true}},
    {"lines", "65 lpi, 3 deg from upright", 0, StillLife, {.linesPerInch = 65, .turn = -42, .lines = true}},
    {"lines", "80 lpi, upright", 34.3, Scene, {.linesPerInch = 80, .turn = -45, .lines = true}},
    {"noise", "waves of a cable", 36.9, Scene, {}, 0, 0, WithLineNoise},
    {"noise", "hum in a video", 41.3, StillLife, {}, 0, 0, WithHum},
    {"noise", "amplifiers by columns", 0, OtherStillLife, {}, 0, 0, WithAmplifiers},
    {"noise", "rows and columns", 41.7, Scene, {}, 0, 0, WithRowNoise},
    {"weave", "linen over the scene", 0, Scene, {}, 0, 0, WithWeave},
    {"weave", "linen over balls and boxes", 40.4, StillLife, {}, 0, 0, WithWeave},
    {"weave", "linen over hair", 0, Hair, {}, 0, 0, WithWeave},
  };
  return prints;
}

// What stays as it is.
const std::vector<CleanCase>& Cleans() {
  static const std::vector<CleanCase> cleans = {
    {"texture", "clouds", false, [] { return DrawTexture(kWidth, kHeight, {0.01, 0.01, 6}); }},
    {"texture", "sand", true, [] { return DrawTexture(kWidth, kHeight, {0.7, 0.7, 2, 0, 0, 0.7}); }},
    {"texture", "gravel", false, [] { return DrawTexture(kWidth, kHeight, {0.12, 0.12, 4, 0.5, 90, 1.2}); }},
    {"texture", "hair", true, [] { return DrawTexture(kWidth, kHeight, {0.3, 0.012, 3, 0.6, 160, 0.9}); }},
    {"texture", "combed hair", false, [] { return DrawTexture(kWidth, kHeight, {0.012, 0.35, 2, 0.9, 20, 0.9}); }},
    {"texture", "bark", false, [] { return DrawTexture(kWidth, kHeight, {0.15, 0.03, 4, 1, 60, 0.8}); }},
    {"texture", "ripples", false, [] { return DrawTexture(kWidth, kHeight, {0.02, 0.2, 3, 1, 30, 0.7}); }},
    {"texture", "wood", false, [] { return DrawTexture(kWidth, kHeight, {0.004, 0.12, 3, 0.8, 90, 0.7}); }},
    {"texture", "grass", false, [] { return DrawTexture(kWidth, kHeight, {0.4, 0.08, 3, 0.3, 80}); }},
    {"texture", "snow", false, [] { return DrawTexture(kWidth, kHeight, {0.05, 0.05, 5, 0, 0, 0.3}); }},
    {"photograph", "scene", false, [] { return Scene(); }},
    {"photograph", "scene, grey, noise of 2 %", false, [] { return AsShot(ToGrey(Scene()), 0.02, false); }},
    {"photograph", "scene, noise of 5 %", false, [] { return AsShot(Scene(), 0.05, false); }},
    {"photograph", "scene through a mosaic, noise of 2 %", false, [] { return AsShot(Scene(), 0.02, true); }},
    {"photograph", "balls and boxes", false, [] { return StillLife(); }},
    {"photograph", "balls through a mosaic, noise of 3 %", true, [] { return AsShot(StillLife(), 0.03, true); }},
    {"photograph", "other balls, noise of 1 %", false, [] { return AsShot(OtherStillLife(), 0.01, false); }},
    {"photograph", "1000 x 800 of balls through a mosaic, noise of 2 %", false, [] { return AsShot(DrawStillLife(1000, 800, 12), 0.02, true); }},
    {"JPEG", "scene, quality 20", false, [] { return ThroughJpeg(Scene(), 20); }},
    {"JPEG", "scene, quality 40", false, [] { return ThroughJpeg(Scene(), 40); }},
    {"JPEG", "scene, quality 75", false, [] { return ThroughJpeg(Scene(), 75); }},
    {"JPEG", "balls, quality 30", true, [] { return ThroughJpeg(StillLife(), 30); }},
    {"JPEG", "balls with noise, quality 50", false, [] { return ThroughJpeg(AsShot(StillLife(), 0.03, true), 50); }},
    {"JPEG", "gravel, quality 60", false, [] { return ThroughJpeg(Gravel(), 60); }},
    {"JPEG", "slope, quality 30", false, [] { return ThroughJpeg(DrawGradient(kWidth, kHeight, 0.01), 30); }},
    {"enlarged", "scene, 1.5 times", false, [] { return Enlarged(Cropped(Scene(), {0, 0, 460, 330}), 1.5); }},
    {"enlarged", "scene, twice", false, [] { return Enlarged(Cropped(Scene(), {200, 100, 550, 350}), 2); }},
    {"enlarged", "balls, 3 times", false, [] { return Enlarged(Cropped(StillLife(), {100, 100, 333, 266}), 3); }},
    {"enlarged", "gravel, 1.3 times", false, [] { return Enlarged(Cropped(Gravel(), {0, 0, 540, 385}), 1.3); }},
    {"enlarged", "noisy balls, 1.7 times", false, [] { return Enlarged(AsShot(Cropped(StillLife(), {0, 0, 400, 300}), 0.03, false), 1.7); }},
    {"text", "lines of 12 px", true, [] { return DrawWriting(kWidth, kHeight, {12}); }},
    {"text", "lines of 14 px", false, [] { return DrawWriting(kWidth, kHeight, {14}); }},
    {"text", "lines of 16 px", true, [] { return DrawWriting(kWidth, kHeight, {16}); }},
    {"text", "lines of 18.5 px", false, [] { return DrawWriting(kWidth, kHeight, {18.5}); }},
    {"text", "lines of 20 px, turned 1 deg", false, [] { return DrawWriting(kWidth, kHeight, {20, false, 1}); }},
    {"text", "lines of 22 px", false, [] { return DrawWriting(kWidth, kHeight, {22}); }},
    {"text", "lines of 24 px, turned 4 deg", false, [] { return DrawWriting(kWidth, kHeight, {24, false, 4}); }},
    {"text", "lines of 28 px, JPEG 60", false, [] { return ThroughJpeg(DrawWriting(kWidth, kHeight, {28}), 60); }},
    {"text", "lines of 32 px", false, [] { return DrawWriting(kWidth, kHeight, {32}); }},
    {"text", "lines of 40 px, turned 90 deg", false, [] { return DrawWriting(kHeight, kHeight, {40, false, 90}); }},
    {"text", "lines of 13.3 px without noise", true, [] { return DrawWriting(kWidth, kHeight, {13.3, false, 0, 0}); }},
    {"text", "lines of 23.5 px, 850 x 700", false, [] { return DrawWriting(850, 700, {23.5}); }},
    {"text", "lines of 41.3 px, turned 3.3 deg, JPEG 65", true, [] { return ThroughJpeg(DrawWriting(612, 700, {41.3, false, 3.3}), 65); }},
    {"digits", "lines of 33.7 px, 860 x 700, JPEG 64", true, [] { return ThroughJpeg(DrawWriting(860, 700, {33.7, true}), 64); }},
    {"digits", "lines of 30.5 px, 810 x 700, JPEG 33", false, [] { return ThroughJpeg(DrawWriting(810, 700, {30.5, true}), 33); }},
    {"digits", "lines of 14 px", false, [] { return DrawWriting(kWidth, kHeight, {14, true}); }},
    {"digits", "lines of 18 px", true, [] { return DrawWriting(kWidth, kHeight, {18, true}); }},
    {"digits", "lines of 22 px, turned 2 deg", true, [] { return DrawWriting(kWidth, kHeight, {22, true, 2}); }},
    {"digits", "lines of 28 px", false, [] { return DrawWriting(kWidth, kHeight, {28, true}); }},
    {"digits", "lines of 20 px, JPEG 70", false, [] { return ThroughJpeg(DrawWriting(kWidth, kHeight, {20, true}), 70); }},
    {"writing", "small, crooked, of seed 405", true, [] { return RandomClean(405).draw(); }},
    {"writing", "of seed 909", true, [] { return RandomClean(909).draw(); }},
    {"writing", "of seed 1058", false, [] { return RandomClean(1058).draw(); }},
    {"barcode", "modules of 2 px", false, [] { return DrawBarcodes(kWidth, kHeight, 2); }},
    {"barcode", "modules of 3 px", true, [] { return DrawBarcodes(kWidth, kHeight, 3); }},
    {"barcode", "modules of 4.3 px", false, [] { return DrawBarcodes(kWidth, kHeight, 4.3); }},
    {"fence", "in perspective", false, [] { return DrawRepeats(kWidth, kHeight, {Repeat::kFence, 24, 0.6}); }},
    {"fence", "far away", false, [] { return DrawRepeats(kWidth, kHeight, {Repeat::kFence, 9, 0.4, 2}); }},
    {"fence", "square on", false, [] { return DrawRepeats(kWidth, kHeight, {Repeat::kFence, 30}); }},
    {"bricks", "in perspective", true, [] { return DrawRepeats(kWidth, kHeight, {Repeat::kBricks, 16, 0.7}); }},
    {"bricks", "small, in perspective", false, [] { return DrawRepeats(kWidth, kHeight, {Repeat::kBricks, 8, 0.8, 4}); }},
    {"bricks", "square on", true, [] { return DrawRepeats(kWidth, kHeight, {Repeat::kBricks, 14}); }},
    {"windows", "in perspective", false, [] { return DrawRepeats(kWidth, kHeight, {Repeat::kWindows, 30, 0.8}); }},
    {"windows", "turned, in perspective", false, [] { return DrawRepeats(kWidth, kHeight, {Repeat::kWindows, 18, 0.6, 6}); }},
    {"windows", "a tower far away", false, [] { return DrawRepeats(kWidth, kHeight, {Repeat::kWindows, 10, 0.3, 1}); }},
    {"windows", "square on", false, [] { return DrawRepeats(kWidth, kHeight, {Repeat::kWindows, 36}); }},
    {"cloth", "in folds", false, [] { return DrawRepeats(kWidth, kHeight, {Repeat::kCloth, 6, 0.2, 20, 60}); }},
    {"cloth", "in many folds", false, [] { return DrawRepeats(kWidth, kHeight, {Repeat::kCloth, 9, 0.3, 50, 150}); }},
    {"cloth", "stretched in perspective", false, [] { return DrawRepeats(kWidth, kHeight, {Repeat::kCloth, 7, 0.7, 30}); }},
    {"blinds", "in perspective", false, [] { return DrawRepeats(kWidth, kHeight, {Repeat::kBlinds, 14, 0.6, 3}); }},
    {"blinds", "square on", false, [] { return DrawRepeats(kWidth, kHeight, {Repeat::kBlinds, 20}); }},
    {"tiles", "in perspective", false, [] { return DrawRepeats(kWidth, kHeight, {Repeat::kTiles, 24, 0.8, 45}); }},
    {"tiles", "small, in perspective", false, [] { return DrawRepeats(kWidth, kHeight, {Repeat::kTiles, 11, 0.8, 10}); }},
    {"slope", "without noise", true, [] { return DrawGradient(kWidth, kHeight, 0); }},
    {"slope", "with noise", false, [] { return DrawGradient(kWidth, kHeight, 0.01); }},
    {"spokes", "60", false, [] { return DrawSpokes(kWidth, kHeight, 60, 0); }},
    {"spokes", "90 with rings of 7 px", false, [] { return DrawSpokes(kWidth, kHeight, 90, 7); }},
  };
  return cleans;
}
// clang-format on

}  // namespace

std::span<const PrintCase> PrintCases() {
  return Prints();
}
std::span<const CleanCase> CleanCases() {
  return Cleans();
}

Printed Draw(const PrintCase& print) {
  const Picture subject = print.subject();
  Printed printed{subject, subject};
  if (print.pattern != nullptr) {
    printed.picture = print.pattern(subject);
    printed.original = FitTone(subject, printed.picture);
  } else if (print.spacing > 0) {
    const Frame& frame = print.press.frame;
    const Picture part =
        Cropped(subject, {140, 100, 140 + frame.right - frame.left, 100 + frame.bottom - frame.top});
    printed =
        PrintOn(print.press, OnPage(part, kPageWidth, kPageHeight, frame.left, frame.top, print.spacing));
  } else {
    printed = PrintOn(print.press, subject);
  }
  if (print.jpeg > 0) printed.picture = ThroughJpeg(printed.picture, print.jpeg);
  return printed;
}

}  // namespace tessaline::quality
