#include "fft/real_transform.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "fft/fft_dispatch.h"
#include "fft/float_fft.h"
#include "fft/vector_engine.h"

namespace tessaline {

// Columns kx = first .. first + count - 1 and where their mirror images N - kx stand.
struct RealTransform::Strip {
  int32_t first;
  int32_t count;          // kStripColumns, or 1 for column N/2
  int32_t mirroredFirst;  // first column of the mirrored block

  // The first strip's mirrored block begins with a column of the second strip's, which another thread may be
  // writing: it is left out.
  int32_t skipped() const { return first == 0 ? 1 : 0; }
  // Column N - kx in the mirrored block; columns 0 and N/2 are their own images.
  bool IsOwnMirror(int32_t kx, int32_t size) const { return kx == 0 || 2 * kx == size; }
  int32_t MirroredIndex(int32_t kx, int32_t size) const { return size - kx - mirroredFirst; }
};

bool RealTransform::Prepare(int32_t size, int32_t workers) {
  if (size == size_ && workers == workers_) return true;
  size_ = 0;
  const auto n = static_cast<size_t>(size);
  // A cache line more than the column: columns of a power of two would crowd into a few cache sets.
  columnStride_ = n / 2 + kColumnGroup;
  columnFloats_ = 2 * n + 16;
  const size_t tasks = (n / 2 + kLinesPerTask - 1) / kLinesPerTask;
  strips_ = AllocateBlock<uint64_t>(2 * kStripColumns * columnStride_ * static_cast<size_t>(workers));
  columns_ = AllocateBlock<float>(columnFloats_ * static_cast<size_t>(workers));
  table_ = AllocateBlock<float>(n / 4 + 2);
  taskSums_ = AllocateBlock<float>(2 * n * tasks);
  firstLine_ = AllocateBlock<float>(2 * n);
  columnSumSpectrum_ = AllocateBlock<double>(n + 2);
  firstRowSpectrum_ = AllocateBlock<double>(n + 2);
  if (!strips_ || !columns_ || !table_ || !taskSums_ || !firstLine_ || !columnSumSpectrum_ ||
      !firstRowSpectrum_) {
    return false;
  }
  MakeCosineTable(&log2Size_, size, table_.get());
  size_ = size;
  workers_ = workers;
  return true;
}

uint64_t* RealTransform::Direct(int32_t worker) const {
  return strips_.get() + static_cast<size_t>(2 * worker) * kStripColumns * columnStride_;
}
uint64_t* RealTransform::Mirrored(int32_t worker) const {
  return Direct(worker) + kStripColumns * columnStride_;
}

void RealTransform::TransformWidened(float* values) const {
  activeVectorEngine->transformWidened[log2Size_ - kShortestVectorLog2][1](values);
}
void RealTransform::TransformSingle(float* values) const {
  FloatFft(values, log2Size_, table_.get());
}
void RealTransform::InverseSingle(float* values) const {
  FloatFftInverse(values, log2Size_, table_.get());
}

bool RealTransform::TransformLines(const RealPlane& plane, const ConstantRows& constant,
                                   LineTransform transform, Parallel& parallel, const Progress& progress) {
  const int32_t lines = plane.lines();
  const int32_t tasks = (lines + kLinesPerTask - 1) / kLinesPerTask;
  // Lines both of whose rows are constant have nothing but a zero frequency.
  const int32_t firstConstant = (constant.first + 1) / 2;
  const int32_t lastConstant = std::max(constant.last / 2, firstConstant);
  const auto lineFloats = 2 * static_cast<size_t>(size_);
  const auto transformTask = [&](int32_t task, int32_t) {
    float* const sums = taskSums_.get() + static_cast<size_t>(task) * lineFloats;
    std::memset(sums, 0, lineFloats * sizeof(float));
    const int32_t end = std::min((task + 1) * kLinesPerTask, lines);
    for (int32_t m = task * kLinesPerTask; m < end; ++m) {
      float* const line = plane.Line(m);
      if (m >= firstConstant && m < lastConstant) {
        std::memset(line, 0, lineFloats * sizeof(float));
        line[0] = line[1] = constant.value * static_cast<float>(size_);
        sums[0] += line[0];
        sums[1] += line[1];
        continue;
      }
      (this->*transform)(line);
      for (size_t i = 0; i < lineFloats; ++i) sums[i] += line[i];
    }
  };
  const auto poll = [&](int32_t finished) { return progress.Advance(finished, tasks); };
  if (ForEachTask(parallel, tasks, transformTask, poll)) return true;
  std::memcpy(firstLine_.get(), plane.Line(0), lineFloats * sizeof(float));
  SumLines(tasks, parallel);
  return false;
}

void RealTransform::SumLines(int32_t tasks, Parallel& parallel) {
  const int32_t frequencies = size_ / 2 + 1;
  const auto sumPart = [&](int32_t part, int32_t) {
    const int32_t first = part * kFrequenciesPerTask;
    SumLinesAt(first, std::min(first + kFrequenciesPerTask, frequencies), tasks);
  };
  ForEachTask(parallel, (frequencies + kFrequenciesPerTask - 1) / kFrequenciesPerTask, sumPart,
              [](int32_t) { return false; });
}

// See the header's formulas. Every frequency adds the tasks' sums from the first to the last.
void RealTransform::SumLinesAt(int32_t begin, int32_t end, int32_t tasks) {
  const int32_t n = size_;
  const auto at = [n](int32_t kx) { return 2 * static_cast<size_t>(kx & (n - 1)); };
  struct Sum {
    double re = 0.0, im = 0.0;
    void Add(const float* value) {
      re += value[0];
      im += value[1];
    }
  };
  Sum direct[kFrequenciesPerTask], mirrored[kFrequenciesPerTask];
  for (int32_t task = 0; task < tasks; ++task) {
    const float* const sums = taskSums_.get() + 2 * static_cast<size_t>(n) * static_cast<size_t>(task);
    for (int32_t kx = begin; kx < end; ++kx) {
      direct[kx - begin].Add(sums + at(kx));
      mirrored[kx - begin].Add(sums + at(-kx));
    }
  }
  for (int32_t kx = begin; kx < end; ++kx) {
    const Sum &sum = direct[kx - begin], &mirror = mirrored[kx - begin];
    const double evenRe = sum.re + mirror.re, evenIm = sum.im - mirror.im;
    const double oddRe = sum.im + mirror.im, oddIm = mirror.re - sum.re;
    columnSumSpectrum_[2 * kx] = 0.5 * (evenRe + oddRe);
    columnSumSpectrum_[2 * kx + 1] = 0.5 * (evenIm + oddIm);
    const float* const first = firstLine_.get();
    firstRowSpectrum_[2 * kx] = 0.5 * (double{first[at(kx)]} + first[at(-kx)]);
    firstRowSpectrum_[2 * kx + 1] = 0.5 * (double{first[at(kx) + 1]} - first[at(-kx) + 1]);
  }
}

RealTransform::Strip RealTransform::StripAt(int32_t index) const {
  const int32_t first = index * kStripColumns;
  if (2 * first == size_) return {first, 1, first};
  // The first strip's block of mirror images begins with that of column kStripColumns, for column 0 has none.
  const int32_t mirroredFirst = index == 0 ? size_ - kStripColumns : size_ - first - kStripColumns + 1;
  return {first, kStripColumns, mirroredFirst};
}

namespace {

// `count` columns of `lines` lines each, from `plane` on.
void GatherColumns(const uint64_t* plane, size_t rowStride, size_t lines, int32_t count, uint64_t* columns,
                   size_t columnStride) {
  const ColumnStrip part{lines, static_cast<size_t>(count), rowStride, columnStride};
  if (count % kColumnGroup == 0 && lines % kColumnGroup == 0) {
    return activeVectorEngine->gatherColumns(part, plane, columns);
  }
  for (size_t y = 0; y < lines; ++y) {
    for (int32_t i = 0; i < count; ++i) columns[i * columnStride + y] = plane[y * rowStride + i];
  }
}

void ScatterColumns(const uint64_t* columns, size_t columnStride, size_t lines, int32_t count,
                    uint64_t* plane, size_t rowStride) {
  const ColumnStrip part{lines, static_cast<size_t>(count), rowStride, columnStride};
  if (count % kColumnGroup == 0 && lines % kColumnGroup == 0) {
    return activeVectorEngine->scatterColumns(part, plane, columns);
  }
  for (size_t y = 0; y < lines; ++y) {
    for (int32_t i = 0; i < count; ++i) plane[y * rowStride + i] = columns[i * columnStride + y];
  }
}

uint64_t* PlaneColumn(const RealPlane& plane, int32_t column) {
  return reinterpret_cast<uint64_t*>(plane.data) + column;
}

}  // namespace

void RealTransform::GatherStrip(const RealPlane& plane, const Strip& strip, int32_t worker) const {
  const auto lines = static_cast<size_t>(plane.lines());
  const auto stride = static_cast<size_t>(size_);
  GatherColumns(PlaneColumn(plane, strip.first), stride, lines, strip.count, Direct(worker), columnStride_);
  if (strip.count > 1) {
    const int32_t skipped = strip.skipped();
    GatherColumns(PlaneColumn(plane, strip.mirroredFirst + skipped), stride, lines, strip.count - skipped,
                  Mirrored(worker) + skipped * columnStride_, columnStride_);
  }
}

void RealTransform::ScatterStrip(const RealPlane& plane, const Strip& strip, int32_t wantedLines,
                                 int32_t worker) const {
  const auto stride = static_cast<size_t>(size_);
  const auto lines = static_cast<size_t>(wantedLines);
  ScatterColumns(Direct(worker), columnStride_, lines, strip.count, PlaneColumn(plane, strip.first), stride);
  if (strip.count == 1) return;
  const int32_t skipped = strip.skipped();
  ScatterColumns(Mirrored(worker) + skipped * columnStride_, columnStride_, lines, strip.count - skipped,
                 PlaneColumn(plane, strip.mirroredFirst + skipped), stride);
}

void RealTransform::UnmixColumn(const Strip& strip, int32_t kx, float* column, int32_t worker) const {
  const auto* const direct =
      reinterpret_cast<const float*>(Direct(worker) + (kx - strip.first) * columnStride_);
  const auto* const mirrored =
      strip.IsOwnMirror(kx, size_)
          ? direct
          : reinterpret_cast<const float*>(Mirrored(worker) + strip.MirroredIndex(kx, size_) * columnStride_);
  const int32_t lines = size_ / 2;
  for (int32_t m = 0; m < lines; ++m) {
    const float re = direct[2 * m], im = direct[2 * m + 1];
    const float mirroredRe = mirrored[2 * m], mirroredIm = mirrored[2 * m + 1];
    column[4 * m] = 0.5f * (re + mirroredRe);
    column[4 * m + 1] = 0.5f * (im - mirroredIm);
    column[4 * m + 2] = 0.5f * (im + mirroredIm);
    column[4 * m + 3] = 0.5f * (mirroredRe - re);
  }
}

// The way back: Z(m, kx) = R(2m) + i R(2m + 1), Z(m, -kx) = conj R(2m) + i conj R(2m + 1).
void RealTransform::RemixColumn(const Strip& strip, int32_t kx, const float* column, int32_t wantedLines,
                                int32_t worker) const {
  auto* const direct = reinterpret_cast<float*>(Direct(worker) + (kx - strip.first) * columnStride_);
  for (int32_t m = 0; m < wantedLines; ++m) {
    direct[2 * m] = column[4 * m] - column[4 * m + 3];
    direct[2 * m + 1] = column[4 * m + 1] + column[4 * m + 2];
  }
  if (strip.IsOwnMirror(kx, size_)) return;
  auto* const mirrored =
      reinterpret_cast<float*>(Mirrored(worker) + strip.MirroredIndex(kx, size_) * columnStride_);
  for (int32_t m = 0; m < wantedLines; ++m) {
    mirrored[2 * m] = column[4 * m] + column[4 * m + 3];
    mirrored[2 * m + 1] = column[4 * m + 2] - column[4 * m + 1];
  }
}

bool RealTransform::Examine(const RealPlane& plane, const ConstantRows& constant, SpectrumColumns& columns,
                            Parallel& parallel, const Progress& progress) {
  if (TransformLines(plane, constant, &RealTransform::TransformWidened, parallel, progress.Part(0.0, 0.5))) {
    return true;
  }
  const Progress rest = progress.Part(0.5, 1.0);
  const auto examineStrip = [&](int32_t index, int32_t worker) {
    const Strip strip = StripAt(index);
    GatherStrip(plane, strip, worker);
    float* const column = Column(worker);
    for (int32_t kx = strip.first; kx < strip.first + strip.count; ++kx) {
      UnmixColumn(strip, kx, column, worker);
      TransformWidened(column);
      columns.Visit(kx, column, worker);
    }
    columns.EndStrip(index, worker);
  };
  return ForEachTask(parallel, strips(), examineStrip,
                     [&](int32_t finished) { return rest.Advance(finished, strips()); });
}

void RealTransform::Filter(const RealPlane& plane, const ConstantRows& constant, SpectrumColumns& columns,
                           int32_t wantedRows, FinishedRows& rows, Parallel& parallel,
                           const Progress& progress) {
  const Progress told = progress.Unstoppable();
  TransformLines(plane, constant, &RealTransform::TransformSingle, parallel, told.Part(0.0, 0.3));
  const int32_t storedLines = StoredLines(plane, wantedRows);
  const Progress middle = told.Part(0.3, 0.7);
  ForEachTask(
      parallel, strips(),
      [&](int32_t index, int32_t worker) {
        const Strip strip = StripAt(index);
        if (!columns.IsWanted(strip.first, strip.count)) return;
        GatherStrip(plane, strip, worker);
        float* const column = Column(worker);
        for (int32_t kx = strip.first; kx < strip.first + strip.count; ++kx) {
          if (!columns.IsWanted(kx, 1)) continue;
          UnmixColumn(strip, kx, column, worker);
          TransformSingle(column);
          columns.Visit(kx, column, worker);
          InverseSingle(column);
          RemixColumn(strip, kx, column, storedLines, worker);
        }
        ScatterStrip(plane, strip, storedLines, worker);
        columns.EndStrip(index, worker);
      },
      [&](int32_t finished) { return middle.Advance(finished, strips()); });
  FinishLines(plane, wantedRows, rows, parallel, told.Part(0.7, 1.0));
}

void RealTransform::Synthesise(const RealPlane& plane, SpectrumColumns& columns, int32_t wantedRows,
                               FinishedRows& rows, Parallel& parallel, const Progress& progress) {
  const Progress told = progress.Unstoppable();
  const int32_t storedLines = StoredLines(plane, wantedRows);
  const Progress first = told.Part(0.0, 0.6);
  ForEachTask(
      parallel, strips(),
      [&](int32_t index, int32_t worker) {
        const Strip strip = StripAt(index);
        ClearStrip(strip, storedLines, worker);
        if (columns.IsWanted(strip.first, strip.count)) {
          float* const column = Column(worker);
          for (int32_t kx = strip.first; kx < strip.first + strip.count; ++kx) {
            if (!columns.IsWanted(kx, 1)) continue;
            columns.Visit(kx, column, worker);
            InverseSingle(column);
            RemixColumn(strip, kx, column, storedLines, worker);
          }
        }
        ScatterStrip(plane, strip, storedLines, worker);
        columns.EndStrip(index, worker);
      },
      [&](int32_t finished) { return first.Advance(finished, strips()); });
  FinishLines(plane, wantedRows, rows, parallel, told.Part(0.6, 1.0));
}

// Whole groups, which the vector code moves.
int32_t RealTransform::StoredLines(const RealPlane& plane, int32_t wantedRows) const {
  const int32_t wantedLines = (wantedRows + 1) / 2;
  return std::min((wantedLines + kColumnGroup - 1) / kColumnGroup * kColumnGroup, plane.lines());
}

void RealTransform::ClearStrip(const Strip& strip, int32_t storedLines, int32_t worker) const {
  const size_t bytes = static_cast<size_t>(storedLines) * sizeof(uint64_t);
  for (int32_t i = 0; i < strip.count; ++i) {
    std::memset(Direct(worker) + static_cast<size_t>(i) * columnStride_, 0, bytes);
    std::memset(Mirrored(worker) + static_cast<size_t>(i) * columnStride_, 0, bytes);
  }
}

void RealTransform::FinishLines(const RealPlane& plane, int32_t wantedRows, FinishedRows& rows,
                                Parallel& parallel, const Progress& progress) const {
  const int32_t wantedLines = (wantedRows + 1) / 2;
  const int32_t tasks = (wantedLines + kLinesPerTask - 1) / kLinesPerTask;
  ForEachTask(
      parallel, tasks,
      [&](int32_t task, int32_t) {
        const int32_t end = std::min((task + 1) * kLinesPerTask, wantedLines);
        for (int32_t m = task * kLinesPerTask; m < end; ++m) {
          InverseSingle(plane.Line(m));
          for (int32_t y = 2 * m; y < std::min(2 * m + 2, wantedRows); ++y) rows.Take(y, plane.Row(y));
        }
      },
      [&](int32_t finished) { return progress.Advance(finished, tasks); });
}

}  // namespace tessaline
