#include "fft/fft_2d.h"

#include <algorithm>
#include <bit>
#include <cstddef>

#include "buffers/buffer_table.h"
#include "buffers/levels.h"
#include "buffers/result_codes.h"
#include "fft/fft_dispatch.h"
#include "fft/float_fft.h"
#include "fft/progress_steps.h"
#include "fft/transpose_square.h"
#include "platform/memory.h"

namespace tessaline {

namespace {

enum class Direction { kForward, kInverse };

// One-dimensional transforms of one length with the engine that was chosen, and the memory they need.
class RowTransform {
 public:
  // False: no memory.
  bool Prepare(int32_t length, bool useDoubleKernels, Direction direction) {
    length_ = static_cast<uint32_t>(length);
    direction_ = direction;
    useDoubleKernels_ = useDoubleKernels;
    if (useDoubleKernels_) {
      scratch_ = AllocateBlock<double>(2 * (size_t{length_} + 2));
      return scratch_ != nullptr;
    }
    table_ = AllocateBlock<float>(size_t{length_} + 2);
    if (table_ == nullptr) return false;
    MakeCosineTable(&log2Length_, length, table_.get());
    return true;
  }

  void operator()(float* row) const {
    const bool isForward = direction_ == Direction::kForward;
    if (useDoubleKernels_) {
      // `inverse` of FftComplexFloat names the exp(-) kernels, which make the forward transform.
      FftComplexFloat(isForward, row, length_, scratch_.get());
    } else if (std::has_single_bit(length_)) {
      // Other lengths have no transform: such rows stay, as they do with the double kernels.
      (isForward ? FloatFft : FloatFftInverse)(row, log2Length_, table_.get());
    }
  }

 private:
  uint32_t length_ = 0;
  uint32_t log2Length_ = 0;
  Direction direction_ = Direction::kForward;
  bool useDoubleKernels_ = false;
  OwnedBlock<double> scratch_;
  OwnedBlock<float> table_;
};

// A buffer of complex values, one or three of them per pixel.
struct Plane {
  int32_t slot;
  int32_t width;     // pixels
  int32_t height;    // rows
  int32_t channels;  // 1 or 3

  int32_t RowValues() const { return width * channels; }
  float* Row(int32_t y) const { return reinterpret_cast<float*>(BufferRow(slot, y)); }
};

constexpr int32_t kColumnsAtATime = 8;

// Everything one call works with. Every pass returns true when the user cancelled.
class Transform2D {
 public:
  Transform2D(const Plane& plane, const ProgressSteps& steps) : plane_(plane), steps_(steps) {}

  bool Prepare(bool useDoubleKernels, Direction direction) {
    values_ =
        AllocateBlock<float>(2 * (size_t{static_cast<uint32_t>(std::max(plane_.width, plane_.height))} + 2));
    if (values_ == nullptr || !alongRows_.Prepare(plane_.width, useDoubleKernels, direction)) return false;
    if (IsTransposable()) return true;
    columns_ = AllocateBlock<float>(size_t{2 * kColumnsAtATime} * static_cast<uint32_t>(plane_.height));
    return columns_ != nullptr && alongColumns_.Prepare(plane_.height, useDoubleKernels, direction);
  }

  // Square planes are transposed, so that every transform reads whole rows.
  bool IsTransposable() const { return plane_.width == plane_.height && plane_.width >= kTileSide; }

  bool TransformRows(int32_t fifth) {
    for (int32_t y = 0; y < plane_.height; ++y) {
      if (ReportAndAsk(steps_, fifth, y, plane_.height)) return true;
      float* const row = plane_.Row(y);
      if (plane_.channels == 1) {
        alongRows_(row);
        continue;
      }
      for (int32_t channel = 0; channel < plane_.channels; ++channel) TransformChannel(row + 2 * channel);
    }
    return false;
  }

  bool Transpose(int32_t fifth) {
    return (plane_.channels == 1 ? TransposeSquare : TransposeSquareColour)(plane_.slot, fifth, steps_) !=
           kSuccess;
  }

