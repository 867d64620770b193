// The transfer of a picture between host and buffers, held against the run that it serves. The run may not
// notice it: 3 % of its time at the most is wanted.
//
//   build/native/bench/transfer_bench [--no-run] [--rounds N] [WIDTHxHEIGHT]      default 5 rounds, 7000x5000
//
// Transfers are medians over the rounds; the run, of RGB of 16 bits, is one.
//
// The host is the one of the tests, in the same process. What it does itself between two rows (copying each
// row out of the document and into it) is counted apart: a real host has the same to do, in its own way.
#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "buffers/buffer_table.h"
#include "glue/host/host_access.h"
#include "glue/host/image_mode.h"
#include "glue/host/image_transfer.h"
#include "glue/host/plugin_main.h"
#include "glue/parameters/settings_record.h"
#include "glue/run/removal_run.h"
#include "testhost/fake_host.h"

namespace tessaline {
namespace {

using testhost::Document;

// Processor time, which a busy machine does not stretch. Everything here is one thread.
double Now() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

struct Timing {
  double scan, fetch, run, copyBack;
  double host;  // inside the three transfers
};
Timing g_timing;
bool g_runs = true;

// The host's own advance routine, with a clock round it.
host::OSErr (*g_advance)() = nullptr;
host::OSErr TimedAdvance() {
  const double start = Now();
  const host::OSErr code = g_advance();
  g_timing.host += Now() - start;
  return code;
}

// The start selector's order with a clock at each step.
intptr_t TimedFilter(int16_t selector, void* block, intptr_t* data, int16_t* result) {
  if (selector != host::kSelectorStart) return PluginMain(selector, block, data, result);
  auto* const record = static_cast<host::FilterRecord*>(block);
  g_timing = {};
  g_advance = record->advanceState;
  record->advanceState = TimedAdvance;
  ResetBufferTable();
  const PixelLayout layout = LayoutOf(*record);
  double start = Now();
  const host::VRect area = FindWorkRectangle(record);
  g_timing.scan = Now() - start;
  start = Now();
  if (FetchImage(record, area, layout) != 0) std::abort();
  g_timing.fetch = Now() - start;
  if (g_runs) {
    start = Now();
    FilterParameters parameters{95, 6, 8};
    if (RunRemoval(imageInfo.mainBuffer, &parameters, nullptr, true, RunDoor{}) != 0) std::abort();
    g_timing.run = Now() - start;
  }
  start = Now();
  if (CopyBack(record, area, layout) != 0) std::abort();
  g_timing.copyBack = Now() - start;
  record->advanceState = g_advance;
  return *result = 0;
}

struct Kind {
  const char* name;
  int16_t mode;
  int32_t depth, planes;
  bool hasMask;
};
// The first row is the one with a wanted figure; the run is timed for it alone, as the others have the same.
constexpr Kind kKinds[] = {
    {"RGB 16", host::kModeRgb48, 16, 3, false},         {"RGB 16 + selection", host::kModeRgb48, 16, 3, true},
    {"RGB 16 + alpha", host::kModeRgb48, 16, 4, false}, {"RGB 8 + alpha", host::kModeRgb, 8, 4, false},
    {"Lab 16", host::kModeLab48, 16, 3, false},         {"grey 8", host::kModeGray, 8, 1, false}};

Document MakePicture(const Kind& kind, int32_t width, int32_t height) {
  Document document{kind.mode, kind.depth, static_cast<int16_t>(kind.planes), width, height, {}, {}};
  document.pixels.resize(static_cast<size_t>(document.RowBytes()) * height);
  if (kind.hasMask) document.mask.assign(static_cast<size_t>(width) * height, 255);
  for (int32_t y = 0; y < height; ++y) {
    uint8_t* const row = document.pixels.data() + y * document.RowBytes();
    for (int32_t i = 0; i < width * kind.planes; ++i) {
      const auto level = static_cast<uint16_t>(16000 + 8000 * std::cos(i * 0.4) + (i ^ y) % 512);
      if (kind.depth == 16) std::memcpy(row + 2 * i, &level, sizeof level);
      if (kind.depth == 8) row[i] = static_cast<uint8_t>(level >> 7);
    }
  }
  return document;
}

double MedianOf(const std::vector<Timing>& timings, double Timing::*field) {
  std::vector<double> values;
  values.reserve(timings.size());
  for (const Timing& timing : timings) values.push_back(timing.*field);
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

int Main(int argc, char** argv) {
  int32_t width = 7000, height = 5000;
  int rounds = 5;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--no-run") == 0) {
      g_runs = false;
    } else if (std::strcmp(argv[i], "--rounds") == 0 && i + 1 < argc) {
      rounds = std::max(1, std::atoi(argv[++i]));
    } else if (std::sscanf(argv[i], "%dx%d", &width, &height) != 2 || width < 1 || height < 1) {
      std::fprintf(stderr, "usage: transfer_bench [--no-run] [--rounds N] [WIDTHxHEIGHT]\n");
      return 2;
    }
  }
  std::printf("%d x %d, seconds of processor time\n\n", width, height);
  std::printf(
      "| picture | scan | fetch | copy back | of these the host's own | run | transfer / run | without the "
      "host's own |\n|---|---|---|---|---|---|---|---|\n");
  double run = 0;
  for (const Kind& kind : kKinds) {
    testhost::Switches switches;
    switches.freshAddresses = false;
    switches.checksMemory = false;
    const Document picture = MakePicture(kind, width, height);
    std::vector<Timing> timings;
    for (int round = 0; round < rounds; ++round) {
      if (testhost::RunFilter(TimedFilter, picture, switches).result != 0) return 1;
      if (g_runs) run = g_timing.run;
      g_runs = false;
      timings.push_back(g_timing);
    }
    const double scan = MedianOf(timings, &Timing::scan), fetch = MedianOf(timings, &Timing::fetch);
    const double copyBack = MedianOf(timings, &Timing::copyBack), own = MedianOf(timings, &Timing::host);
    const double transfer = scan + fetch + copyBack;
    std::printf("| %s | %.3f | %.3f | %.3f | %.3f | %.3f | ", kind.name, scan, fetch, copyBack, own, run);
    if (run > 0) {
      std::printf("%.2f %% | %.2f %% |\n", 100 * transfer / run, 100 * (transfer - own) / run);
    } else {
      std::printf("- | - |\n");
    }
    std::fflush(stdout);
  }
  return 0;
}

}  // namespace
}  // namespace tessaline

int main(int argc, char** argv) {
  return tessaline::Main(argc, argv);
}
