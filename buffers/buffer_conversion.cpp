#include "buffers/buffer_conversion.h"

#include <algorithm>
#include <cstring>

#include "buffers/buffer_table.h"
#include "image/pixel_conversion.h"
#include "image/pixel_kind.h"
#include "image/result_codes.h"

namespace tessaline {

namespace {

int64_t ByteCount(const ImageView& image) {
  return int64_t{image.width} * image.height * image.bytesPerPixel;
}

}  // namespace

int32_t ConvertBuffer(int32_t sourceSlot, int32_t destinationSlot) {
  const ImageView source = ViewOf(sourceSlot);
  const ImageView destination = ViewOf(destinationSlot);
  if (source.IsEmpty() || destination.IsEmpty()) return kInvalidSlotOrFile;

  // Equal byte counts mean a raw copy even where the kinds differ: 100 x 100 of 16-bit grey into 200 x 100 of
  // 8-bit grey copies bytes. Callers use it to copy between equal buffers; do not compare kinds here.
  if (ByteCount(source) == ByteCount(destination)) {
    if (sourceSlot != destinationSlot) {
      std::memcpy(destination.data, source.data, static_cast<size_t>(ByteCount(source)));
    }
    MarkDirty(destinationSlot);
    return kSuccess;
  }

  const int32_t width = std::min(source.width, destination.width);
  const int32_t height = std::min(source.height, destination.height);
  if (width < destination.width || height < destination.height) ClearImage(destination);
  MarkDirty(destinationSlot);
  if (FindPixelKind(source.bytesPerPixel) == nullptr) return kUnknownPixelKind;
  const RowConverter convert = FindRowConverter(source.bytesPerPixel, destination.bytesPerPixel);
  if (convert == nullptr) {
    ClearImage(destination);  // nothing is known that could be written: black
    return kSuccess;
  }
  for (int32_t y = 0; y < height; ++y) convert(source.Row(y), destination.Row(y), width);
  return kSuccess;
}

}  // namespace tessaline
