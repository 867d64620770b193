#include "fft/fft_2d.h"

#include <algorithm>
#include <cstddef>

#include "fft/mask_factor.h"
#include "fft/transpose_square.h"
#include "fft/vector_engine.h"
#include "image/pixel_kind.h"
#include "image/result_codes.h"
#include "platform/memory.h"

namespace tessaline {

namespace {

// An image of complex values, one or three of them per pixel.
struct Plane {
  ImageView view;
  int32_t width;     // pixels
  int32_t height;    // rows
  int32_t channels;  // 1 or 3

  explicit Plane(const ImageView& image)
      : view(image), width(image.width), height(image.height), channels(image.bytesPerPixel / kGrayComplex) {}
  int32_t RowValues() const { return width * channels; }
  size_t RowStride() const { return static_cast<size_t>(view.rowBytes) / sizeof(uint64_t); }
  uint64_t* Row(int32_t y) const { return view.Row<uint64_t>(y); }
  float* RowFloats(int32_t y) const { return view.Row<float>(y); }
};

// Everything one call works with. Every pass returns true when the user cancelled.
class Transform2D {
 public:
  Transform2D(const Plane& plane, Direction direction, const Progress& progress, TransformMemory* memory)
      : plane_(plane), source_(plane), direction_(direction), progress_(progress), memory_(*memory) {}

  // The column passes read `source` instead, multiplied by what the mask leaves of it, and write no more than
  // the wanted rows of the plane (and some around them). False: no memory.
  bool ReadMasked(const Plane& source, const ConstImageView& image, int32_t firstRow, int32_t rows) {
    source_ = source;
    firstStoredRow_ = firstRow / kColumnGroup * kColumnGroup;
    storedRows_ =
        std::min((firstRow + rows - firstStoredRow_ + kColumnGroup - 1) / kColumnGroup * kColumnGroup,
                 plane_.height - firstStoredRow_);
    maskRows_ = AllocateBlock<MaskRow>(static_cast<size_t>(plane_.height));
    if (maskRows_ == nullptr) return false;
    for (int32_t y = 0; y < plane_.height; ++y) {
      const uint8_t* const mask = image.Row(y);
      if (!IsAllZero(mask, plane_.width)) maskRows_[maskRowCount_++] = {mask, y};
    }
    return true;
  }

  // Both even: the quadrants are swapped on the way of the columns.
  bool CanSwapWithColumns() const { return plane_.width % 2 == 0 && plane_.height % 2 == 0; }

  bool TransformRows() { return TransformRows(0, plane_.height); }

  bool TransformRows(int32_t firstRow, int32_t rows) {
    for (int32_t y = firstRow; y < firstRow + rows; ++y) {
      if (Advance(1)) return true;
      float* const row = plane_.RowFloats(y);
      if (plane_.channels == 1) {
        memory_.alongRows(row, direction_);
        continue;
      }
      for (int32_t channel = 0; channel < plane_.channels; ++channel) TransformChannel(row + 2 * channel);
    }
    return false;
  }

  bool TransposeColour() {
    TransposeSquareColour(plane_.view);
    return false;
  }

  // Transforms the columns where they are.
  bool TransformColumns() {
    for (int32_t first = 0; first < plane_.RowValues(); first += kStripColumns) {
      const int32_t count = std::min(kStripColumns, plane_.RowValues() - first);
      if (Advance(double(plane_.width) * count / plane_.RowValues())) return true;
      GatherStrip(first, count, 0, memory_.strips[0].get());
      TransformStrip(count, memory_.strips[0].get());
      ScatterStrip(first, count, 0, memory_.strips[0].get());
    }
    return false;
  }

  // Transforms the columns and swaps the quadrants, after the transform or before it: strips of the left and
  // the right half go to each other's place, with their upper and lower halves swapped as they are stored (or
  // read).
  bool TransformColumnsAndSwapQuadrants(bool isSwapFirst) {
    const int32_t halfRow = plane_.RowValues() / 2;
    const int32_t halfHeight = plane_.height / 2;
    const int32_t shiftRead = isSwapFirst ? halfHeight : 0;
    const int32_t shiftStored = halfHeight - shiftRead;
    for (int32_t first = 0; first < halfRow; first += kStripColumns) {
      const int32_t count = std::min(kStripColumns, halfRow - first);
      if (Advance((plane_.width + 0.5 * plane_.height) * count / halfRow)) return true;
      const int32_t places[2] = {first, halfRow + first};
      for (int side = 0; side < 2; ++side) {
        GatherStrip(places[side], count, shiftRead, memory_.strips[side].get());
        if (maskRowCount_ > 0) MaskStrip(places[side], count, shiftRead, memory_.strips[side].get());
        TransformStrip(count, memory_.strips[side].get());
      }
      for (int side = 0; side < 2; ++side) {
        ScatterStrip(places[1 - side], count, shiftStored, memory_.strips[side].get());
      }
    }
    return false;
  }

