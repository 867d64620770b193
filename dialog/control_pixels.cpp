#include "dialog/control_pixels.h"

#include <algorithm>
#include <cstring>

#include "buffers/buffer_table.h"
#include "image/pixel_kind.h"
#include "image/result_codes.h"

namespace tessaline {

namespace {

// 16-bit levels to bytes, in a buffer of the control's own size and in a stretched one. The two differ from
// each other and from the scale of image/pixel_kind.h in their last digits. Deliberate, keep both: every
// pixel of a 16-bit preview depends on them, and the next one up or down moves whole levels.
constexpr float kSameSizeScale = 0.0077821012f;
constexpr float kStretchedScale = 0.007781982f;

template <typename Sample>
uint8_t ByteOf(Sample level, float scale) {
  return sizeof(Sample) == 1 ? static_cast<uint8_t>(level) : StoreByte(static_cast<float>(level) * scale);
}

// Beside the picture: as far from its lights as from its darks.
constexpr uint32_t kOutsidePixel = 0x808080;

// One pixel as the 32 bits that are stored: blue in the lowest byte.
template <typename Sample, int kChannels>
uint32_t PixelOf(const Sample* pixel, float scale) {
  const uint32_t red = ByteOf(pixel[0], scale);
  if constexpr (kChannels == 1) return red * 0x010101u;
  return ByteOf(pixel[2], scale) | uint32_t{ByteOf(pixel[1], scale)} << 8 | red << 16;
}

// `columns`: the source pixel that each control pixel shows; null: its own.
template <typename Sample, int kChannels>
void DrawRow(const void* row, const int32_t* columns, int32_t width, float scale, uint8_t* pixels) {
  const auto* const samples = static_cast<const Sample*>(row);
  const auto draw = [&](int32_t x, int32_t column) {
    const uint32_t pixel = PixelOf<Sample, kChannels>(samples + column * kChannels, scale);
    std::memcpy(pixels + x * kControlPixelBytes, &pixel, sizeof(pixel));
  };
  if (columns == nullptr) {
    for (int32_t x = 0; x < width; ++x) draw(x, x);
  } else {
    for (int32_t x = 0; x < width; ++x) draw(x, columns[x]);
  }
}

using RowDrawer = void (*)(const void* row, const int32_t* columns, int32_t width, float scale,
                           uint8_t* pixels);

RowDrawer FindRowDrawer(int32_t bytesPerPixel) {
  if (!IsPictureKind(bytesPerPixel)) return nullptr;
  return WithKind(*FindPixelKind(bytesPerPixel), [](auto sample, auto channels) -> RowDrawer {
    return DrawRow<decltype(sample), channels()>;
  });
}

}  // namespace

int32_t DrawBufferPixels(int32_t slot, int32_t width, int32_t height, uint8_t* pixels, PicturePart part) {
  const BufferShape shape = ShapeOf(slot);
  const RowDrawer draw = FindRowDrawer(shape.bytesPerPixel);
  const size_t rowBytes = static_cast<size_t>(width) * kControlPixelBytes;
  if (draw == nullptr) {
    std::memset(pixels, 0, rowBytes * static_cast<size_t>(height));
    return kSuccess;
  }
  const auto columns = AllocateBlock<int32_t>(static_cast<size_t>(width));
  if (!columns) return kOutOfMemory;
  for (int32_t x = 0; x < width; ++x) {
    columns[x] = static_cast<int32_t>(int64_t{x} * shape.width / width);
  }
  const bool isSameSize = shape.width == width && shape.height == height;
  const auto pictureWidth = static_cast<int32_t>(
      std::lower_bound(columns.get(), columns.get() + width, part.width) - columns.get());
  const float scale = isSameSize ? kSameSizeScale : kStretchedScale;
  for (int32_t y = 0; y < height; ++y) {
    const auto sourceY = static_cast<int32_t>(int64_t{y} * shape.height / height);
    const int32_t shown = sourceY < part.height ? pictureWidth : 0;
    uint8_t* const row = pixels + static_cast<size_t>(y) * rowBytes;
    draw(BufferRow(slot, sourceY), shape.width == width ? nullptr : columns.get(), shown, scale, row);
    for (int32_t x = shown; x < width; ++x)
      std::memcpy(row + x * kControlPixelBytes, &kOutsidePixel, sizeof(kOutsidePixel));
  }
  return kSuccess;
}

}  // namespace tessaline
