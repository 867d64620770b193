// Whole runs against the transforms of FFTW that they stand for, and peak memory; one process per size so
// that each has a peak of its own.
//
//   build/native/bench/run_bench [--runs N] [--threads N] [WIDTHxHEIGHT ...]
//
// Default: 5 runs, 2 threads, the sizes of docs/performance.md. Every round times, one after the other, the
// run with one thread, the run with N threads, N runs of one thread each in as many processes at once, the
// run that applies a mask kept from before, and nine single-precision complex transforms of the same side by
// FFTW (planned with FFTW_MEASURE, in place, one thread): a plain RGB run takes as many, three to look and
// six to remove. Ratios are medians of the rounds' ratios. Times are processor time of one thread, wall time
// for N. The memory of both workspaces is kept from round to round, as an engine's is from picture to
// picture.
//
// The runs side by side share nothing but the machine: what they take over N, against one alone, is what the
// machine's memory (and whoever else is at work) leaves for N threads to win.
#include <fftw3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/whole_runs.h"
#include "platform/cpu.h"
#include "removal/steps.h"

namespace tessaline {
namespace {

double TimeOf(clockid_t clock, const std::function<void()>& work) {
  const double begun = SecondsBy(clock);
  work();
  return SecondsBy(clock) - begun;
}

Image MakePicture(Size size) {
  Image picture;
  if (!picture.Create(size.width, size.height, 3)) std::abort();
  for (int32_t y = 0; y < size.height; ++y) {
    uint8_t* const row = picture.view().Row(y);
    for (int32_t x = 0; x < size.width; ++x) {
      const double screen = std::cos(x * 1.3 + y * 0.4) * std::cos(y * 1.3 - x * 0.4);
      for (int32_t c = 0; c < 3; ++c) {
        row[3 * x + c] = static_cast<uint8_t>(
            110 + 60 * std::sin((x + 40 * c) * 0.003) * std::cos(y * 0.002) + 40 * screen);
      }
    }
  }
  return picture;
}

constexpr Settings kSettings = {false, 95, 1, 6, 8};

// A run from picture to picture.
void RunOver(const PictureView& from, const PictureView& to, Workspace& workspace, Mask* mask) {
  Analysis analysis;
  Findings findings;
  Demand(Analyse(from, workspace, {}, &analysis, DecisionKind::kByNumber));
  Demand(Decide(analysis, kSettings, &findings));
  Demand(Shape(findings, kSettings, mask));
  Demand(Apply(from, to, *mask, workspace, {Rounding::kTruncate, analysis.chain}, {}));
}

// Another process with a picture of its own, which runs when told.
class Neighbour {
 public:
  explicit Neighbour(Size size) {
    int orders[2], answers[2];
    if (pipe(orders) != 0 || pipe(answers) != 0) std::abort();
    process_ = fork();
    if (process_ < 0) std::abort();
    close(orders[process_ != 0 ? 0 : 1]);
    close(answers[process_ != 0 ? 1 : 0]);
    if (process_ == 0) Serve(size, orders[0], answers[1]);
    order_ = orders[1];
    answer_ = answers[0];
    Await();  // its picture is made
  }
  ~Neighbour() {
    close(order_);
    close(answer_);
    waitpid(process_, nullptr, 0);
  }
  Neighbour(const Neighbour&) = delete;
  Neighbour& operator=(const Neighbour&) = delete;

  void Begin() const {
    if (write(order_, "", 1) != 1) std::abort();
  }
  void Await() const {
    char done;
    if (read(answer_, &done, 1) != 1) std::abort();
  }

 private:
  [[noreturn]] static void Serve(Size size, int orders, int answers) {
    const Image original = MakePicture(size);
    Image picture = MakePicture(size);
    const PictureView view = PictureOf(picture.view());
    Mask mask;
    for (char order; write(answers, "", 1) == 1;) {
      CopyImage(original.view(), picture.view());
      if (read(orders, &order, 1) != 1) break;
      Workspace workspace;
      RunOver(view, view, workspace, &mask);
    }
    _exit(0);
  }