  // Trades row and column i with i + half of their number. The last of an odd number has no partner and keeps
  // its place along that axis, so that the swap is its own inverse and 0 always meets the half.
  bool SwapQuadrants() {
    const int32_t halfHeight = plane_.height / 2;
    const ptrdiff_t halfRow = ptrdiff_t{plane_.channels} * (plane_.width / 2);
    const auto swapHalves = [&](uint64_t* row) { std::swap_ranges(row, row + halfRow, row + halfRow); };
    for (int32_t y = 0; y < halfHeight; ++y) {
      if (Advance(1)) return true;
      uint64_t* const upper = plane_.Row(y);
      uint64_t* const lower = plane_.Row(y + halfHeight);
      std::swap_ranges(upper, upper + plane_.RowValues(), lower);
      swapHalves(upper);
      swapHalves(lower);
    }
    if (plane_.height % 2 != 0) swapHalves(plane_.Row(plane_.height - 1));
    return false;
  }

 private:
  // The work in rows' worth: rows, columns and swapped rows. True when it is to stop.
  bool Advance(double work) {
    done_ += work;
    // NOLINTNEXTLINE(bugprone-integer-division): pairs of rows
    return progress_.Advance(done_, plane_.height + plane_.width + plane_.height / 2);
  }

  void TransformChannel(float* firstValue) {
    const OwnedBlock<float>& channelRow = memory_.channelRow;
    for (int32_t x = 0; x < plane_.width; ++x) {
      channelRow[2 * x] = firstValue[6 * x];
      channelRow[2 * x + 1] = firstValue[6 * x + 1];
    }
    memory_.alongRows(channelRow.get(), direction_);
    for (int32_t x = 0; x < plane_.width; ++x) {
      firstValue[6 * x] = channelRow[2 * x];
      firstValue[6 * x + 1] = channelRow[2 * x + 1];
    }
  }

  void TransformStrip(int32_t count, uint64_t* strip) {
    for (int32_t i = 0; i < count; ++i) {
      memory_.alongColumns(reinterpret_cast<float*>(strip + i * memory_.columnStride), direction_);
    }
  }

  // Row y of columns first .. first + count - 1 is element (y + shift) mod height of the strip's columns.
  void GatherStrip(int32_t first, int32_t count, int32_t shift, uint64_t* strip) {
    ForBothParts(shift, count, [&](int32_t planeRow, int32_t stripRow, const ColumnStrip& part) {
      const uint64_t* const plane = source_.Row(planeRow) + first;
      uint64_t* const columns = strip + stripRow;
      if (IsWholeGroups(part)) return activeVectorEngine->gatherColumns(part, plane, columns);
      for (size_t y = 0; y < part.rows; ++y) {
        for (size_t i = 0; i < part.columns; ++i)
          columns[i * memory_.columnStride + y] = plane[y * part.rowStride + i];
      }
    });
  }

  // Multiplies a strip as it was gathered, where there are notches.
  void MaskStrip(int32_t first, int32_t count, int32_t shift, uint64_t* strip) {
    for (int32_t row = 0; row < maskRowCount_; ++row) {
      const uint8_t* const mask = maskRows_[row].mask + first;
      if (IsAllZero(mask, count)) continue;
      const int32_t y = (maskRows_[row].y + plane_.height - shift) % plane_.height;
      for (int32_t i = 0; i < count; ++i) {
        AttenuateValue(mask[i], reinterpret_cast<float*>(strip + i * memory_.columnStride + y));
      }
    }
  }

