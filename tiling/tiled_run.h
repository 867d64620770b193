// Pictures of any size in overlapping tiles. The four steps stay; the first and the last are done here tile
// by tile:
//
//   AnalyseInTiles   the spectra of all tiles, summed: one decision for the whole picture
//   CleanedRows      each tile without what the mask takes, one passing into the next
//
// Memory goes with the picture's width times a tile's height. Where nothing is taken out every sample stays.
#pragma once

#include <cstdint>

#include "removal/steps.h"
#include "restoration/picture_tiles.h"
#include "restoration/restoration.h"
#include "tiling/picture_rows.h"
#include "tiling/tile_grid.h"

namespace tessaline {

// The tiles for a picture whose rows have that many bytes: the largest of which rows and transforms keep to
// about `mostBytes`, with a margin as wide as the notches reach. `side` other than 0 asks for a
// side.
TileRule TilesFor(size_t rowBytes, const Settings& settings, size_t mostBytes, int32_t side = 0);
// What a run in such tiles holds, about: the most of it are rows as read and cleaned, and a tile's
// transforms.
size_t BytesOfTiles(size_t rowBytes, bool isAutomatic, const TileRule& rule);
constexpr int32_t kSmallestTile = 512, kLargestTile = 3700;

// As Analyse. `looked`, if given, receives tiles for DecideWhole (restoration/decision.h). Returns 0,
// kUnknownPixelKind, kOutOfMemory or kUserCancelled.
int32_t AnalyseInTiles(PictureRows& picture, const TileRule& rule, Workspace& workspace,
                       const Progress& progress, Analysis* analysis, PictureTiles* looked = nullptr);

// What is taken out of every tile.
struct TiledRemoval {
  const Findings& findings;
  const Mask& mask;
  Rounding rounding = Rounding::kTruncate;  // of a run by number; the automatic one rounds to nearest
  RestorationSettings restoration;          // with the strong places of the whole picture
};

class CleanedRows {
 public:
  // What is handed over outlives this object.
  CleanedRows(PictureRows& picture, const TileRule& rule, const TiledRemoval& removal, Workspace& workspace,
              const Progress& progress);

  // Takes all memory. Returns 0, kUnknownPixelKind or kOutOfMemory.
  int32_t Begin();
  // The next finished rows, with the picture's layout, valid until the next call; none after the last.
  // Returns 0, kOutOfMemory or kUserCancelled.
  int32_t Next(const uint8_t** rows, int32_t* count);

 private:
  int32_t CleanTile(const TileSpan& across, const TileSpan& down);
  void Keep(const TileSpan& across, const TileSpan& down);
  void BlendDown(const TileSpan& down);

  PictureRows& picture_;
  const RowLayout& layout_;
  TileRule rule_;
  TiledRemoval removal_;
  Workspace& workspace_;
  Progress progress_;
  std::vector<TileSpan> across_, down_;
  size_t next_ = 0;             // row of tiles
  RowWindow window_;            // as read
  OwnedBlock<uint8_t> tile_;    // one tile, cleaned: planes of packed samples
  PictureView cleaned_;         // of it
  OwnedBlock<uint8_t> rows_;    // kept rows of a row of tiles
  OwnedBlock<uint8_t> shared_;  // the last rows of the tiles above, which pass into these
};

}  // namespace tessaline
