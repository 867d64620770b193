// The transforms against FFTW, in pairs: every sample times a batch of ours and then a batch of FFTW's on the
// same data, so that a busy machine slows both. Printed per length: medians, and the median of the pairs'
// ratios ours / FFTW (below 1: ours is faster).
//
//   fft_bench                                    everything
//   fft_bench --benchmark_filter=FftDispatch     one part (FftDispatch, FloatFft, ForwardFft2D)
//
// FFTW runs on one thread, planned with FFTW_PATIENT in one dimension and FFTW_MEASURE in two.
#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "buffers/buffer_table.h"
#include "buffers/buffer_transforms.h"
#include "fft/fft_dispatch.h"
#include "fft/float_fft.h"
#include "image/pixel_kind.h"

namespace {

using tessaline::BufferRow;

struct Ratio {
  std::string name;
  double ours;  // seconds, medians
  double fftw;
  double ratio;  // median of the pairs
};
std::vector<Ratio> g_ratios;

double Median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

template <typename Work>
double SecondsOf(int repeats, const Work& work) {
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < repeats; ++i) work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() / repeats;
}

// Fills `count` floats or doubles with noise.
template <typename T>
void FillWithNoise(T* values, size_t count) {
  uint64_t state = 1;
  for (size_t i = 0; i < count; ++i) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    values[i] = static_cast<T>(static_cast<double>(static_cast<int64_t>(state) >> 11) / 4503599627370496.0);
  }
}

// Times pairs of batches until the benchmark has had enough. `ours` and `fftw` do one transform each;
// `before` runs untimed ahead of every batch.
template <typename Ours, typename Fftw, typename Before>
void ComparePairs(benchmark::State& state, const std::string& name, int repeats, const Before& before,
                  const Ours& ours, const Fftw& fftw) {
  std::vector<double> oursSeconds;
  std::vector<double> fftwSeconds;
  std::vector<double> ratios;
  before();
  ours();
  fftw();
  for (auto _ : state) {
    before();
    const double a = SecondsOf(repeats, ours);
    before();
    const double b = SecondsOf(repeats, fftw);
    oursSeconds.push_back(a);
    fftwSeconds.push_back(b);
    ratios.push_back(a / b);
    state.SetIterationTime(a + b);
  }
  const Ratio result{name, Median(oursSeconds), Median(fftwSeconds), Median(ratios)};
  state.counters["ours_us"] = result.ours * 1e6;
  state.counters["fftw_us"] = result.fftw * 1e6;
  state.counters["ratio"] = result.ratio;
  g_ratios.push_back(result);
}

// A batch long enough for the clock: about 2^18 values transformed.
int RepeatsFor(int64_t n) {
  return static_cast<int>(std::max<int64_t>(1, (1 << 18) / n));
}

void CompareFftDispatch(benchmark::State& state) {
  const auto n = static_cast<int32_t>(state.range(0));
  auto* const in = fftw_alloc_complex(n);
  auto* const out = fftw_alloc_complex(n);
  const fftw_plan plan = fftw_plan_dft_1d(n, in, out, FFTW_FORWARD, FFTW_PATIENT);
  FillWithNoise(in[0], 2 * static_cast<size_t>(n));
  ComparePairs(
      state, "FftDispatch n=" + std::to_string(n), RepeatsFor(n), [] {},
      [&] {
        benchmark::DoNotOptimize(tessaline::FftDispatch(n, -1, in[0]));
        benchmark::ClobberMemory();
      },
      [&] {
        fftw_execute(plan);
        benchmark::ClobberMemory();
      });
  fftw_destroy_plan(plan);
  fftw_free(in);
  fftw_free(out);
}

