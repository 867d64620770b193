#include "fft/transform_memory.h"

#include "fft/transpose_square.h"
#include "image/pixel_kind.h"
#include "image/result_codes.h"

namespace tessaline {

int32_t TransformMemory::Take(const ConstImageView& image, Precision precision) {
  *this = {};
  if (image.bytesPerPixel != kGrayComplex && image.bytesPerPixel != kRgbComplex) return kUnknownPixelKind;
  shape = image;
  channelRow = AllocateBlock<float>(2 * (static_cast<size_t>(shape.width) + 2));
  if (channelRow == nullptr || !alongRows.Prepare(shape.width, precision)) return kOutOfMemory;
  if (IsTransposed()) return kSuccess;
  // A cache line more than the column: columns of a power of two would crowd into a few cache sets.
  columnStride = static_cast<size_t>(shape.height) + kColumnGroup;
  for (OwnedBlock<uint64_t>& strip : strips) {
    strip = AllocateBlock<uint64_t>(kStripColumns * columnStride);
    if (strip == nullptr) return kOutOfMemory;
  }
  return alongColumns.Prepare(shape.height, precision) ? kSuccess : kOutOfMemory;
}

bool TransformMemory::IsTransposed() const {
  return shape.bytesPerPixel == kRgbComplex && shape.width == shape.height && shape.width >= kTileSide;
}

}  // namespace tessaline
