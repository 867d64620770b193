// The inner loops of the gate and the polish, once per instruction set. All sets give the same bits: no
// operation is fused and every lane does what the others do.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tessaline {

// A reduction's window reaches over some blocks of `hop` samples both ways, its middle between two samples.
struct ReductionWindow {
  int hop, blocks;
  constexpr int side() const { return hop * blocks; }
};
constexpr ReductionWindow kReductionWindows[] = {{4, 2}, {8, 3}};
// A carrier's wave under it; value t stands for the samples t + 1/2 from the middle to either side.
struct CarrierWindow {
  static constexpr int kMost = 12;
  float cosineX[kMost], sineX[kMost], cosineY[kMost], sineY[kMost];
};
static_assert(CarrierWindow::kMost == kReductionWindows[1].side() / 2);
constexpr int kDemodulated = 128;                     // reduced samples that are computed at once
constexpr int kDemodulatedReach = kDemodulated + 16;  // values of a phase that they need, with some to spare

constexpr int kWaves = 8;  // whose sums go along together

// The sums of a carrier's rows with the cosines and with the sines of a wave down the columns.
struct BesideRows {
  const float *cosineReal, *cosineImaginary, *sineReal, *sineImaginary;
};

struct ComplexRow {
  const float *real, *imaginary;
};

// What a window answers to a constant at the places of a row: the product of what it does along it and down
// the columns, and the inverses of the shares of it that lie inside the picture.
struct ConstantAnswer {
  const float *real, *imaginary, *share;
  float downReal, downImaginary, downShare;
};

// Weights of four samples in a row for a place between the second and the third.
using Cubic = float[4];

// The polish, of windows of 2 * reach + 1 rows.
struct WindowRows {
  static constexpr int kMostRows = 7;
  const float* rows[kMostRows];
};

struct RowKernels {
  // By kReductionWindows: kDemodulated samples of `carriers` carriers, without the phase of the window's
  // place. `rows`: those of the window, by phases as below.
  void (*demodulate[2])(const float* const* rows, const CarrierWindow* windows, int32_t carriers,
                        float* const* real, float* const* imaginary);
  // Likewise: a row of hop * kDemodulatedReach levels by phases, level hop * i + p to value i of phase p,
  // which has kDemodulatedReach of them.
  void (*distribute[2])(const float* levels, float* phases);
  // Likewise: adds the values of `count` blocks, hop of each.
  void (*addBlocks[2])(int32_t count, const float* values, float* sums);
  // Of a carrier's row in place: less the slow changes times the window's answer to a constant, times the
  // inverse of the window's share inside the picture, times cosine - i sine.
  void (*settle)(int32_t count, const ConstantAnswer& answer, const float* slow, float cosine, float sine,
                 float* real, float* imaginary);
  // Times cosine - i sine.
  void (*turn)(int32_t count, const float* cosine, const float* sine, const float* real,
               const float* imaginary, float* turnedReal, float* turnedImaginary);
  // The sum of `terms` rows with weights.
  void (*weigh)(int32_t terms, const float* const* rows, const float* weights, int32_t count, float* sums);
  // Adds 4 gain |z|^2.
  void (*addPower)(int32_t count, float gain, const float* real, const float* imaginary, float* power);
  double (*sumSquares)(int32_t count, const float* values);
  // (C - i side S) (cosine - i side sine) of complex rows C and S.
  void (*turnBeside)(int32_t count, float side, const float* cosine, const float* sine,
                     const BesideRows& rows, float* real, float* imaginary);
  // Adds what the narrow row has of the wide one, and the wide one's power.
  void (*addNear)(int32_t count, const ComplexRow& narrow, const ComplexRow& wide, float* near, float* power);
  // Four rows' sum with weights, and two values for each of a row: between it and the one before, and between
  // it and the next, the weights to be read away from it. Two values to either side of the row are there.
  void (*blendRows)(int32_t count, const float* const (&rows)[4], const Cubic& weights, float* blended);
  void (*doubleRow)(int32_t count, const float* row, const Cubic& weights, float* doubled);
  // Adds smooth steps from 0 at `closed` on to 1.
  void (*addSteps)(int32_t count, const float* values, float closed, float slope, float* steps);
  // A row of a reduced plane (by 4, by 8), from the blend of two on: `blocks` blocks, of which the
  // neighbours to both sides are there.
  void (*enlarge[2])(int32_t blocks, const float* own, const float* other, float share, float* row);

  // Of two rows the sums of a place's value times its kWaves cosines, and times its sines.
  void (*sumWaves)(int32_t count, const float* const (&rows)[2], const float (*cosine)[kWaves],
                   const float (*sine)[kWaves], float (&cosines)[2][kWaves], float (&sines)[2][kWaves]);

  // Samples of three channels side by side, by SampleFormat, to rows of levels; and back, rounded to nearest.
  void (*separate[4])(int32_t count, const uint8_t* samples, float* const* levels);
  void (*interleave[4])(int32_t count, const float* const* levels, uint8_t* samples);
  // Levels that stand two floats apart in 16 bits, their middle at 0, rounded and clamped; packed ones back.
  void (*encode)(int32_t count, const float* levels, int16_t* codes);
  void (*decode)(int32_t count, const int16_t* codes, float* levels);
  // Packs values that stand two floats apart.
  void (*everySecond)(int32_t count, const float* values, float* packed);
  // Filtered levels become (level - filtered) * open less than the levels. What was taken out then is told;
  // nothing where that is no more than the codes' rounding. Where it is wholly open (null) they already are
  // what they become, and nothing is stored. By how far apart the filtered ones stand, 1 and 2 floats; and
  // for codes of them.
  void (*takeOut[2])(int32_t count, const float* levels, const float* open, float* filtered, float* taken);
  void (*takeOutOfCodes)(int32_t count, const float* levels, const float* open, int16_t* filtered,
                         float* taken);
  void (*addSquares)(int32_t count, const float* values, float* squares);
  void (*addMixedSquares)(int32_t count, const float* const* channels, const float (&weights)[3][3],
                          float* first, float* second, float* third);
  // Three rows' sums with weights; the same added to three others; the plain sum of two.
  void (*mix)(int32_t count, const float* const* rows, const float (&weights)[3][3], float* const* mixed);
  void (*addMixed)(int32_t count, const float* const* to, const float* const* rows,
                   const float (&weights)[3][3], float* const* sums);
  void (*add)(int32_t count, const float* a, const float* b, float* sums);
  // Polish, by reach 1, 2, 3: sums of values and of their squares along a row; gains from the sums of several
  // rows, and (1 - gain) mean; the sums of those two along a row; and what the polish adds to the values.
  void (*sumValues[3])(int32_t count, const float* values, float* sums, float* squares);
  void (*measureGain[3])(int32_t count, const WindowRows& sums, const WindowRows& squares, const float* noise,
                         float* gain, float* smooth);
  void (*sumGains[3])(int32_t count, const float* gain, const float* smooth, float* gains, float* smooths);
  void (*change[3])(int32_t count, const WindowRows& gains, const WindowRows& smooths, const float* values,
                    float* change);
};

// The ones for this processor.
const RowKernels& ActiveRowKernels();

// One per instruction set.
extern const RowKernels kBaselineRowKernels;
extern const RowKernels kAvx2RowKernels;
extern const RowKernels kAvx512RowKernels;

}  // namespace tessaline
