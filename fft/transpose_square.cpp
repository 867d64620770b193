#include "fft/transpose_square.h"

#include <cstring>

namespace tessaline {

namespace {

struct ColourElement {
  uint64_t channels[3];
};

template <typename Element>
using Tile = Element[kTileSide][kTileSide];

template <typename Element>
void ReadTileTransposed(const ImageView& image, int32_t tileRow, int32_t tileColumn, Tile<Element>& tile) {
  for (int32_t y = 0; y < kTileSide; ++y) {
    const uint8_t* const row = image.Row(tileRow * kTileSide + y);
    Element elements[kTileSide];
    std::memcpy(elements, row + size_t{sizeof elements} * static_cast<size_t>(tileColumn), sizeof elements);
    for (int32_t x = 0; x < kTileSide; ++x) tile[x][y] = elements[x];
  }
}

template <typename Element>
void WriteTile(const ImageView& image, int32_t tileRow, int32_t tileColumn, const Tile<Element>& tile) {
  for (int32_t y = 0; y < kTileSide; ++y) {
    uint8_t* const row = image.Row(tileRow * kTileSide + y);
    std::memcpy(row + sizeof tile[y] * static_cast<size_t>(tileColumn), tile[y], sizeof tile[y]);
  }
}

}  // namespace

void TransposeSquareColour(const ImageView& image) {
  const int32_t tiles = image.width / kTileSide;
  for (int32_t i = 0; i < tiles; ++i) {
    for (int32_t j = 0; j <= i; ++j) {
      Tile<ColourElement> below;
      Tile<ColourElement> right;
      ReadTileTransposed(image, i, j, below);
      ReadTileTransposed(image, j, i, right);
      WriteTile(image, j, i, below);
      WriteTile(image, i, j, right);
    }
  }
}

}  // namespace tessaline
