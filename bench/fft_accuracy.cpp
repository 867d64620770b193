// The errors of the transforms beside FFTW's on the same data, against the definition in extended precision:
// what is printed is the table in docs/reliability.md. An error is the difference's root mean square, or its
// largest value, divided by the root mean square of the exact result; of both directions and all problems the
// root mean square, and the largest.
//
//   fft_accuracy [PROBLEMS [SEED]]     problems for each length and direction (5)
#include <fftw3.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "fft/fft_dispatch.h"
#include "fft/float_fft.h"

namespace {

using Wide = std::complex<long double>;

struct Errors {
  long double squares = 0;  // summed over the results, as parts of the exact ones' mean square
  long double largest = 0;
  int64_t results = 0;

  template <typename T>
  void Add(const std::vector<Wide>& exact, const T* values, long double scale) {
    long double energy = 0;
    for (const Wide& value : exact) energy += std::norm(value);
    const long double meanSquare = energy / static_cast<long double>(exact.size());
    for (size_t k = 0; k < exact.size(); ++k) {
      const long double square =
          std::norm(Wide(values[2 * k], values[2 * k + 1]) * scale - exact[k]) / meanSquare;
      squares += square;
      largest = std::max(largest, std::sqrt(square));
    }
    results += static_cast<int64_t>(exact.size());
  }
  double Rms() const { return static_cast<double>(std::sqrt(squares / static_cast<long double>(results))); }
  double Largest() const { return static_cast<double>(largest); }
};

// By definition. The products are written out: the library's look for infinities, and take ten times as long.
std::vector<Wide> ExactTransform(const std::vector<Wide>& data, int sign) {
  const size_t n = data.size();
  const long double step = sign * 6.283185307179586476925286766559L / static_cast<long double>(n);
  std::vector<Wide> circle(n), result(n);
  for (size_t j = 0; j < n; ++j) circle[j] = std::polar(1.0L, step * static_cast<long double>(j));
  for (size_t k = 0; k < n; ++k) {
    long double re = 0, im = 0;
    for (size_t m = 0, turn = 0; m < n; ++m, turn = (turn + k) % n) {
      re += data[m].real() * circle[turn].real() - data[m].imag() * circle[turn].imag();
      im += data[m].real() * circle[turn].imag() + data[m].imag() * circle[turn].real();
    }
    result[k] = {re, im};
  }
  return result;
}

struct Row {
  Errors doubles, fftwDoubles, floats, fftwFloats;
};

Row Measure(int32_t n, int problems, std::mt19937& random) {
  Row row;
  const auto count = static_cast<size_t>(n);
  double* const wideIn = fftw_alloc_real(2 * count);
  double* const wideOut = fftw_alloc_real(2 * count);
  float* const singleRow = fftwf_alloc_real(2 * count);
  std::vector<float> table(count / 4 + 1);
  uint32_t log2n = 0;
  tessaline::MakeCosineTable(&log2n, n, table.data());
  for (const int sign : {-1, +1}) {
    const fftw_plan widePlan =
        fftw_plan_dft_1d(n, reinterpret_cast<fftw_complex*>(wideIn), reinterpret_cast<fftw_complex*>(wideOut),
                         sign, FFTW_ESTIMATE);
    const fftwf_plan singlePlan =
        fftwf_plan_dft_1d(n, reinterpret_cast<fftwf_complex*>(singleRow),
                          reinterpret_cast<fftwf_complex*>(singleRow), sign, FFTW_ESTIMATE);
    for (int problem = 0; problem < problems; ++problem) {
      // Values that floats hold exactly: every engine is given the same.
      std::vector<float> data(2 * count);
      std::vector<Wide> exactData(count);
      for (float& value : data) value = static_cast<float>(static_cast<int32_t>(random())) / 0x1p31f;
      for (size_t m = 0; m < count; ++m) exactData[m] = {data[2 * m], data[2 * m + 1]};
      const std::vector<Wide> exact = ExactTransform(exactData, sign);
      const auto refill = [&](auto* values) { std::copy(data.begin(), data.end(), values); };

      refill(wideIn);
      if (tessaline::FftDispatch(n, sign, wideIn) != 0) std::abort();
      row.doubles.Add(exact, tessaline::FftResultArray, 1);
      fftw_execute(widePlan);
      row.fftwDoubles.Add(exact, wideOut, 1);
      refill(singleRow);
      (sign < 0 ? tessaline::FloatFft : tessaline::FloatFftInverse)(singleRow, log2n, table.data());
      row.floats.Add(exact, singleRow, sign < 0 ? 1.0L : static_cast<long double>(n));  // the inverse divides
      refill(singleRow);
      fftwf_execute(singlePlan);
      row.fftwFloats.Add(exact, singleRow, 1);
    }
    fftw_destroy_plan(widePlan);
    fftwf_destroy_plan(singlePlan);
  }
  fftw_free(wideIn);
  fftw_free(wideOut);
  fftwf_free(singleRow);
  return row;
}

}  // namespace

int main(int argc, char** argv) {
  const int problems = argc > 1 ? std::atoi(argv[1]) : 5;
  const auto seed = static_cast<uint32_t>(argc > 2 ? std::atol(argv[2]) : 20260722);
  std::printf(
      "%d problems for each length and direction, seed %u; errors in 1e-16 (double) and 1e-8 (single)\n\n",
      problems, seed);
  std::printf("| length | double rms | max | FFTW rms | max | single rms | max | FFTW rms | max |\n");
  std::printf("|---|---|---|---|---|---|---|---|---|\n");
  std::mt19937 random(seed);
  for (int32_t n = 2; n <= tessaline::kLongestFft; n *= 2) {
    const Row row = Measure(n, problems, random);
    std::printf("| %d |", n);
    for (const Errors* const errors : {&row.doubles, &row.fftwDoubles}) {
      std::printf(" %.2f | %.2f |", errors->Rms() * 1e16, errors->Largest() * 1e16);
    }
    for (const Errors* const errors : {&row.floats, &row.fftwFloats}) {
      std::printf(" %.2f | %.2f |", errors->Rms() * 1e8, errors->Largest() * 1e8);
    }
    std::printf("\n");
    std::fflush(stdout);
  }
}
