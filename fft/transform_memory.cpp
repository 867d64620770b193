#include "fft/transform_memory.h"

#include "buffers/levels.h"
#include "buffers/result_codes.h"
#include "fft/transpose_square.h"

namespace tessaline {

int32_t TransformMemory::Take(const BufferShape& wanted, bool useDoubleKernels) {
  *this = {};
  if (wanted.bytesPerPixel != kGrayComplex && wanted.bytesPerPixel != kRgbComplex) return kUnknownPixelKind;
  shape = wanted;
  isForDoubleKernels = useDoubleKernels;
  channelRow = AllocateBlock<float>(2 * (static_cast<size_t>(shape.width) + 2));
  if (channelRow == nullptr || !alongRows.Prepare(shape.width, useDoubleKernels)) return kOutOfMemory;
  if (IsTransposed()) return kSuccess;
  // A cache line more than the column: columns of a power of two would crowd into a few cache sets.
  columnStride = static_cast<size_t>(shape.height) + kColumnGroup;
  for (OwnedBlock<uint64_t>& strip : strips) {
    strip = AllocateBlock<uint64_t>(kStripColumns * columnStride);
    if (strip == nullptr) return kOutOfMemory;
  }
  return alongColumns.Prepare(shape.height, useDoubleKernels) ? kSuccess : kOutOfMemory;
}

bool TransformMemory::IsFor(const BufferShape& wanted, bool useDoubleKernels) const {
  return wanted.width == shape.width && wanted.height == shape.height &&
         wanted.bytesPerPixel == shape.bytesPerPixel && useDoubleKernels == isForDoubleKernels;
}

bool TransformMemory::IsTransposed() const {
  return shape.bytesPerPixel == kRgbComplex && shape.width == shape.height && shape.width >= kTileSide;
}

}  // namespace tessaline
