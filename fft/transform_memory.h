// What the two-dimensional transforms work with besides their buffer: rows, strips of columns and tables.
#pragma once

#include <cstddef>
#include <cstdint>

#include "buffers/buffer_table.h"
#include "fft/row_transform.h"
#include "fft/vector_engine.h"
#include "platform/memory.h"

namespace tessaline {

// Columns that are fetched together: four cache lines of every row, so that each page and each row of a
// memory chip is opened once for four lines.
constexpr int32_t kStripColumns = 4 * kColumnGroup;

// Taken once by a caller that must not run short of memory between two transforms, and handed to each of them
// (fft/fft_2d.h); the others take it for themselves. Contents are of no use to anybody but the transforms.
struct TransformMemory {
  // For transforms, in both directions, of buffers of this shape with this engine. Returns 0;
  // kUnknownPixelKind for a shape that is not complex; kOutOfMemory, and then serves nothing. What was held
  // before is given back.
  int32_t Take(const BufferShape& wanted, bool useDoubleKernels);

  bool IsFor(const BufferShape& wanted, bool useDoubleKernels) const;

  // Square colour planes are transposed, the others reach their columns by strips.
  bool IsTransposed() const;

  BufferShape shape = {};
  bool isForDoubleKernels = false;
  RowTransform alongRows;
  RowTransform alongColumns;
  OwnedBlock<float> channelRow;    // one channel of a row of three
  OwnedBlock<uint64_t> strips[2];  // columns, one after the other
  size_t columnStride = 0;         // elements
};

}  // namespace tessaline
