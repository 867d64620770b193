// The detector that works from the picture itself beside the threshold test and beside the run that it is
// part of, on the pictures of tests/data.
//
//   build/native/bench/detector_bench
#include <benchmark/benchmark.h>

#include <string>

#include "removal/peak_detection.h"
#include "removal/steps.h"
#include "tests/support/picture_files.h"

namespace tessaline {
namespace {

constexpr const char* kPictures[] = {"halftone-grey8", "rosette-rgb8", "weave-rgb16", "lines-grey8",
                                     "text-grey8"};
constexpr double kSpan = 10.0;  // of these pictures 9.4 to 10.9; the time does not depend on it much

struct Spectra {
  Image gray16, enhanced, seeds;

  explicit Spectra(const std::string& name)
      : gray16(ImageOf(ReadPicture(name + "/gray16.png"))),
        enhanced(ImageOf(ReadPicture(name + "/enhanced.png"))) {
    seeds.Create(kSpectrumCells, kSpectrumCells, 1);
  }
};

void AutomaticDetection(benchmark::State& state) {
  const char* const name = kPictures[state.range(0)];
  state.SetLabel(name);
  Spectra spectra(name);
  while (state.KeepRunning()) {
    DetectPeaksAutomatically(spectra.gray16.view(), spectra.enhanced.view(), kSpan, 1024, 1.0, 8,
                             spectra.seeds.view(), nullptr);
  }
}
BENCHMARK(AutomaticDetection)->DenseRange(0, std::size(kPictures) - 1)->Unit(benchmark::kMillisecond);

void ThresholdTest(benchmark::State& state) {
  Spectra spectra(kPictures[0]);
  while (state.KeepRunning()) DetectPeaks(spectra.enhanced.view(), 127.5f, 8, spectra.seeds.view());
}
BENCHMARK(ThresholdTest)->Unit(benchmark::kMillisecond);

void WholeRun(benchmark::State& state) {
  const char* const name = kPictures[state.range(0)];
  state.SetLabel(name);
  Image picture = ImageOf(ReadPicture(std::string(name) + "/input.png"));
  const PictureView view = PictureOf(picture.view());
  const Settings settings = {false, 98, 1, 6, 8};
  Workspace workspace;
  while (state.KeepRunning()) {
    Analysis analysis;
    Findings findings;
    Mask mask;
    Analyse(view, workspace, {}, &analysis);
    Decide(analysis, settings, &findings);
    Shape(findings, settings, &mask);
    Apply(view, view, mask, workspace, {Rounding::kTruncate, analysis.chain}, {});
  }
}
BENCHMARK(WholeRun)->Arg(1)->Arg(3)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tessaline

BENCHMARK_MAIN();
