// The transforms judged by random problems, as they stand in every signal processing book: what a transform
// must do with any data, and the definition in extended precision. Every length, both directions, every
// engine and instruction set.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <random>

#include "fft/fft_dispatch.h"
#include "fft/float_fft.h"
#include "fft/vector_engine.h"
#include "tests/fft/slow_dft.h"

namespace tessaline {
namespace {

using test::Wide;
using Values = std::vector<Wide>;

// One way to transform, which gives the unscaled sum with exp(sign 2 pi i m k / n).
struct Form {
  const char* name;
  int32_t shortest, longest;
  bool isSingle;     // floats go in; else doubles
  double roundings;  // of the results, as a multiple of the precision, for each root of log2 n
  Values (*transform)(const Values& data, int sign);
};

template <typename T>
std::vector<T> Interleaved(const Values& data) {
  std::vector<T> row;
  for (const Wide& value : data) {
    row.push_back(static_cast<T>(value.real()));
    row.push_back(static_cast<T>(value.imag()));
  }
  return row;
}

template <typename T>
Values FromInterleaved(const T* row, size_t count, long double scale = 1) {
  Values values(count);
  for (size_t i = 0; i < count; ++i) values[i] = Wide(row[2 * i], row[2 * i + 1]) * scale;
  return values;
}

Values InDoubles(const Values& data, int sign) {
  EXPECT_EQ(0, FftDispatch(static_cast<int32_t>(data.size()), sign, Interleaved<double>(data).data()));
  return FromInterleaved(FftResultArray, data.size());
}

template <void (*Forward)(float*, uint32_t, const float*), void (*Inverse)(float*, uint32_t, const float*)>
Values InFloats(const Values& data, int sign) {
  std::vector<float> row = Interleaved<float>(data), table(data.size() / 4 + 1);
  uint32_t log2n = 0;
  MakeCosineTable(&log2n, static_cast<int32_t>(data.size()), table.data());
  (sign < 0 ? Forward : Inverse)(row.data(), log2n, table.data());
  return FromInterleaved(row.data(), data.size(), sign < 0 ? 1.0L : static_cast<long double>(data.size()));
}

Values Widened(const Values& data, int sign) {
  std::vector<float> row = Interleaved<float>(data);
  std::vector<double> scratch(2 * data.size());
  FftComplexFloat(sign < 0, row.data(), static_cast<uint32_t>(data.size()), scratch.data());
  return FromInterleaved(row.data(), data.size());
}

// The kernel of the rows that are widened on the way, which FftComplexFloat does not use.
Values WidenedInOneGo(const Values& data, int sign) {
  std::vector<float> row = Interleaved<float>(data);
  const int index = std::countr_zero(data.size()) - kShortestVectorLog2;
  activeVectorEngine->transformWidened[index][sign < 0](row.data());
  return FromInterleaved(row.data(), data.size());
}

const Form kForms[] = {
    {"doubles", 2, kLongestFft, false, 0.6, InDoubles},
    {"floats", 2, kLongestFft, true, 1.6, InFloats<FloatFft, FloatFftInverse>},
    {"floats by plain loops", 2, kLongestFft, true, 0.7, InFloats<PlainFloatFft, PlainFloatFftInverse>},
    {"floats widened", 4, kLongestFft, true, 0.4, Widened},
    {"floats widened in one go", 1 << kShortestVectorLog2, kLongestFft, true, 0.4, WidenedInOneGo},
};

// The slow twin in extended precision, itself held against the definition: transforms of the even and of the
// odd places.
Values ByHalves(const Values& data, const Values& circle) {
  const size_t n = data.size();
  if (n == 1) return data;
  Values even, odd, halfCircle, result(n);
  for (size_t i = 0; i < n; i += 2) {
    even.push_back(data[i]);
    odd.push_back(data[i + 1]);
    halfCircle.push_back(circle[i]);
  }
  even = ByHalves(even, halfCircle);
  odd = ByHalves(odd, halfCircle);
  for (size_t k = 0; k < n; ++k) result[k] = even[k % (n / 2)] + circle[k] * odd[k % (n / 2)];
  return result;
}

long double Energy(const Values& values) {
  long double sum = 0;
  for (const Wide& value : values) sum += std::norm(value);
  return sum;
}

// Root mean square and largest difference, as parts of the root mean square of what is expected.
void ExpectClose(const Values& expected, const Values& values, long double bound) {
  Values differences(values.size());
  long double largest = 0;
  for (size_t i = 0; i < values.size(); ++i) {
    differences[i] = values[i] - expected[i];
    largest = std::max(largest, std::abs(differences[i]));
  }
  const long double scale = std::sqrt(Energy(expected));
  EXPECT_LE(std::sqrt(Energy(differences)), bound * scale);
  EXPECT_LE(largest, 8 * bound * scale / std::sqrt(static_cast<long double>(values.size())));
}

class RandomProblems : public testing::Test {
 protected:
  RandomProblems() {
    const char* const wanted = std::getenv("TESSALINE_TEST_SEED");
    const auto seed = static_cast<uint32_t>(wanted != nullptr ? std::atol(wanted) : 20260722);
    std::printf("TESSALINE_TEST_SEED=%u\n", seed);
    random_.seed(seed);
  }
  ~RandomProblems() override { activeVectorEngine = &VectorEngineFor(DetectVectorLevel()); }

