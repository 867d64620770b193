// What the two-dimensional transforms work with besides their buffer: rows, strips of columns and tables.
#pragma once

#include <cstddef>
#include <cstdint>

#include "fft/row_transform.h"
#include "fft/vector_engine.h"
#include "image/image_view.h"
#include "platform/memory.h"

namespace tessaline {

// Columns that are fetched together: four cache lines of every row, so that each page and each row of a
// memory chip is opened once for four lines.
constexpr int32_t kStripColumns = 4 * kColumnGroup;

// Contents are of no use to anybody but the transforms.
struct TransformMemory {
  // For transforms, in both directions, of images of this shape. Returns 0; kUnknownPixelKind for an image
  // that is not complex; kOutOfMemory, and then serves nothing.
  int32_t Take(const ConstImageView& image, Precision precision);

  // Square colour planes are transposed, the others reach their columns by strips.
  bool IsTransposed() const;

  ConstImageView shape;
  RowTransform alongRows;
  RowTransform alongColumns;
  OwnedBlock<float> channelRow;    // one channel of a row of three
  OwnedBlock<uint64_t> strips[2];  // columns, one after the other
  size_t columnStride = 0;         // elements
};

}  // namespace tessaline
