// The two-dimensional transform of real planes, a strip of columns at a time: what is wanted of the spectrum
// is taken from a strip while it is at hand, so that the spectrum as a whole is never stored.
//
// A plane's lines (two rows each, real_plane.h) are transformed first. Column kx of the half-transformed
// plane is then put together from columns kx and N - kx of the lines, which the two rows' transforms share:
//   R(2m)     = (Z(m, kx) + conj Z(m, -kx)) / 2
//   R(2m + 1) = (Z(m, kx) - conj Z(m, -kx)) / 2i
// Only columns 0 .. N/2 are needed; the others are their conjugates.
#pragma once

#include <cstdint>

#include "fft/real_plane.h"
#include "platform/memory.h"
#include "platform/parallel.h"
#include "platform/progress.h"

namespace tessaline {

// What one call does with the columns of a spectrum. Called from several threads at once, for one strip each.
class SpectrumColumns {
 public:
  virtual ~SpectrumColumns() = default;

  // Whether any of the columns first .. first + count - 1 is wanted; the others are skipped, and an inverse
  // leaves them as they are.
  virtual bool IsWanted(int32_t first, int32_t count) const = 0;

  // Column kx, 0 .. N/2: N complex values, ky = 0, 1, ..., N - 1 (negative frequencies from N/2 on),
  // unscaled. `worker` numbers the thread. What it changes is what an inverse transform starts from.
  virtual void Visit(int32_t kx, float* column, int32_t worker) = 0;

  // After the last column of a strip.
  virtual void EndStrip(int32_t /*strip*/, int32_t /*worker*/) {}
};

// Who takes the rows of a filtered plane as soon as they stand, from several threads at once.
class FinishedRows {
 public:
  virtual ~FinishedRows() = default;
  // Sample x is row[2 * x]; the row may be overwritten, and stays where it is until the plane is used again.
  virtual void Take(int32_t y, float* row) = 0;
};

class RealTransform {
 public:
  static constexpr int32_t kStripColumns = 32;
  static constexpr int32_t kLinesPerTask = 32;
  static constexpr int32_t kFrequenciesPerTask = 128;

  // For planes of N x N, N a power of two from 128 to 8192. False, and not usable, without memory.
  bool Prepare(int32_t size, int32_t workers);
  int32_t size() const { return size_; }

  // Strips of a plane: strip s holds columns kStripColumns s and up, the last one column N/2 alone.
  int32_t strips() const { return size_ / 2 / kStripColumns + 1; }

  // Forward, exp(-2 pi i (kx x + ky y) / N), in double precision; the plane is left half-transformed.
  // Constant rows need not have been written. Returns true when stopped.
  bool Examine(const RealPlane& plane, const ConstantRows& constant, SpectrumColumns& columns,
               Parallel& parallel, const Progress& progress);

  // Forward, the columns' changes, and back, in single precision: rows 0 .. wantedRows - 1 of the filtered
  // samples go to `rows` while a thread has them at hand. The plane is of no use afterwards. A change must
  // keep the plane real: what it does to (kx, ky) it does to (-kx, -ky). Not to be stopped in the middle:
  // what progress returns counts for nothing.
  void Filter(const RealPlane& plane, const ConstantRows& constant, SpectrumColumns& columns,
              int32_t wantedRows, FinishedRows& rows, Parallel& parallel, const Progress& progress);

  // The way back alone: `columns` makes the wanted ones instead of changing them, as for Filter; the others
  // are 0. Whatever was in the plane is lost.
  void Synthesise(const RealPlane& plane, SpectrumColumns& columns, int32_t wantedRows, FinishedRows& rows,
                  Parallel& parallel, const Progress& progress);

  // Sums over all rows of the last Examine or Filter's plane, as it was handed in, transformed along x:
  // complex values 0 .. N/2, sum(y) sum(x) p(x, y) exp(-2 pi i kx x / N). This is row ky = 0 of the spectrum.
  const double* columnSumSpectrum() const { return columnSumSpectrum_.get(); }
  // The transform along x of row 0 alone, likewise. Summed over all ky the spectrum's column kx is N times
  // it.
  const double* firstRowSpectrum() const { return firstRowSpectrum_.get(); }

 private:
  struct Strip;
  using LineTransform = void (RealTransform::*)(float* line) const;

  void TransformWidened(float* values) const;
  void TransformSingle(float* values) const;
  void InverseSingle(float* values) const;

  bool TransformLines(const RealPlane& plane, const ConstantRows& constant, LineTransform transform,
                      Parallel& parallel, const Progress& progress);
  void GatherStrip(const RealPlane& plane, const Strip& strip, int32_t worker) const;
  void ScatterStrip(const RealPlane& plane, const Strip& strip, int32_t wantedLines, int32_t worker) const;
  void UnmixColumn(const Strip& strip, int32_t kx, float* column, int32_t worker) const;
  void RemixColumn(const Strip& strip, int32_t kx, const float* column, int32_t wantedLines,
                   int32_t worker) const;
  void FinishLines(const RealPlane& plane, int32_t wantedRows, FinishedRows& rows, Parallel& parallel,
                   const Progress& progress) const;
  int32_t StoredLines(const RealPlane& plane, int32_t wantedRows) const;
  void ClearStrip(const Strip& strip, int32_t storedLines, int32_t worker) const;
  Strip StripAt(int32_t index) const;
  void SumLines(int32_t tasks, Parallel& parallel);
  void SumLinesAt(int32_t first, int32_t last, int32_t tasks);  // frequencies first .. last - 1

  uint64_t* Direct(int32_t worker) const;  // the worker's kStripColumns columns of lines, columnStride_ apart
  uint64_t* Mirrored(int32_t worker) const;  // and their mirror images
  float* Column(int32_t worker) const { return columns_.get() + static_cast<size_t>(worker) * columnFloats_; }

  int32_t size_ = 0;
  int32_t workers_ = 0;
  uint32_t log2Size_ = 0;
  size_t columnStride_ = 0;  // elements
  size_t columnFloats_ = 0;
  OwnedBlock<uint64_t> strips_;  // two strips a worker
  OwnedBlock<float> columns_;    // one column a worker
  OwnedBlock<float> table_;      // quarter wave of the single-precision engine
  OwnedBlock<float> taskSums_;   // sums of the transformed lines, one line a task
  OwnedBlock<float> firstLine_;  // the transformed line of rows 0 and 1
  OwnedBlock<double> columnSumSpectrum_, firstRowSpectrum_;
};

}  // namespace tessaline