  // Numbers that floats hold exactly, so that every engine is given the same.
  Values Noise(size_t n) {
    Values values(n);
    const auto next = [this] { return static_cast<float>(static_cast<int32_t>(random_())) / 0x1p31f; };
    for (Wide& value : values) value = {next(), next()};
    return values;
  }

  void Judge(const Form& form, const Values& data, int sign, const Values& circle, const Values& expected);

  std::mt19937 random_;
};

void RandomProblems::Judge(const Form& form, const Values& data, int sign, const Values& circle,
                           const Values& expected) {
  const size_t n = data.size();
  const long double precision = form.isSingle ? 0x1p-24L : 0x1p-53L;
  const long double bound =
      form.roundings * precision * (1 + std::sqrt(std::log2(static_cast<long double>(n))));
  const Values spectrum = form.transform(data, sign);
  ExpectClose(expected, spectrum, bound);
  EXPECT_LE(std::abs(Energy(spectrum) / Energy(data) / n - 1), 4 * bound) << "Parseval";

  // A sum of two multiples, of which the engine is handed the rounded one.
  const Values other = Noise(n);
  const Values otherSpectrum = form.transform(other, sign);
  Values mixed(n), mixedSpectrum(n);
  for (size_t i = 0; i < n; ++i) {
    mixed[i] = data[i] * 0.75L + other[i] * Wide(0, -0.5L);
    mixedSpectrum[i] = spectrum[i] * 0.75L + otherSpectrum[i] * Wide(0, -0.5L);
  }
  ExpectClose(mixedSpectrum, form.transform(mixed, sign), 3 * bound);

  // A line of zeros with one 1 in it, whose results have the errors of its factors alone, unmixed with
  // others.
  const size_t at = random_() % n;
  Values impulse(n), shifted(n), turns(n), turned(n);
  impulse[at] = 1;
  for (size_t k = 0; k < n; ++k) {
    turns[k] = circle[at * k % n];
    shifted[(k + at) % n] = data[k];
    turned[k] = spectrum[k] * turns[k];
  }
  ExpectClose(turns, form.transform(impulse, sign), 3 * bound);
  ExpectClose(turned, form.transform(shifted, sign), 3 * bound);
}

TEST_F(RandomProblems, EveryLengthDirectionEngineAndInstructionSet) {
  for (int32_t n = 2; n <= kLongestFft; n *= 2) {
    for (const int sign : {-1, +1}) {
      const Values data = Noise(n), circle = test::CircleOf(n, sign);
      const Values expected = ByHalves(data, circle);
      for (int i = 0; i < std::min(n, 64); ++i) {
        const size_t place = n <= 64 ? i : random_() % n;
        ASSERT_LT(std::abs(expected[place] - test::SlowDftAt(data, circle, place)), 1e-15L * std::sqrt(n))
            << n;
      }
      for (const VectorLevel level : {VectorLevel::kBaseline, VectorLevel::kAvx2, VectorLevel::kAvx512}) {
        if (level > DetectVectorLevel()) continue;
        activeVectorEngine = &VectorEngineFor(level);
        for (const Form& form : kForms) {
          if (n < form.shortest || n > form.longest) continue;
          SCOPED_TRACE(testing::Message() << form.name << ", " << n << " values, sign " << sign
                                          << ", instruction set " << static_cast<int>(level));
          Judge(form, data, sign, circle, expected);
        }
      }
    }
  }
}

}  // namespace
}  // namespace tessaline
