// How well the pattern goes and the picture stays: pictures with known originals, before and after a run with
// the default acceptance, the highest one, and the one found from the picture itself. Notch radius 6,
// protection radius 8.
//
//   build/native/bench/quality_bench          prints a table in Markdown
//
// PSNR in dB against the original, fitted to the picture's range of tones first (ink and paper are not black
// and white). "left" is the share of the pattern that is still there: the part of what the run left over the
// original that runs like the pattern did, 100 % before, 0 % for a perfect removal.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "removal/steps.h"
#include "samples/drawing.h"
#include "samples/noise.h"
#include "samples/scene.h"
#include "samples/screens.h"

namespace tessaline {
namespace {

using samples::Picture;

Picture ToGrey(const Picture& rgb) {
  Picture grey(rgb.width, rgb.height, 1);
  for (int y = 0; y < rgb.height; ++y) {
    for (int x = 0; x < rgb.width; ++x) {
      grey.At(x, y, 0) = 0.299f * rgb.At(x, y, 0) + 0.587f * rgb.At(x, y, 1) + 0.114f * rgb.At(x, y, 2);
    }
  }
  return grey;
}

Picture WithGrain(Picture picture) {
  samples::Random random(11);
  for (float& sample : picture.samples) {
    sample = std::clamp(sample + static_cast<float>(0.02 * random.Normal()), 0.0f, 1.0f);
  }
  return picture;
}

// Black bars and blocks on white in lines of 24 pixels, as a page of text looks from afar.
Picture TextPage(int width, int height) {
  samples::Random random(5);
  Picture page(width, height, 1);
  std::fill(page.samples.begin(), page.samples.end(), 0.95f);
  for (int top = 30; top + 12 < height - 30; top += 24) {
    for (int x = 40; x < width - 40;) {
      const int stroke = 2 + static_cast<int>(random.Uniform() * 3);
      const int rise = static_cast<int>(random.Uniform() * 6);
      for (int y = top + rise; y < top + 12; ++y) {
        for (int i = x; i < std::min(x + stroke, width - 40); ++i) page.At(i, y, 0) = 0.1f;
      }
      x += stroke + 2 + static_cast<int>(random.Uniform() * 5) + (random.Uniform() < 0.15 ? 9 : 0);
    }
  }
  return page;
}

struct Case {
  std::string name;
  Picture original;  // of the printed picture's channels
  Picture picture;
};

std::vector<uint8_t> ToBytes(const Picture& picture) {
  std::vector<uint8_t> bytes;
  for (const float sample : picture.samples) {
    bytes.push_back(static_cast<uint8_t>(std::lround(255 * std::clamp(sample, 0.0f, 1.0f))));
  }
  return bytes;
}

// The original in the picture's range of tones: gain and offset per channel that fit best.
std::vector<double> FitToneOf(const Picture& original, const std::vector<uint8_t>& picture) {
  const size_t channels = static_cast<size_t>(original.channels);
  std::vector<double> fitted(picture.size());
  for (size_t c = 0; c < channels; ++c) {
    double n = 0, x = 0, y = 0, xx = 0, xy = 0;
    for (size_t i = c; i < picture.size(); i += channels) {
      n += 1, x += original.samples[i], y += picture[i];
      xx += double(original.samples[i]) * original.samples[i], xy += double(original.samples[i]) * picture[i];
    }
    const double gain = (n * xy - x * y) / (n * xx - x * x);
    const double offset = (y - gain * x) / n;
    for (size_t i = c; i < picture.size(); i += channels) fitted[i] = gain * original.samples[i] + offset;
  }
  return fitted;
}

template <typename Sample>
double Psnr(const std::vector<uint8_t>& picture, const std::vector<Sample>& reference) {
  double error = 0;
  for (size_t i = 0; i < picture.size(); ++i) error += std::pow(double(picture[i]) - reference[i], 2);
  return error == 0 ? INFINITY : 10 * std::log10(255.0 * 255.0 * static_cast<double>(picture.size()) / error);
}

double ShareLeft(const std::vector<uint8_t>& before, const std::vector<uint8_t>& after,
                 const std::vector<double>& reference) {
  double both = 0, pattern = 0;
  for (size_t i = 0; i < before.size(); ++i) {
    both += (before[i] - reference[i]) * (after[i] - reference[i]);
    pattern += (before[i] - reference[i]) * (before[i] - reference[i]);
  }
  return pattern > 0 ? both / pattern : 0;
}

struct Cleaned {
  std::vector<uint8_t> bytes;
  bool isChanged;
};

// One run as the program makes it: where nothing is found, the picture stays sample for sample.
Cleaned Clean(const Picture& picture, float acceptance, bool isAutomatic) {
  std::vector<uint8_t> bytes = ToBytes(picture);
  const PictureView view =
      PictureOf(PackedView(bytes.data(), picture.width, picture.height, picture.channels));
  Settings settings;
  settings.isAutomatic = isAutomatic;
  settings.acceptance = acceptance;
  Workspace workspace;
  Analysis analysis;
  Findings findings;
  Mask mask;
  int32_t result = Analyse(view, workspace, {}, &analysis);
  if (result == kSuccess) result = Decide(analysis, settings, &findings);
  if (result == kSuccess) result = Shape(findings, settings, &mask);
  const bool isFound = findings.seedCells > 0;
  if (result == kSuccess && isFound) {
    result = Apply(view, view, mask, workspace, {Rounding::kTruncate, analysis.chain}, {});
  }
  if (result != kSuccess) std::fprintf(stderr, "a run ended with %d\n", result);
  return {bytes, isFound};
}

void PrintCase(const Case& test) {
  const std::vector<uint8_t> before = ToBytes(test.picture);
  const bool hasPattern = test.original.samples != test.picture.samples;
  const std::vector<double> reference =
      hasPattern ? FitToneOf(test.original, before) : std::vector<double>(before.begin(), before.end());
  std::printf("| %s | ", test.name.c_str());
  if (hasPattern) {
    std::printf("%.2f", Psnr(before, reference));
  } else {
    std::printf("no pattern");
  }
  for (const auto& [acceptance, isAutomatic] : {std::pair{60.0f, false}, {100.0f, false}, {60.0f, true}}) {
    const Cleaned cleaned = Clean(test.picture, acceptance, isAutomatic);
    if (!cleaned.isChanged) {
      std::printf(" | untouched");
    } else if (hasPattern) {
      std::printf(" | %.2f, %.0f %% left", Psnr(cleaned.bytes, reference),
                  100 * ShareLeft(before, cleaned.bytes, reference));
    } else {
      std::printf(" | **%.2f**", Psnr(cleaned.bytes, reference));
    }
    std::fflush(stdout);
  }
  std::printf(" |\n");
}

int Main() {
  std::printf("| picture | before | 60 | 100 | auto |\n|---|---|---|---|---|\n");
  for (const auto& [width, height] : {std::pair{700, 500}, {1240, 900}}) {
    const std::string size = std::to_string(width) + " x " + std::to_string(height);
    const Picture scene = samples::DrawScene(width, height);
    const Picture grey = ToGrey(scene);
    for (const double lines : {65.0, 85.0, 120.0}) {
      const std::string ruling = std::to_string(static_cast<int>(lines)) + " lpi, ";
      PrintCase({"newsprint " + ruling + size, grey, samples::PrintNewsprint(scene, lines, 300)});
      PrintCase({"four inks " + ruling + size, scene, samples::PrintFourInks(scene, lines, 300)});
    }
    PrintCase({"line noise, " + size, scene, samples::WithLineNoise(scene)});
    PrintCase({"weave, " + size, scene, samples::WithWeave(scene)});
    PrintCase({"the scene itself, " + size, scene, scene});
    const Picture grainy = WithGrain(grey);
    PrintCase({"the scene, grey with grain, " + size, grainy, grainy});
    const Picture page = TextPage(width, height);
    PrintCase({"page of text, " + size, page, page});
  }
  return 0;
}

}  // namespace
}  // namespace tessaline

int main() {
  return tessaline::Main();
}