// In place, so the values grow with every transform: each batch starts from small noise and stays finite by
// alternating with nothing else; 2^-60 .. leaves room for the growth of a batch of the longest length.
void CompareFloatFft(benchmark::State& state) {
  const auto n = static_cast<int32_t>(state.range(0));
  auto* const row = fftwf_alloc_complex(n);
  const fftwf_plan plan = fftwf_plan_dft_1d(n, row, row, FFTW_FORWARD, FFTW_PATIENT);
  std::vector<float> table(static_cast<size_t>(n) / 4 + 1);
  uint32_t log2n = 0;
  tessaline::MakeCosineTable(&log2n, n, table.data());
  ComparePairs(
      state, "FloatFft n=" + std::to_string(n), RepeatsFor(n),
      // Zeros: the values of repeated transforms in place would grow without bound, and infinities and
      // denormals are slow. The work does not depend on the values otherwise.
      [&] { std::memset(row, 0, sizeof(fftwf_complex) * static_cast<size_t>(n)); },
      [&] {
        tessaline::FloatFft(row[0], log2n, table.data());
        benchmark::ClobberMemory();
      },
      [&] {
        fftwf_execute(plan);
        benchmark::ClobberMemory();
      });
  fftwf_destroy_plan(plan);
  fftwf_free(row);
}

void CompareForwardFft2D(benchmark::State& state) {
  const auto n = static_cast<int32_t>(state.range(0));
  const bool useDoubleKernels = state.range(1) != 0;
  const size_t values = static_cast<size_t>(n) * static_cast<size_t>(n);
  tessaline::OwnedBuffer buffer;
  if (buffer.Create("FFTbuf", n, n, tessaline::kGrayComplex) != 0) {
    state.SkipWithError("no memory");
    return;
  }
  auto* const ourPlane = reinterpret_cast<float*>(BufferRow(buffer.slot(), 0));
  // The peer computes in the same precision.
  auto* const single = useDoubleKernels ? nullptr : fftwf_alloc_complex(values);
  auto* const wide = useDoubleKernels ? fftw_alloc_complex(values) : nullptr;
  const fftwf_plan singlePlan =
      single != nullptr ? fftwf_plan_dft_2d(n, n, single, single, FFTW_FORWARD, FFTW_MEASURE) : nullptr;
  const fftw_plan widePlan =
      wide != nullptr ? fftw_plan_dft_2d(n, n, wide, wide, FFTW_FORWARD, FFTW_MEASURE) : nullptr;
  const auto refill = [&] {
    FillWithNoise(ourPlane, 2 * values);
    if (single != nullptr) std::memcpy(single, ourPlane, sizeof(float) * 2 * values);
    if (wide != nullptr) std::copy(ourPlane, ourPlane + 2 * values, wide[0]);
  };
  ComparePairs(
      state,
      std::string("ForwardFft2D ") + (useDoubleKernels ? "double kernels n=" : "single precision n=") +
          std::to_string(n),
      1, refill,
      [&] {
        benchmark::DoNotOptimize(
            tessaline::ForwardFft2D(buffer.slot(), false, useDoubleKernels, nullptr, 0, 1, 1));
      },
      [&] {
        if (singlePlan != nullptr) fftwf_execute(singlePlan);
        if (widePlan != nullptr) fftw_execute(widePlan);
      });
  if (singlePlan != nullptr) fftwf_destroy_plan(singlePlan);
  if (widePlan != nullptr) fftw_destroy_plan(widePlan);
  fftwf_free(single);
  fftw_free(wide);
}

BENCHMARK(CompareFftDispatch)
    ->Name("FftDispatch")
    ->RangeMultiplier(2)
    ->Range(64, 8192)
    ->UseManualTime()
    ->Iterations(201);
BENCHMARK(CompareFloatFft)
    ->Name("FloatFft")
    ->RangeMultiplier(2)
    ->Range(64, 8192)
    ->UseManualTime()
    ->Iterations(201);
BENCHMARK(CompareForwardFft2D)
    ->Name("ForwardFft2D")
    ->ArgsProduct({{1024, 2048, 4096, 8192}, {1, 0}})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(9);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  std::printf("\n%-38s %12s %12s %14s\n", "transform", "ours [us]", "FFTW [us]", "ours / FFTW");
  for (const Ratio& row : g_ratios) {
    std::printf("%-38s %12.2f %12.2f %14.2f\n", row.name.c_str(), row.ours * 1e6, row.fftw * 1e6, row.ratio);
  }
  return 0;
}