  bool TransformColumns(int32_t fifth) {
    const int32_t groups = (plane_.RowValues() + kColumnsAtATime - 1) / kColumnsAtATime;
    const size_t columnFloats = 2 * static_cast<size_t>(plane_.height);
    for (int32_t group = 0; group < groups; ++group) {
      if (ReportAndAsk(steps_, fifth, group, groups)) return true;
      const int32_t first = group * kColumnsAtATime;
      const int32_t count = std::min(kColumnsAtATime, plane_.RowValues() - first);
      for (int32_t y = 0; y < plane_.height; ++y) {
        const float* const values = plane_.Row(y) + 2 * first;
        for (int32_t i = 0; i < count; ++i) {
          float* const column = columns_.get() + columnFloats * i;
          column[2 * y] = values[2 * i];
          column[2 * y + 1] = values[2 * i + 1];
        }
      }
      for (int32_t i = 0; i < count; ++i) alongColumns_(columns_.get() + columnFloats * i);
      for (int32_t y = 0; y < plane_.height; ++y) {
        float* const values = plane_.Row(y) + 2 * first;
        for (int32_t i = 0; i < count; ++i) {
          const float* const column = columns_.get() + columnFloats * i;
          values[2 * i] = column[2 * y];
          values[2 * i + 1] = column[2 * y + 1];
        }
      }
    }
    return false;
  }

  // Moves (row, x) to (row + height / 2, x + width / 2), modulo the sizes; its own inverse where both are
  // even.
  bool SwapQuadrants(int32_t fifth) {
    const int32_t halfHeight = plane_.height / 2;
    const ptrdiff_t halfRow = ptrdiff_t{2} * plane_.channels * (plane_.width / 2);  // floats
    for (int32_t y = 0; y < halfHeight; ++y) {
      if (ReportAndAsk(steps_, fifth, y, halfHeight)) return true;
      float* const upper = plane_.Row(y);
      float* const lower = plane_.Row(y + halfHeight);
      std::swap_ranges(upper, upper + halfRow, lower + halfRow);
      std::swap_ranges(upper + halfRow, upper + 2 * halfRow, lower);
    }
    return false;
  }

 private:
  void TransformChannel(float* firstValue) {
    for (int32_t x = 0; x < plane_.width; ++x) {
      values_[2 * x] = firstValue[6 * x];
      values_[2 * x + 1] = firstValue[6 * x + 1];
    }
    alongRows_(values_.get());
    for (int32_t x = 0; x < plane_.width; ++x) {
      firstValue[6 * x] = values_[2 * x];
      firstValue[6 * x + 1] = values_[2 * x + 1];
    }
  }

  Plane plane_;
  ProgressSteps steps_;
  RowTransform alongRows_;
  RowTransform alongColumns_;
  OwnedBlock<float> values_;
  OwnedBlock<float> columns_;
};

int32_t Run(int32_t slot, Direction direction, bool useDoubleKernels, const ProgressSteps& steps) {
  const BufferShape shape = ShapeOf(slot);
  if (shape.bytesPerPixel != kGrayComplex && shape.bytesPerPixel != kRgbComplex) return kSuccess;
  Transform2D work({slot, shape.width, shape.height, shape.bytesPerPixel / kGrayComplex}, steps);
  if (!work.Prepare(useDoubleKernels, direction)) return kOutOfMemory;
  MarkDirty(slot);
  bool isCancelled = false;
  if (work.IsTransposable()) {
    if (direction == Direction::kForward) {
      isCancelled = work.TransformRows(0) || work.Transpose(1) || work.TransformRows(2) ||
                    work.Transpose(3) || work.SwapQuadrants(4);
    } else {
      isCancelled = work.SwapQuadrants(0) || work.TransformRows(1) || work.Transpose(2) ||
                    work.TransformRows(3) || work.Transpose(4);
    }
  } else if (direction == Direction::kForward) {
    isCancelled = work.TransformRows(0) || work.TransformColumns(2) || work.SwapQuadrants(4);
  } else {
    isCancelled = work.SwapQuadrants(0) || work.TransformColumns(2) || work.TransformRows(4);
  }
  return isCancelled ? kUserCancelled : kSuccess;
}

}  // namespace

int32_t ForwardFft2D(int32_t slot, bool showProgress, bool useDoubleKernels, const RunContext* context,
                     int32_t firstStep, int32_t lastStep, int32_t totalSteps) {
  return Run(slot, Direction::kForward, useDoubleKernels,
             {showProgress, context, firstStep, lastStep, totalSteps});
}

int32_t InverseFft2D(int32_t slot, bool showProgress, bool useDoubleKernels, const RunContext* context,
                     int32_t firstStep, int32_t lastStep, int32_t totalSteps) {
  return Run(slot, Direction::kInverse, useDoubleKernels,
             {showProgress, context, firstStep, lastStep, totalSteps});
}

}  // namespace tessaline
