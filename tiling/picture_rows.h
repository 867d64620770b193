// A picture that need not fit into memory: rows of bytes, from top to bottom.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/memory.h"
#include "removal/picture.h"

namespace tessaline {

// Where the samples of the channels stand in the bytes of a row. Other bytes (alpha) go along untouched.
struct RowLayout {
  int32_t width = 0;
  size_t rowBytes = 0;
  SampleFormat format = SampleFormat::kByte;
  int32_t channels = 0;
  struct Place {
    size_t offset = 0;  // of the row's first sample
    ptrdiff_t pixelBytes = 0;
  } place[kMostChannels];
};

// `rows` rows of that layout at `bytes`, from column `x` on.
PictureView ViewOfRows(const RowLayout& layout, uint8_t* bytes, int32_t x, int32_t width, int32_t rows);

// Gives the rows in their order. What a function throws passes through whoever calls it.
class PictureRows {
 public:
  virtual ~PictureRows() = default;
  virtual const RowLayout& layout() const = 0;
  virtual int32_t height() const = 0;
  // The next row is the first again.
  virtual void Rewind() = 0;
  // The next `count` rows, packed.
  virtual void Read(int32_t count, uint8_t* rows) = 0;
};

// Some neighbouring rows of a picture, which go down it.
class RowWindow {
 public:
  // At the picture's top, for at most `mostRows` rows. False: no memory.
  bool Open(PictureRows& picture, int32_t mostRows);
  // Holds rows first .. first + count - 1; `first` never falls.
  void MoveTo(int32_t first, int32_t count);
  uint8_t* Row(int32_t y) { return rows_.get() + static_cast<size_t>(y - first_) * rowBytes_; }

 private:
  PictureRows* picture_ = nullptr;
  OwnedBlock<uint8_t> rows_;
  size_t rowBytes_ = 0;
  int32_t first_ = 0;
  int32_t count_ = 0;
};

}  // namespace tessaline
