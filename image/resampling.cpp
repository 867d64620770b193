#include "image/resampling.h"

#include <cmath>
#include <cstddef>
#include <cstring>

#include "image/pixel_conversion.h"
#include "image/result_codes.h"
#include "platform/memory.h"

namespace tessaline {

namespace {

// Source index of each destination index along one axis, -1 outside the source.
OwnedBlock<int32_t> SourceIndices(int32_t destinationSize, int32_t sourceSize, float offset, float zoom) {
  auto indices = AllocateBlock<int32_t>(static_cast<size_t>(destinationSize));
  if (!indices) return indices;
  for (int32_t i = 0; i < destinationSize; ++i) {
    const double position = std::floor(double{offset} + (i + 0.5) / double{zoom});
    indices[i] = position >= 0 && position < sourceSize ? static_cast<int32_t>(position) : -1;
  }
  return indices;
}

// One row of pixels picked by index. The pixel size as a constant lets the copy become one move.
template <size_t PixelBytes>
void PickPixels(const uint8_t* source, const int32_t* indices, int32_t pixels, uint8_t* destination) {
  for (int32_t x = 0; x < pixels; ++x, destination += PixelBytes) {
    if (indices[x] < 0) {
      std::memset(destination, 0, PixelBytes);
    } else {
      std::memcpy(destination, source + static_cast<size_t>(indices[x]) * PixelBytes, PixelBytes);
    }
  }
}

// Life size, and no part outside: a row is one stretch of its source.
bool IsOneStretch(const int32_t* indices, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    if (indices[i] != indices[0] + i || indices[i] < 0) return false;
  }
  return true;
}

using PixelPicker = void (*)(const uint8_t*, const int32_t*, int32_t, uint8_t*);

PixelPicker FindPixelPicker(int32_t bytesPerPixel) {
  switch (bytesPerPixel) {
    case 1:
      return PickPixels<1>;
    case 2:
      return PickPixels<2>;
    case 3:
      return PickPixels<3>;
    case 4:
      return PickPixels<4>;
    case 6:
      return PickPixels<6>;
    case 8:
      return PickPixels<8>;
    case 12:
      return PickPixels<12>;
    case 16:
      return PickPixels<16>;
    case 24:
      return PickPixels<24>;
    default:
      return nullptr;
  }
}

}  // namespace

int32_t ResampleImage(const ConstImageView& source, float offsetX, float offsetY, float zoom,
                      const ImageView& destination) {
  if (source.IsEmpty() || destination.IsEmpty()) return kInvalidSlotOrFile;
  const PixelPicker pick = FindPixelPicker(source.bytesPerPixel);
  const bool isSameKind = source.bytesPerPixel == destination.bytesPerPixel;
  const RowConverter convert =
      isSameKind ? nullptr : FindRowConverter(source.bytesPerPixel, destination.bytesPerPixel);
  if (pick == nullptr || (!isSameKind && convert == nullptr)) return kUnknownPixelKind;
  if (!std::isfinite(offsetX) || !std::isfinite(offsetY) || !std::isfinite(zoom) || !(zoom > 0.0f)) {
    return kUnequalSizes;
  }
  const auto columns = SourceIndices(destination.width, source.width, offsetX, zoom);
  const auto rows = SourceIndices(destination.height, source.height, offsetY, zoom);
  const auto picked = AllocateBlock<uint8_t>(
      isSameKind ? 0 : static_cast<size_t>(destination.width) * static_cast<size_t>(source.bytesPerPixel));
  if (!columns || !rows || !picked) return kOutOfMemory;

  const bool isStretch = IsOneStretch(columns.get(), destination.width);
  const size_t rowBytes = static_cast<size_t>(destination.width) * destination.bytesPerPixel;
  for (int32_t y = 0; y < destination.height; ++y) {
    uint8_t* const row = destination.Row(y);
    if (rows[y] < 0) {
      std::memset(row, 0, rowBytes);
    } else if (y > 0 && rows[y] == rows[y - 1]) {
      std::memcpy(row, destination.Row(y - 1), rowBytes);
    } else {
      const uint8_t* pixels = source.Row(rows[y]);
      if (isStretch) {
        pixels += columns[0] * static_cast<ptrdiff_t>(source.bytesPerPixel);
      } else {
        uint8_t* const target = isSameKind ? row : picked.get();
        pick(pixels, columns.get(), destination.width, target);
        pixels = target;
      }
      if (!isSameKind) {
        convert(pixels, row, destination.width);
      } else if (isStretch) {
        std::memcpy(row, pixels, rowBytes);
      }
    }
  }
  return kSuccess;
}

}  // namespace tessaline
