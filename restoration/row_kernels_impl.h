// The loops themselves; compiled once for every instruction set, everything in a namespace of each file's
// own.
#pragma once

#include <utility>

#include "removal/sample_formats.h"
#include "restoration/row_kernels.h"

namespace tessaline {
namespace {

template <int... kTerm, typename Term>
inline float Sum(std::integer_sequence<int, kTerm...>, const Term& term) {
  return (term(kTerm) + ...);
}
template <int kCount, typename Term>
inline float SumOf(const Term& term) {
  return Sum(std::make_integer_sequence<int, kCount>{}, term);
}

using DemodulatedRow = float[kDemodulatedReach];

// The two halves of a window of rows, folded: what is even about its middle goes with the cosine, what is odd
// with the sine.
template <int kHalf>
struct FoldedRows {
  DemodulatedRow even[kHalf], odd[kHalf];

  void Fold(const float* const* rows, ptrdiff_t offset) {
    for (int t = 0; t < kHalf; ++t) {
      const float* const after = rows[kHalf + t] + offset;
      const float* const before = rows[kHalf - 1 - t] + offset;
      for (int i = 0; i < kDemodulatedReach; ++i) {
        even[t][i] = after[i] + before[i];
        odd[t][i] = after[i] - before[i];
      }
    }
  }
  void Weigh(const CarrierWindow& window, DemodulatedRow (&sums)[2]) const {
    for (int i = 0; i < kDemodulatedReach; ++i) {
      sums[0][i] = SumOf<kHalf>([&](int t) { return window.cosineY[t] * even[t][i]; });
      sums[1][i] = -SumOf<kHalf>([&](int t) { return window.sineY[t] * odd[t][i]; });
    }
  }
};

// A phase's rows and the opposite phase's weighed down the columns, by the cosine and by the sine.
using WeighedPhases = DemodulatedRow[2][2];

// Two samples that lie t + 1/2 to both sides of the windows' middles are of a phase and of the opposite one;
// each phase has a t for every block of the window.
template <int kHop, int kHalf>
constexpr int PairOf(int phase, int block) {
  int t = 0;
  for (int found = -1; found < block; ++t) {
    const int of = (kHalf + t) % kHop;
    found += of == phase || of == kHop - 1 - phase ? 1 : 0;
  }
  return t - 1;
}

template <int kHop, int kHalf, int kPhase, int... kBlock>
inline void AddPhase(const CarrierWindow& window, const WeighedPhases& weighed,
                     std::integer_sequence<int, kBlock...>, float* __restrict real,
                     float* __restrict imaginary) {
  for (int i = 0; i < kDemodulated; ++i) {
    float re = real[i], im = imaginary[i];
    const auto add = [&](int t) {
      const int after = kHalf + t, before = kHalf - 1 - t;
      const auto& ofAfter = weighed[after % kHop != kPhase];
      const auto& ofBefore = weighed[before % kHop != kPhase];
      const float afterReal = ofAfter[0][i + after / kHop], afterImaginary = ofAfter[1][i + after / kHop];
      const float beforeReal = ofBefore[0][i + before / kHop],
                  beforeImaginary = ofBefore[1][i + before / kHop];
      const float cosine = window.cosineX[t], sine = window.sineX[t];
      re += cosine * (afterReal + beforeReal) + sine * (afterImaginary - beforeImaginary);
      im += cosine * (afterImaginary + beforeImaginary) - sine * (afterReal - beforeReal);
    };
    (add(std::integral_constant<int, PairOf<kHop, kHalf>(kPhase, kBlock)>{}), ...);
    real[i] = re;
    imaginary[i] = im;
  }
}

template <int kWindow>
void Demodulate(const float* const* rows, const CarrierWindow* windows, int32_t carriers, float* const* real,
                float* const* imaginary) {
  constexpr int kHop = kReductionWindows[kWindow].hop, kHalf = kReductionWindows[kWindow].side() / 2;
  for (int32_t k = 0; k < carriers; ++k) {
    for (int i = 0; i < kDemodulated; ++i) real[k][i] = imaginary[k][i] = 0.0f;
  }
  const auto addPhase = [&]<int kPhase>(std::integral_constant<int, kPhase>) {
    FoldedRows<kHalf> folded[2];
    folded[0].Fold(rows, kPhase * kDemodulatedReach);
    folded[1].Fold(rows, (kHop - 1 - kPhase) * kDemodulatedReach);
    for (int32_t k = 0; k < carriers; ++k) {
      WeighedPhases weighed;
      folded[0].Weigh(windows[k], weighed[0]);
      folded[1].Weigh(windows[k], weighed[1]);
      AddPhase<kHop, kHalf, kPhase>(windows[k], weighed,
                                    std::make_integer_sequence<int, kReductionWindows[kWindow].blocks>{},
                                    real[k], imaginary[k]);
    }
  };
  const auto addAll = [&]<int... kPhase>(std::integer_sequence<int, kPhase...>) {
    (addPhase(std::integral_constant<int, kPhase>{}), ...);
  };
  addAll(std::make_integer_sequence<int, kHop / 2>{});
}

template <int kHop>
void Distribute(const float* levels, float* __restrict phases) {
  for (int i = 0; i < kDemodulatedReach; ++i) {
    for (int p = 0; p < kHop; ++p) phases[p * kDemodulatedReach + i] = levels[kHop * i + p];
  }
}

template <int kHop>
void AddBlocks(int32_t count, const float* values, float* __restrict sums) {
  for (int32_t i = 0; i < count; ++i) {
    sums[i] += SumOf<kHop>([&](int p) { return values[kHop * i + p]; });
  }
}

void Settle(int32_t count, const ConstantAnswer& answer, const float* slow, float cosine, float sine,
            float* __restrict real, float* __restrict imaginary) {
  const float *const alongReal = answer.real, *const alongImaginary = answer.imaginary,
                     *const share = answer.share;
  const float downReal = answer.downReal, downImaginary = answer.downImaginary, downShare = answer.downShare;
  for (int32_t x = 0; x < count; ++x) {
    const float a = alongReal[x], b = alongImaginary[x], inside = downShare * share[x];
    const float re = (real[x] - slow[x] * (a * downReal - b * downImaginary)) * inside;
    const float im = (imaginary[x] - slow[x] * (a * downImaginary + b * downReal)) * inside;
    real[x] = re * cosine + im * sine;
    imaginary[x] = im * cosine - re * sine;
  }
}

void Turn(int32_t count, const float* cosine, const float* sine, const float* real, const float* imaginary,
          float* turnedReal, float* turnedImaginary) {
  for (int32_t i = 0; i < count; ++i) {
    const float re = real[i], im = imaginary[i];
    turnedReal[i] = re * cosine[i] + im * sine[i];
    turnedImaginary[i] = im * cosine[i] - re * sine[i];
  }
}

void Weigh(int32_t terms, const float* const* rows, const float* weights, int32_t count,
           float* __restrict sums) {
  constexpr int kAtOnce = 3;
  for (int32_t i = 0; i < count; ++i) sums[i] = weights[0] * rows[0][i];
  int32_t term = 1;
  for (; term + 2 * kAtOnce <= terms; term += 2 * kAtOnce) {
    const float *const a = rows[term], *const b = rows[term + 1], *const c = rows[term + 2],
                       *const d = rows[term + 3], *const e = rows[term + 4], *const f = rows[term + 5];
    const float ofA = weights[term], ofB = weights[term + 1], ofC = weights[term + 2],
                ofD = weights[term + 3], ofE = weights[term + 4], ofF = weights[term + 5];
    for (int32_t i = 0; i < count; ++i) {
      const float sum = sums[i] + (ofA * a[i] + ofB * b[i] + ofC * c[i]);
      sums[i] = sum + (ofD * d[i] + ofE * e[i] + ofF * f[i]);
    }
  }
  for (; term + kAtOnce <= terms; term += kAtOnce) {
    const float *const a = rows[term], *const b = rows[term + 1], *const c = rows[term + 2];
    const float ofA = weights[term], ofB = weights[term + 1], ofC = weights[term + 2];
    for (int32_t i = 0; i < count; ++i) sums[i] += ofA * a[i] + ofB * b[i] + ofC * c[i];
  }
  for (; term < terms; ++term) {
    const float* const row = rows[term];
    const float weight = weights[term];
    for (int32_t i = 0; i < count; ++i) sums[i] += weight * row[i];
  }
}

void AddPower(int32_t count, float gain, const float* real, const float* imaginary, float* __restrict power) {
  const float factor = 4.0f * gain;
  for (int32_t i = 0; i < count; ++i) power[i] += factor * (real[i] * real[i] + imaginary[i] * imaginary[i]);
}

// Lanes in a fixed order: the same sum whatever the vectors.
double SumSquares(int32_t count, const float* values) {
  constexpr int kLanes = 16;
  float sums[kLanes] = {};
  int32_t x = 0;
  for (; x + kLanes <= count; x += kLanes) {
    for (int i = 0; i < kLanes; ++i) sums[i] += values[x + i] * values[x + i];
  }
  for (; x < count; ++x) sums[0] += values[x] * values[x];
  double total = 0.0;
  for (const float sum : sums) total += double{sum};
  return total;
}

void TurnBeside(int32_t count, float side, const float* cosine, const float* sine, const BesideRows& rows,
                float* __restrict real, float* __restrict imaginary) {
  for (int32_t i = 0; i < count; ++i) {
    const float re = rows.cosineReal[i] + side * rows.sineImaginary[i];
    const float im = rows.cosineImaginary[i] - side * rows.sineReal[i];
    real[i] = re * cosine[i] + side * im * sine[i];
    imaginary[i] = im * cosine[i] - side * re * sine[i];
  }
}

void AddNear(int32_t count, const ComplexRow& narrow, const ComplexRow& wide, float* __restrict near,
             float* __restrict power) {
  const float *const narrowReal = narrow.real, *const narrowImaginary = narrow.imaginary,
                     *const real = wide.real, *const imaginary = wide.imaginary;
  for (int32_t i = 0; i < count; ++i) {
    near[i] += narrowReal[i] * real[i] + narrowImaginary[i] * imaginary[i];
    power[i] += real[i] * real[i] + imaginary[i] * imaginary[i];
  }
}

inline float Blend(const Cubic& weights, float a, float b, float c, float d) {
  return weights[0] * a + weights[1] * b + weights[2] * c + weights[3] * d;
}

void BlendRows(int32_t count, const float* const (&rows)[4], const Cubic& weights,
               float* __restrict blended) {
  const float *const a = rows[0], *const b = rows[1], *const c = rows[2], *const d = rows[3];
  for (int32_t x = 0; x < count; ++x) blended[x] = Blend(weights, a[x], b[x], c[x], d[x]);
}

void DoubleRow(int32_t count, const float* row, const Cubic& weights, float* __restrict doubled) {
  for (int32_t x = 0; x < count; ++x) {
    doubled[2 * x] = Blend(weights, row[x + 1], row[x], row[x - 1], row[x - 2]);
    doubled[2 * x + 1] = Blend(weights, row[x - 1], row[x], row[x + 1], row[x + 2]);
  }
}

void AddSteps(int32_t count, const float* values, float closed, float slope, float* __restrict steps) {
  for (int32_t i = 0; i < count; ++i) {
    const float share = (values[i] - closed) * slope;
    const float above = share > 0.0f ? share : 0.0f;
    const float t = above < 1.0f ? above : 1.0f;
    steps[i] += t * t * (3.0f - 2.0f * t);
  }
}

template <int kReduction>
void Enlarge(int32_t blocks, const float* own, const float* other, float share, float* __restrict row) {
  const auto mixed = [&](int32_t x) { return own[x] + share * (other[x] - own[x]); };
  for (int32_t x = 0; x < blocks; ++x) {
    const float middle = mixed(x), toLeft = mixed(x - 1) - middle, toRight = mixed(x + 1) - middle;
    for (int i = 0; i < kReduction / 2; ++i) {
      const float part = (static_cast<float>(i) + 0.5f) / kReduction;
      row[kReduction * x + kReduction / 2 - 1 - i] = middle + part * toLeft;
      row[kReduction * x + kReduction / 2 + i] = middle + part * toRight;
    }
  }
}

void SumWaves(int32_t count, const float* const (&rows)[2], const float (*cosine)[kWaves],
              const float (*sine)[kWaves], float (&cosines)[2][kWaves], float (&sines)[2][kWaves]) {
  float ofCosines[2][kWaves] = {}, ofSines[2][kWaves] = {};
  for (int32_t x = 0; x < count; ++x) {
    for (int row = 0; row < 2; ++row) {
      const float value = rows[row][x];
      for (int i = 0; i < kWaves; ++i) ofCosines[row][i] += value * cosine[x][i];
      for (int i = 0; i < kWaves; ++i) ofSines[row][i] += value * sine[x][i];
    }
  }
  for (int row = 0; row < 2; ++row) {
    for (int i = 0; i < kWaves; ++i) cosines[row][i] = ofCosines[row][i];
    for (int i = 0; i < kWaves; ++i) sines[row][i] = ofSines[row][i];
  }
}

constexpr float kMiddleOfCodes = 16384.0f;
constexpr float kCodeRounding = 0.5f;

int16_t CodeOf(float level) {
  constexpr float kLastCode = 32767.0f;
  const float code = level - kMiddleOfCodes;
  const float above = code > -kLastCode ? code : -kLastCode;  // not-a-number too
  const float within = above < kLastCode ? above : kLastCode;
  return static_cast<int16_t>(static_cast<int32_t>(within + (within < 0.0f ? -0.5f : 0.5f)));
}
float LevelOfCode(int16_t code) {
  return static_cast<float>(code) + kMiddleOfCodes;
}

template <typename Format>
void Separate(int32_t count, const uint8_t* samples, float* const* levels) {
  const auto* const from = reinterpret_cast<const typename Format::Sample*>(samples);
  float* __restrict const a = levels[0], * __restrict const b = levels[1], * __restrict const c = levels[2];
  for (int32_t x = 0; x < count; ++x) {
    a[x] = static_cast<float>(from[3 * x]) * Format::kToLevel;
    b[x] = static_cast<float>(from[3 * x + 1]) * Format::kToLevel;
    c[x] = static_cast<float>(from[3 * x + 2]) * Format::kToLevel;
  }
}

template <typename Format>
void Interleave(int32_t count, const float* const* levels, uint8_t* samples) {
  auto* __restrict const to = reinterpret_cast<typename Format::Sample*>(samples);
  const float *const a = levels[0], *const b = levels[1], *const c = levels[2];
  constexpr float kAllowance = AllowanceOf(Rounding::kNearest);
  for (int32_t x = 0; x < count; ++x) {
    to[3 * x] = SampleOf<Format>(a[x], kAllowance);
    to[3 * x + 1] = SampleOf<Format>(b[x], kAllowance);
    to[3 * x + 2] = SampleOf<Format>(c[x], kAllowance);
  }
}

void Encode(int32_t count, const float* levels, int16_t* __restrict codes) {
  for (int32_t x = 0; x < count; ++x) codes[x] = CodeOf(levels[2 * x]);
}

void Decode(int32_t count, const int16_t* codes, float* __restrict levels) {
  for (int32_t x = 0; x < count; ++x) levels[x] = LevelOfCode(codes[x]);
}

void EverySecond(int32_t count, const float* values, float* __restrict packed) {
  for (int32_t x = 0; x < count; ++x) packed[x] = values[2 * x];
}

float Told(float taken) {
  return taken > kCodeRounding || taken < -kCodeRounding ? taken : 0.0f;
}

template <int kApart>
void TakeOut(int32_t count, const float* levels, const float* open, float* __restrict filtered,
             float* __restrict taken) {
  if (open == nullptr) {
    for (int32_t x = 0; x < count; ++x) taken[x] = Told(levels[x] - filtered[kApart * x]);
    return;
  }
  for (int32_t x = 0; x < count; ++x) taken[x] = (levels[x] - filtered[kApart * x]) * open[x];
  for (int32_t x = 0; x < count; ++x) {
    filtered[kApart * x] = levels[x] - taken[x];
    if constexpr (kApart == 2)
      filtered[kApart * x + 1] = filtered[kApart * x + 1];  // whole vectors are stored
    taken[x] = Told(taken[x]);
  }
}

void TakeOutOfCodes(int32_t count, const float* levels, const float* open, int16_t* __restrict filtered,
                    float* __restrict taken) {
  if (open == nullptr) {
    for (int32_t x = 0; x < count; ++x) taken[x] = Told(levels[x] - LevelOfCode(filtered[x]));
    return;
  }
  for (int32_t x = 0; x < count; ++x) {
    const float change = (levels[x] - LevelOfCode(filtered[x])) * open[x];
    filtered[x] = CodeOf(levels[x] - change);
    taken[x] = Told(change);
  }
}

void AddSquares(int32_t count, const float* values, float* __restrict squares) {
  for (int32_t x = 0; x < count; ++x) squares[x] += values[x] * values[x];
}

float Mixed(const float (&weights)[3], float a, float b, float c) {
  return weights[0] * a + weights[1] * b + weights[2] * c;
}

void AddMixedSquares(int32_t count, const float* const* channels, const float (&weights)[3][3],
                     float* __restrict first, float* __restrict second, float* __restrict third) {
  const float *const a = channels[0], *const b = channels[1], *const c = channels[2];
  for (int32_t x = 0; x < count; ++x) {
    const float one = Mixed(weights[0], a[x], b[x], c[x]), two = Mixed(weights[1], a[x], b[x], c[x]),
                three = Mixed(weights[2], a[x], b[x], c[x]);
    first[x] += one * one;
    second[x] += two * two;
    third[x] += three * three;
  }
}

// Three rows' sums with weights. By parameters, which the compiler believes to be apart.
template <typename Use>
void MixRows(int32_t count, const float* a, const float* b, const float* c, const float (&weights)[3][3],
             float* __restrict one, float* __restrict two, float* __restrict three, const Use& use) {
  for (int32_t x = 0; x < count; ++x) {
    one[x] = use(0, x, Mixed(weights[0], a[x], b[x], c[x]));
    two[x] = use(1, x, Mixed(weights[1], a[x], b[x], c[x]));
    three[x] = use(2, x, Mixed(weights[2], a[x], b[x], c[x]));
  }
}

void Mix(int32_t count, const float* const* rows, const float (&weights)[3][3], float* const* mixed) {
  MixRows(count, rows[0], rows[1], rows[2], weights, mixed[0], mixed[1], mixed[2],
          [](int, int32_t, float value) { return value; });
}

void AddMixed(int32_t count, const float* const* to, const float* const* rows, const float (&weights)[3][3],
              float* const* sums) {
  MixRows(count, rows[0], rows[1], rows[2], weights, sums[0], sums[1], sums[2],
          [one = to[0], two = to[1], three = to[2]](int row, int32_t x, float value) {
            return (row == 0 ? one : row == 1 ? two : three)[x] + value;
          });
}

void Add(int32_t count, const float* a, const float* b, float* __restrict sums) {
  for (int32_t x = 0; x < count; ++x) sums[x] = a[x] + b[x];
}

template <int kReach>
constexpr int kSide = 2 * kReach + 1;
template <int kReach>
constexpr float kShare = 1.0f / (kSide<kReach> * kSide<kReach>);

template <int kReach>
inline float SumAlong(const float* row, int32_t x) {
  return SumOf<kSide<kReach>>([&](int i) { return row[x + i - kReach]; });
}
template <int kReach>
inline float SumDown(const WindowRows& window, int32_t x) {
  return SumOf<kSide<kReach>>([&](int i) { return window.rows[i][x]; });
}

template <int kReach>
void SumValues(int32_t count, const float* values, float* __restrict sums, float* __restrict squares) {
  for (int32_t x = 0; x < count; ++x) {
    sums[x] = SumAlong<kReach>(values, x);
    squares[x] = SumOf<kSide<kReach>>([&](int i) { return values[x + i - kReach] * values[x + i - kReach]; });
  }
}

template <int kReach>
void MeasureGain(int32_t count, const WindowRows& sumRows, const WindowRows& squareRows, const float* noise,
                 float* __restrict gain, float* __restrict smooth) {
  const WindowRows sums = sumRows, squares = squareRows;
  for (int32_t x = 0; x < count; ++x) {
    const float mean = SumDown<kReach>(sums, x) * kShare<kReach>;
    const float variance = SumDown<kReach>(squares, x) * kShare<kReach> - mean * mean;
    const float above = variance - noise[x];
    // Without noise the gain is 1 whatever the variance, so that samples stay exactly as they are.
    const float share = above > 0.0f ? above / (variance > 0.0f ? variance : 1.0f) : 0.0f;
    const float kept = noise[x] > 0.0f ? share : 1.0f;
    gain[x] = kept;
    smooth[x] = (1.0f - kept) * mean;
  }
}

template <int kReach>
void SumGains(int32_t count, const float* gain, const float* smooth, float* __restrict gains,
              float* __restrict smooths) {
  for (int32_t x = 0; x < count; ++x) gains[x] = SumAlong<kReach>(gain, x);
  for (int32_t x = 0; x < count; ++x) smooths[x] = SumAlong<kReach>(smooth, x);
}

template <int kReach>
void Change(int32_t count, const WindowRows& gainRows, const WindowRows& smoothRows, const float* values,
            float* __restrict change) {
  const WindowRows gains = gainRows, smooths = smoothRows;
  constexpr float kAll = kSide<kReach> * kSide<kReach>;
  for (int32_t x = 0; x < count; ++x) {
    change[x] =
        (SumDown<kReach>(smooths, x) - (kAll - SumDown<kReach>(gains, x)) * values[x]) * kShare<kReach>;
  }
}

constexpr RowKernels MakeRowKernels() {
  return {
      {Demodulate<0>, Demodulate<1>},
      {Distribute<kReductionWindows[0].hop>, Distribute<kReductionWindows[1].hop>},
      {AddBlocks<kReductionWindows[0].hop>, AddBlocks<kReductionWindows[1].hop>},
      Settle,
      Turn,
      Weigh,
      AddPower,
      SumSquares,
      TurnBeside,
      AddNear,
      BlendRows,
      DoubleRow,
      AddSteps,
      {Enlarge<4>, Enlarge<8>},
      SumWaves,
      {Separate<ByteFormat>, Separate<Host16Format>, Separate<Full16Format>, Separate<FloatFormat>},
      {Interleave<ByteFormat>, Interleave<Host16Format>, Interleave<Full16Format>, Interleave<FloatFormat>},
      Encode,
      Decode,
      EverySecond,
      {TakeOut<1>, TakeOut<2>},
      TakeOutOfCodes,
      AddSquares,
      AddMixedSquares,
      Mix,
      AddMixed,
      Add,
      {SumValues<1>, SumValues<2>, SumValues<3>},
      {MeasureGain<1>, MeasureGain<2>, MeasureGain<3>},
      {SumGains<1>, SumGains<2>, SumGains<3>},
      {Change<1>, Change<2>, Change<3>}};
}

}  // namespace
}  // namespace tessaline
