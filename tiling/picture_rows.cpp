#include "tiling/picture_rows.h"

#include <cstring>

namespace tessaline {

PictureView ViewOfRows(const RowLayout& layout, uint8_t* bytes, int32_t x, int32_t width, int32_t rows) {
  PictureView view{width, rows, layout.format, layout.channels, {}};
  for (int32_t c = 0; c < layout.channels; ++c) {
    const RowLayout::Place& place = layout.place[c];
    view.channel[c] = {bytes + place.offset + x * place.pixelBytes, place.pixelBytes,
                       static_cast<ptrdiff_t>(layout.rowBytes)};
  }
  return view;
}

bool RowWindow::Open(PictureRows& picture, int32_t mostRows) {
  picture_ = &picture;
  rowBytes_ = picture.layout().rowBytes;
  first_ = count_ = 0;
  picture.Rewind();
  rows_ = AllocateBlock<uint8_t>(rowBytes_ * static_cast<size_t>(mostRows));
  return rows_ != nullptr;
}

void RowWindow::MoveTo(int32_t first, int32_t count) {
  const int32_t kept = first_ + count_ - first;
  if (kept > 0) std::memmove(rows_.get(), Row(first), static_cast<size_t>(kept) * rowBytes_);
  for (int32_t skipped = kept; skipped < 0; ++skipped) picture_->Read(1, rows_.get());
  const int32_t held = kept > 0 ? kept : 0;
  first_ = first;
  count_ = count;
  if (count > held) picture_->Read(count - held, Row(first + held));
}

}  // namespace tessaline
