// A page, or one of its inks, that is cleaned in tiles: read from the file twice or three times, never held.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cli/engine_run.h"
#include "cli/picture_file.h"
#include "tiling/tiled_run.h"

namespace tessaline::cli {

// The rows of a page for the engine: as they stand in the file, but for Lab's signed a and b, which have
// their zero in the middle.
class PageRows final : public PictureRows {
 public:
  PageRows(const PictureFile& file, int page, int32_t part);
  const RowLayout& layout() const override { return layout_; }
  int32_t height() const override { return kind_.height; }
  void Rewind() override { reader_.Rewind(); }
  void Read(int32_t count, uint8_t* rows) override;
  // A row as the engine has it, as the file is to have it. Of a page with several parts the first gives all
  // bytes of the row, the others their own.
  void FillFileRow(const uint8_t* row, void* fileRow) const;

 private:
  const PageKind& kind_;
  int32_t part_;
  RowLayout layout_;
  PageReader reader_;
};

// The tiles of a page; `side` of them, 0: what suits.
TileRule TilesOfPage(const PageKind& kind, const Settings& settings, int32_t side);

class TiledPage {
 public:
  // `side` of the tiles, 0: what suits the picture. `progress` hears of the cleaning.
  TiledPage(const PictureFile& file, int page, int32_t part, Engine& engine, int32_t side,
            EngineProgress progress);

  // Everything but the samples; as RunEngine with the same wishes, whose gate is not drawn.
  EngineOutcome Look(const EngineWishes& wishes, const EngineProgress& progress);

  // The page's rows in their order, cleaned or, where nothing was found, as they are. After Look. Of several
  // parts the first fills the row, the others put theirs into it.
  void NextRow(void* fileRow);
  double cleaningSeconds() const { return cleaningSeconds_; }

 private:
  const std::string name_;
  const PageKind& kind_;
  PageRows rows_;
  Workspace& workspace_;
  int32_t side_;
  EngineProgress progress_;
  EngineStretch removing_{progress_, "removing", 0.0, 1.0};
  TileRule rule_;
  Findings findings_;
  Mask mask_;
  std::unique_ptr<CleanedRows> cleaned_;  // null: nothing is taken out
  const uint8_t* next_ = nullptr;         // finished row
  int32_t left_ = 0;                      // rows from that on
  std::vector<uint8_t> row_;
  double cleaningSeconds_ = 0;
};

}  // namespace tessaline::cli
