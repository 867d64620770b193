// Tiles of pictures, in which the amplitude of their patterns is measured: of one that is at hand, or copies
// kept where a decision is made later or over several pictures.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/parallel.h"
#include "removal/picture.h"

namespace tessaline {

struct Tile {
  int32_t x, y;
};

// Up to 400 tiles of 128 x 128, or all of the side where the picture is smaller, evenly spread.
struct TiledPicture {
  PictureView picture;
  int32_t tileWidth = 0, tileHeight = 0;
  std::vector<Tile> tiles;
};
TiledPicture TilesOf(const PictureView& picture);
PictureView TileOf(const TiledPicture& tiled, size_t index);

class PictureTiles {
 public:
  // Copies tiles of a picture. All pictures have the same share of them; in the first one's format, at most
  // 400 are kept. Pictures smaller than the first one's tiles add none. Returns 0 or kOutOfMemory, with
  // nothing added.
  int32_t Add(const PictureView& picture, Parallel& parallel);

  // Valid until the next Add.
  TiledPicture view() const;

 private:
  void KeepEverySecond();
  size_t TileBytes() const;

  PictureView shape_;  // of one tile, without memory
  int32_t step_ = 0;   // so many tiles of a picture stand between two that are kept, and one
  size_t count_ = 0;
  std::vector<uint8_t> samples_;  // tile after tile
};

}  // namespace tessaline