  // Element y of the strip's columns goes to row (y + shift) mod height.
  void ScatterStrip(int32_t first, int32_t count, int32_t shift, const uint64_t* strip) {
    ForBothParts(shift, count, [&](int32_t stripRow, int32_t planeRow, ColumnStrip part) {
      if (storedRows_ > 0) {  // with a mask; such strips are not turned when they are stored
        stripRow = planeRow = firstStoredRow_;
        part.rows = static_cast<size_t>(storedRows_);
      }
      uint64_t* const plane = plane_.Row(planeRow) + first;
      const uint64_t* const columns = strip + stripRow;
      if (IsWholeGroups(part)) return activeVectorEngine->scatterColumns(part, plane, columns);
      for (size_t y = 0; y < part.rows; ++y) {
        for (size_t i = 0; i < part.columns; ++i)
          plane[y * part.rowStride + i] = columns[i * memory_.columnStride + y];
      }
    });
  }

  static bool IsWholeGroups(const ColumnStrip& part) {
    return part.rows % kColumnGroup == 0 && part.columns % kColumnGroup == 0;
  }

  // Calls move(from, to, part) for the two parts of columns that are turned by `shift` rows.
  template <typename Move>
  void ForBothParts(int32_t shift, int32_t columns, const Move& move) {
    ColumnStrip part{static_cast<size_t>(plane_.height - shift), static_cast<size_t>(columns),
                     plane_.RowStride(), memory_.columnStride};
    move(0, shift, part);
    part.rows = static_cast<size_t>(shift);
    if (shift > 0) move(plane_.height - shift, 0, part);
  }

  Plane plane_;
  Plane source_;
  Direction direction_;
  struct MaskRow {
    const uint8_t* mask;
    int32_t y;
  };
  OwnedBlock<MaskRow> maskRows_;  // those with notches
  int32_t maskRowCount_ = 0;
  int32_t firstStoredRow_ = 0;
  int32_t storedRows_ = 0;  // 0: all
  Progress progress_;
  double done_ = 0.0;
  TransformMemory& memory_;
};

bool RunForward(Transform2D& work, bool isTransposed) {
  if (isTransposed) {
    return work.TransformRows() || work.TransposeColour() || work.TransformRows() || work.TransposeColour() ||
           work.SwapQuadrants();
  }
  if (work.CanSwapWithColumns()) return work.TransformRows() || work.TransformColumnsAndSwapQuadrants(false);
  return work.TransformRows() || work.TransformColumns() || work.SwapQuadrants();
}

bool RunInverse(Transform2D& work, bool isTransposed) {
  if (isTransposed) {
    return work.SwapQuadrants() || work.TransformRows() || work.TransposeColour() || work.TransformRows() ||
           work.TransposeColour();
  }
  if (work.CanSwapWithColumns()) return work.TransformColumnsAndSwapQuadrants(true) || work.TransformRows();
  return work.SwapQuadrants() || work.TransformColumns() || work.TransformRows();
}

}  // namespace

int32_t Transform(const ImageView& image, Direction direction, Precision precision,
                  const Progress& progress) {
  TransformMemory memory;
  const int32_t result = memory.Take(image, precision);
  if (result != kSuccess) return result;
  Transform2D work(Plane(image), direction, progress, &memory);
  const auto run = direction == Direction::kForward ? RunForward : RunInverse;
  return run(work, memory.IsTransposed()) ? kUserCancelled : kSuccess;
}

int32_t InverseMaskedRows(const ImageView& spectrum, const ConstImageView& mask, const ImageView& destination,
                          int32_t firstRow, int32_t rows) {
  const int32_t width = spectrum.width, height = spectrum.height;
  if (!spectrum.HasShape(width, height, kGrayComplex) || !destination.HasShape(width, height, kGrayComplex) ||
      !mask.HasShape(width, height, kGray8) || width % 2 != 0 || height % 2 != 0) {
    return kUnequalSizes;
  }
  const int32_t first = std::clamp(firstRow, 0, height);
  const int32_t count = std::clamp(rows, 0, height - first);
  if (count == 0) return kSuccess;
  TransformMemory memory;
  const int32_t result = memory.Take(destination, Precision::kSingle);
  if (result != kSuccess) return result;
  Transform2D work(Plane(destination), Direction::kInverse, {}, &memory);
  if (!work.ReadMasked(Plane(spectrum), mask, first, count)) return kOutOfMemory;
  work.TransformColumnsAndSwapQuadrants(true);
  work.TransformRows(first, count);
  return kSuccess;
}

}  // namespace tessaline
