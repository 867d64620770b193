// What the restoration adds to an automatic run: the same pictures with it (licences checked, smeared peaks,
// gate, polish) and with notches alone, one after the other in every round; peak memory by a process of its
// own for each of them.
//
//   build/native/bench/restoration_bench [--runs N] [--threads N] [WIDTHxHEIGHT ...]
//
// Ratios are medians of the rounds' ratios: processor time with one thread, wall time with N. Either kind of
// run keeps its memory from round to round, as a host's runs do, and a first round of both warms it up and
// does not count. The drawn picture has a screen at an angle of its own in each channel, with a second
// harmonic: the gate has all the carriers it can take.
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/whole_runs.h"
#include "restoration/decision.h"
#include "restoration/gate.h"
#include "restoration/restoration.h"

namespace tessaline {
namespace {

Image MakePicture(Size size) {
  constexpr double kCosine[] = {0.966, 0.707, 0.259}, kSine[] = {0.259, 0.707, 0.966};
  Image picture;
  if (!picture.Create(size.width, size.height, 3)) std::abort();
  for (int32_t y = 0; y < size.height; ++y) {
    uint8_t* const row = picture.view().Row(y);
    for (int32_t x = 0; x < size.width; ++x) {
      for (int32_t c = 0; c < 3; ++c) {
        const double u = 1.3 * (x * kCosine[c] + y * kSine[c]), v = 1.3 * (y * kCosine[c] - x * kSine[c]);
        const double screen = std::cos(u) * std::cos(v);
        row[3 * x + c] =
            static_cast<uint8_t>(110 + 60 * std::sin((x + 40 * c) * 0.003) * std::cos(y * 0.002) +
                                 40 * screen + 20 * screen * screen);
      }
    }
  }
  return picture;
}

struct Seconds {
  double decision = 0, end = 0, whole = 0;
};

// An automatic run in place.
Seconds RunOver(const PictureView& picture, bool restores, Workspace& workspace, clockid_t clock,
                int32_t* carriers) {
  Settings settings;
  settings.isAutomatic = true;
  Analysis analysis;
  Findings findings;
  Mask mask;
  const double begun = SecondsBy(clock);
  Demand(Analyse(picture, workspace, {}, &analysis));
  const double analysed = SecondsBy(clock);
  Demand(restores ? DecideWhole(picture, analysis, settings, workspace, &findings)
                  : Decide(analysis, settings, &findings));
  const double decided = SecondsBy(clock);
  Demand(Shape(findings, settings, &mask));
  const ApplyOptions options{Rounding::kNearest, analysis.chain};
  Demand(restores ? Restore(picture, picture, findings, mask, workspace, options, {}, {})
                  : Apply(picture, picture, mask, workspace, options, {}));
  *carriers = static_cast<int32_t>(PlanGate(findings).carriers.size());
  const double ended = SecondsBy(clock);
  return {decided - analysed, ended - decided, ended - begun};
}

struct Pairs {
  std::vector<double> with, without, ratios, decisions, ends;

  void Add(const Seconds& restored, const Seconds& alone) {
    with.push_back(restored.whole);
    without.push_back(alone.whole);
    ratios.push_back(restored.whole / alone.whole);
    decisions.push_back(restored.decision - alone.decision);
    ends.push_back(restored.end - alone.end);
  }
};

void PrintTimes(Size size, int runs, int32_t threads) {
  const Image original = MakePicture(size);
  Image picture;
  if (!picture.Create(size.width, size.height, 3)) std::abort();
  const PictureView view = PictureOf(picture.view());
  const auto pool = MakeThreadPool(threads);
  Pairs one, several;
  int32_t carriers = 0;
  for (const bool isPooled : {false, true}) {
    const clockid_t clock = isPooled ? CLOCK_MONOTONIC : CLOCK_PROCESS_CPUTIME_ID;
    Parallel& parallel = isPooled ? *pool : SerialWork();
    Workspace workspaces[] = {Workspace(parallel), Workspace(parallel)};
    for (int i = 0; i <= runs; ++i) {
      Seconds seconds[2];
      for (const bool restores : {false, true}) {
        CopyImage(original.view(), picture.view());
        seconds[restores] = RunOver(view, restores, workspaces[restores], clock, &carriers);
      }
      if (i > 0) (isPooled ? several : one).Add(seconds[true], seconds[false]);
    }
  }
  std::printf("| %d x %d | %d | %.3f | %.3f | %.2f | %.2f | %+.3f | %+.3f |", size.width, size.height,
              carriers, MedianOf(one.without), MedianOf(one.with), MedianOf(one.ratios),
              MedianOf(several.ratios), MedianOf(one.decisions), MedianOf(one.ends));
}

void PrintMemory(Size size, bool restores) {
  Image picture = MakePicture(size);
  Workspace workspace;
  int32_t carriers = 0;
  RunOver(PictureOf(picture.view()), restores, workspace, CLOCK_MONOTONIC, &carriers);
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf(" %.0f MiB |%s", static_cast<double>(usage.ru_maxrss) / 1024.0, restores ? "\n" : "");
}

// What has a peak of memory of its own. False: it failed.
template <typename Work>
bool InProcess(const Work& work) {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    work();
    std::fflush(stdout);
    _exit(0);
  }
  int status = 0;
  return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

int Main(int argc, char** argv) {
  const auto [runs, threads, sizes] = ReadWholeRunOptions(argc, argv);
  std::printf("RGB 8-bit, medians of %d rounds after one that warms up\n\n", runs);
  std::printf(
      "| picture | carriers | notches alone, s | restored, s | ratio | ratio, %d threads | decision, s | "
      "last step, s "
      "| peak memory, notches alone | restored |\n|---|---|---|---|---|---|---|---|---|---|\n",
      threads);
  for (const Size size : sizes) {
    if (!InProcess([&, runs = runs, threads = threads] { PrintTimes(size, runs, threads); }) ||
        !InProcess([&] { PrintMemory(size, false); }) || !InProcess([&] { PrintMemory(size, true); })) {
      return 1;
    }
  }
  return 0;
}

}  // namespace
}  // namespace tessaline

int main(int argc, char** argv) {
  return tessaline::Main(argc, argv);
}