  pid_t process_ = 0;
  int order_ = 0, answer_ = 0;
};

void PrintRow(Size size, int runs, int32_t threads) {
  std::vector<std::unique_ptr<Neighbour>> neighbours;
  for (int32_t i = 1; i < threads; ++i) neighbours.push_back(std::make_unique<Neighbour>(size));
  const Image original = MakePicture(size);
  Image picture = MakePicture(size);
  const PictureView view = PictureOf(picture.view());
  const auto restore = [&] { CopyImage(original.view(), picture.view()); };
  Mask mask;
  {
    Workspace workspace;
    RunOver(view, view, workspace, &mask);
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);

  const auto pool = MakeThreadPool(threads);
  const int32_t n = TransformSizeFor(view);
  auto* const plane = fftwf_alloc_complex(static_cast<size_t>(n) * static_cast<size_t>(n));
  const fftwf_plan plan = fftwf_plan_dft_2d(n, n, plane, plane, FFTW_FORWARD, FFTW_MEASURE);
  std::memset(plane, 0, sizeof(fftwf_complex) * static_cast<size_t>(n) * static_cast<size_t>(n));
  std::vector<double> run, frozen, fftw, runWall, pooled, together;
  Workspace one, several(*pool);
  for (int i = 0; i < runs; ++i) {
    restore();
    const double begun = SecondsBy(CLOCK_MONOTONIC);
    run.push_back(TimeOf(CLOCK_PROCESS_CPUTIME_ID, [&] { RunOver(view, view, one, &mask); }));
    runWall.push_back(SecondsBy(CLOCK_MONOTONIC) - begun);
    restore();
    pooled.push_back(TimeOf(CLOCK_MONOTONIC, [&] { RunOver(view, view, several, &mask); }));
    restore();
    together.push_back(TimeOf(CLOCK_MONOTONIC,
                              [&] {
                                for (const auto& neighbour : neighbours) neighbour->Begin();
                                RunOver(view, view, one, &mask);
                                for (const auto& neighbour : neighbours) neighbour->Await();
                              }) /
                       threads);
    restore();
    frozen.push_back(TimeOf(CLOCK_PROCESS_CPUTIME_ID, [&] { Demand(Apply(view, view, mask, one, {}, {})); }));
    fftw.push_back(TimeOf(CLOCK_PROCESS_CPUTIME_ID, [&] {
      for (int transform = 0; transform < 9; ++transform) fftwf_execute(plan);
    }));
  }
  const auto ratio = [](const std::vector<double>& a, const std::vector<double>& b) {
    std::vector<double> ratios;
    for (size_t i = 0; i < a.size(); ++i) ratios.push_back(a[i] / b[i]);
    return MedianOf(ratios);
  };
  std::printf("| %d x %d | %.3f | %.3f | %.2f | %.2f | %.2f | %.2f | %.0f MiB |\n", size.width, size.height,
              MedianOf(run), MedianOf(fftw), ratio(run, fftw), ratio(pooled, runWall),
              ratio(together, runWall), ratio(frozen, run), static_cast<double>(usage.ru_maxrss) / 1024.0);
  fftwf_destroy_plan(plan);
  fftwf_free(plane);
}

int Main(int argc, char** argv) {
  const auto [runs, threads, sizes] = ReadWholeRunOptions(argc, argv);
  constexpr const char* kLevelNames[] = {"SSE2", "AVX2", "AVX-512"};
  std::printf("RGB 8-bit, medians of %d rounds; vectors: %s\n\n", runs,
              kLevelNames[static_cast<int>(DetectVectorLevel())]);
  std::printf(
      "| picture | run, s | nine FFTW transforms, s | run / FFTW | %d threads / 1 | %d runs at once / "
      "one after the other | mask kept / run | peak memory, 1 thread |\n|---|---|---|---|---|---|---|---|\n",
      threads, threads);
  for (const Size size : sizes) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
      PrintRow(size, runs, threads);
      std::fflush(stdout);
      _exit(0);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || status != 0) return 1;
  }
  return 0;
}

}  // namespace
}  // namespace tessaline

int main(int argc, char** argv) {
  return tessaline::Main(argc, argv);
}
