// Pictures, spectra and masks as plain values: a view says where pixels are, an image owns them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "platform/memory.h"

namespace tessaline {

// Rows of pixels somewhere in memory. Rows need not be packed; rowBytes may be negative (bottom-up). A view
// owns nothing: it is valid as long as the memory is.
template <typename Byte>
struct BasicImageView {
  Byte* data = nullptr;  // first byte of row 0; null: there is no picture
  int32_t width = 0;     // pixels
  int32_t height = 0;    // rows
  ptrdiff_t rowBytes = 0;
  int32_t bytesPerPixel = 0;  // names the kind (image/pixel_kind.h); other sizes are pixels of no kind

  template <typename T>
  using Like = std::conditional_t<std::is_const_v<Byte>, const T, T>;

  bool IsEmpty() const { return data == nullptr; }
  bool HasShape(int32_t wantedWidth, int32_t wantedHeight, int32_t wantedBytesPerPixel) const {
    return data != nullptr && width == wantedWidth && height == wantedHeight &&
           bytesPerPixel == wantedBytesPerPixel;
  }
  size_t PackedRowBytes() const { return static_cast<size_t>(width) * static_cast<size_t>(bytesPerPixel); }
  bool IsPacked() const { return rowBytes == static_cast<ptrdiff_t>(PackedRowBytes()); }

  // Row y, 0 <= y < height, as elements of T.
  template <typename T = uint8_t>
  Like<T>* Row(int32_t y) const {
    return reinterpret_cast<Like<T>*>(data + y * rowBytes);
  }

  operator BasicImageView<const Byte>() const requires(!std::is_const_v<Byte>) {
    return {data, width, height, rowBytes, bytesPerPixel};
  }
};
using ImageView = BasicImageView<uint8_t>;
using ConstImageView = BasicImageView<const uint8_t>;

// Packed rows at `data`.
template <typename T>
ImageView PackedView(T* data, int32_t width, int32_t height, int32_t bytesPerPixel) {
  return {reinterpret_cast<uint8_t*>(data), width, height, ptrdiff_t{width} * bytesPerPixel, bytesPerPixel};
}

// Every pixel 0.
inline void ClearImage(const ImageView& image) {
  for (int32_t y = 0; y < image.height; ++y) std::memset(image.Row(y), 0, image.PackedRowBytes());
}

// Row by row, for pictures of one shape.
inline void CopyImage(const ConstImageView& from, const ImageView& to) {
  for (int32_t y = 0; y < from.height; ++y) std::memcpy(to.Row(y), from.Row(y), from.PackedRowBytes());
}

// An image with its pixels, rows packed.
class Image {
 public:
  Image() = default;

  // Zero pixels of that shape; what was held before is released first. False, and nothing held, when there is
  // no memory or a size is not positive.
  bool Create(int32_t width, int32_t height, int32_t bytesPerPixel) {
    Release();
    if (width < 1 || height < 1 || bytesPerPixel < 1) return false;
    const size_t rowBytes = static_cast<size_t>(width) * static_cast<size_t>(bytesPerPixel);
    if (rowBytes > static_cast<size_t>(-1) / static_cast<size_t>(height)) return false;
    block_ = AllocateBlock<uint8_t>(rowBytes * static_cast<size_t>(height));
    if (!block_) return false;
    view_ = PackedView(block_.get(), width, height, bytesPerPixel);
    return true;
  }
  void Release() {
    block_.reset();
    view_ = {};
  }

  ImageView view() { return view_; }
  ConstImageView view() const { return view_; }
  bool IsEmpty() const { return view_.IsEmpty(); }

 private:
  OwnedBlock<uint8_t> block_;
  ImageView view_;
};

}  // namespace tessaline
