// The detector that works from the picture itself beside the threshold test and beside the run that it is
// part of, on the pictures of tests/data.
//
//   build/native/bench/detector_bench
#include <benchmark/benchmark.h>

#include <string>

#include "buffers/buffer_table.h"
#include "removal/automatic_detection.h"
#include "removal/removal_run.h"
#include "tests/support/picture_files.h"

namespace tessaline {
namespace {

constexpr const char* kPictures[] = {"halftone-grey8", "rosette-rgb8", "weave-rgb16", "lines-grey8",
                                     "text-grey8"};
constexpr double kSpan = 10.0;  // of these pictures 9.4 to 10.9; the time does not depend on it much

struct Spectra {
  int32_t gray16, enhanced;
  OwnedBuffer seeds;

  explicit Spectra(const std::string& name)
      : gray16(MakeBuffer(ReadPicture(name + "/gray16.png"))),
        enhanced(MakeBuffer(ReadPicture(name + "/enhanced.png"))) {
    seeds.Create("seeds", kSpectrumCells, kSpectrumCells, 1);
  }
  ~Spectra() {
    ReleaseBuffer(gray16);
    ReleaseBuffer(enhanced);
  }
};

void AutomaticDetection(benchmark::State& state) {
  const char* const name = kPictures[state.range(0)];
  state.SetLabel(name);
  Spectra spectra(name);
  for (auto _ : state) {
    DetectPeaksAutomatically(spectra.gray16, spectra.enhanced, kSpan, 1024, 1.0, 8, spectra.seeds.slot(),
                             nullptr);
  }
}
BENCHMARK(AutomaticDetection)->DenseRange(0, std::size(kPictures) - 1)->Unit(benchmark::kMillisecond);

void ThresholdTest(benchmark::State& state) {
  Spectra spectra(kPictures[0]);
  for (auto _ : state) DetectPeaks(spectra.enhanced, 127.5f, 8, spectra.seeds.slot());
}
BENCHMARK(ThresholdTest)->Unit(benchmark::kMillisecond);

void WholeRun(benchmark::State& state) {
  const char* const name = kPictures[state.range(0)];
  state.SetLabel(name);
  const int32_t slot = MakeBuffer(ReadPicture(std::string(name) + "/input.png"));
  for (auto _ : state) {
    FilterParameters parameters{98, 6, 8};
    RunRemoval(slot, &parameters, nullptr, true, RemovalContext{});
  }
  ReleaseBuffer(slot);
}
BENCHMARK(WholeRun)->Arg(1)->Arg(3)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tessaline

BENCHMARK_MAIN();
