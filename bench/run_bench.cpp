// Whole runs: seconds per stage and peak memory, one process per size so that each has a peak of its own.
//
//   build/native/bench/run_bench [--runs N] [WIDTHxHEIGHT ...]      default 3 runs; the sizes of
//   docs/performance.md
//
// Times are processor seconds, medians over the runs. "fill / transforms" holds the padding fills against the
// transforms of the same channels, the peer that they must not exceed.
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "buffers/buffer_table.h"
#include "platform/cpu.h"
#include "removal/removal_run.h"

namespace tessaline {
namespace {

struct Size {
  int32_t width, height;
};

// Processor time: the run is single-threaded, and what else the machine does must not count.
struct Clock {
  using duration = std::chrono::nanoseconds;
  using time_point = std::chrono::time_point<Clock, duration>;
  static time_point now() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return time_point(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
  }
};
constexpr size_t kStages = static_cast<size_t>(RemovalStage::kCount);

// Where the time goes: stages of the two passes apart.
struct StageClock {
  bool inSecondPass = false;
  RemovalStage stage = RemovalStage::kCount;
  Clock::time_point entered = Clock::now();
  std::array<double, kStages> firstPass{}, secondPass{};

  void Enter(RemovalStage next) {
    const Clock::time_point now = Clock::now();
    if (stage != RemovalStage::kCount) {
      (inSecondPass ? secondPass : firstPass)[static_cast<size_t>(stage)] +=
          std::chrono::duration<double>(now - entered).count();
    }
    if (stage == RemovalStage::kMask) inSecondPass = true;
    stage = next;
    entered = now;
  }
};

struct Timing {
  double load, fill, forward, spectrum, mask, secondPass, secondFill, secondTransforms, total;
};

Timing TimeOneRun(Size size) {
  ResetBufferTable();
  int32_t slot = 0;
  if (CreateBuffer("main", size.width, size.height, 3, &slot) != 0) std::abort();
  for (int32_t y = 0; y < size.height; ++y) {
    uint8_t* const row = BufferRow(slot, y);
    for (int32_t x = 0; x < size.width; ++x) {
      const double screen = std::cos(x * 1.3 + y * 0.4) * std::cos(y * 1.3 - x * 0.4);
      for (int32_t c = 0; c < 3; ++c) {
        row[3 * x + c] = static_cast<uint8_t>(
            110 + 60 * std::sin((x + 40 * c) * 0.003) * std::cos(y * 0.002) + 40 * screen);
      }
    }
  }
  StageClock clock;
  RemovalContext context;
  context.user = &clock;
  context.enterStage = [](void* user, RemovalStage stage) { static_cast<StageClock*>(user)->Enter(stage); };
  FilterParameters parameters{95, 6, 8};
  const Clock::time_point start = Clock::now();
  if (RunRemoval(slot, &parameters, nullptr, true, context) != 0) std::abort();
  clock.Enter(RemovalStage::kCount);
  const double total = std::chrono::duration<double>(Clock::now() - start).count();
  ReleaseBuffer(slot);
  const auto first = [&](RemovalStage stage) { return clock.firstPass[static_cast<size_t>(stage)]; };
  const auto second = [&](RemovalStage stage) { return clock.secondPass[static_cast<size_t>(stage)]; };
  double secondPass = 0;
  for (const double seconds : clock.secondPass) secondPass += seconds;
  return {first(RemovalStage::kLoad),
          first(RemovalStage::kPaddingFill),
          first(RemovalStage::kForward),
          first(RemovalStage::kSpectrum),
          first(RemovalStage::kMask),
          secondPass,
          second(RemovalStage::kPaddingFill),
          second(RemovalStage::kForward) + second(RemovalStage::kInverse),
          total};
}

double MedianOf(const std::vector<Timing>& timings, double Timing::*field) {
  std::vector<double> values;
  for (const Timing& timing : timings) values.push_back(timing.*field);
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

void PrintRow(Size size, int runs) {
  std::vector<Timing> timings;
  for (int i = 0; i < runs; ++i) timings.push_back(TimeOneRun(size));
  const auto median = [&](double Timing::*field) { return MedianOf(timings, field); };
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const double firstRatio = median(&Timing::fill) / median(&Timing::forward);
  const double secondRatio = median(&Timing::secondFill) / median(&Timing::secondTransforms);
  std::printf("| %d x %d | %.3f | %.3f | %.3f | %.3f | %.3f | %.3f | %.3f | %.2f / %.2f | %.0f MiB |\n",
              size.width, size.height, median(&Timing::load), median(&Timing::fill), median(&Timing::forward),
              median(&Timing::spectrum), median(&Timing::mask), median(&Timing::secondPass),
              median(&Timing::total), firstRatio, secondRatio, static_cast<double>(usage.ru_maxrss) / 1024.0);
}

bool ParseSize(const char* text, Size* size) {
  return std::sscanf(text, "%dx%d", &size->width, &size->height) == 2 && size->width > 0 && size->height > 0;
}

int Main(int argc, char** argv) {
  int runs = 3;
  std::vector<Size> sizes;
  for (int i = 1; i < argc; ++i) {
    Size size{};
    if (std::strcmp(argv[i], "--runs") == 0 && i + 1 < argc) {
      runs = std::max(1, std::atoi(argv[++i]));
    } else if (ParseSize(argv[i], &size)) {
      sizes.push_back(size);
    } else {
      std::fprintf(stderr, "usage: run_bench [--runs N] [WIDTHxHEIGHT ...]\n");
      return 2;
    }
  }
  if (sizes.empty()) sizes = {{700, 500}, {1700, 1200}, {3600, 2400}, {7400, 7400}};
  constexpr const char* kLevelNames[] = {"SSE2", "AVX2", "AVX-512"};
  std::printf("RGB 8-bit, median of %d runs, processor seconds; vectors: %s\n\n", runs,
              kLevelNames[static_cast<int>(DetectVectorLevel())]);
  std::printf(
      "| picture | load | padding fill | forward | spectrum | mask | second pass | whole run | fill / "
      "transforms,"
      " first / second pass | peak memory |\n|---|---|---|---|---|---|---|---|---|---|\n");
  for (const Size size : sizes) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
      PrintRow(size, runs);
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
