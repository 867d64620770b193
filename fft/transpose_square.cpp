#include "fft/transpose_square.h"

#include <cstring>

#include "buffers/buffer_table.h"
#include "buffers/result_codes.h"

namespace tessaline {

namespace {

struct ColourElement {
  uint64_t channels[3];
};

template <typename Element>
using Tile = Element[kTileSide][kTileSide];

template <typename Element>
void ReadTileTransposed(int32_t slot, int32_t tileRow, int32_t tileColumn, Tile<Element>& tile) {
  for (int32_t y = 0; y < kTileSide; ++y) {
    const uint8_t* const row = BufferRow(slot, tileRow * kTileSide + y);
    Element elements[kTileSide];
    std::memcpy(elements, row + size_t{sizeof elements} * static_cast<size_t>(tileColumn), sizeof elements);
    for (int32_t x = 0; x < kTileSide; ++x) tile[x][y] = elements[x];
  }
}

template <typename Element>
void WriteTile(int32_t slot, int32_t tileRow, int32_t tileColumn, const Tile<Element>& tile) {
  for (int32_t y = 0; y < kTileSide; ++y) {
    uint8_t* const row = BufferRow(slot, tileRow * kTileSide + y);
    std::memcpy(row + sizeof tile[y] * static_cast<size_t>(tileColumn), tile[y], sizeof tile[y]);
  }
}

template <typename Element>
int32_t Transpose(int32_t slot, int32_t fifth, const ProgressSteps& steps) {
  const BufferShape shape = ShapeOf(slot);
  if (shape.width != shape.height || shape.bytesPerPixel != int32_t{sizeof(Element)}) return kSuccess;
  const int32_t tiles = shape.width / kTileSide;
  MarkDirty(slot);
  for (int32_t i = 0; i < tiles; ++i) {
    // The tile-row counter stays below 256, so this never reports in practice; it is the same test as in the
    // row passes.
    if (ReportAndAsk(steps, fifth, i, tiles * tiles / 2 + 1)) return kUserCancelled;
    for (int32_t j = 0; j <= i; ++j) {
      Tile<Element> below;
      Tile<Element> right;
      ReadTileTransposed(slot, i, j, below);
      ReadTileTransposed(slot, j, i, right);
      WriteTile(slot, j, i, below);
      WriteTile(slot, i, j, right);
    }
  }
  return kSuccess;
}

}  // namespace

int32_t TransposeSquare(int32_t slot, int32_t fifth, const ProgressSteps& steps) {
  return Transpose<uint64_t>(slot, fifth, steps);
}

int32_t TransposeSquareColour(int32_t slot, int32_t fifth, const ProgressSteps& steps) {
  return Transpose<ColourElement>(slot, fifth, steps);
}

}  // namespace tessaline
