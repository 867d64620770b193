#include "cli/tiled_page.h"

#include <cstring>

#include "cli/refusal.h"
#include "restoration/decision.h"
#include "restoration/gate.h"

namespace tessaline::cli {
namespace {

// Of signed samples, to and fro.
template <typename Sample>
void FlipSigns(const PageKind& kind, uint8_t* row) {
  constexpr int kTopBit = 1 << (8 * sizeof(Sample) - 1);
  auto* samples = reinterpret_cast<Sample*>(row);
  for (int32_t x = 0; x < kind.width; ++x, samples += kind.channels()) {
    for (int32_t colour = 0; colour < kind.colours(); ++colour) {
      if (kind.IsSignedColour(colour)) samples[colour] = static_cast<Sample>(samples[colour] ^ kTopBit);
    }
  }
}

void FlipSigns(const PageKind& kind, uint8_t* row) {
  if (kind.hasSignedAb || kind.isSigned)
    kind.bits == 16 ? FlipSigns<uint16_t>(kind, row) : FlipSigns<uint8_t>(kind, row);
}

}  // namespace

TileRule TilesOfPage(const PageKind& kind, const Settings& settings, int32_t side) {
  constexpr size_t kMostBytes = size_t{540} << 20;  // with what the files' libraries hold, below 600 MiB
  return TilesFor(kind.RowBytes(), settings, kMostBytes / static_cast<size_t>(kind.parts()), side);
}

PageRows::PageRows(const PictureFile& file, int page, int32_t part)
    : kind_(file.kind()), part_(part), reader_(file, page) {
  const auto sampleBytes = static_cast<size_t>(kind_.bits / 8);
  layout_ = {kind_.width,
             kind_.RowBytes(),
             kind_.isFloat()    ? SampleFormat::kFloat
             : kind_.bits == 16 ? SampleFormat::kFull16
                                : SampleFormat::kByte,
             kind_.colours() / kind_.parts(),
             {}};
  for (size_t c = 0; c < static_cast<size_t>(layout_.channels); ++c) {
    layout_.place[c] = {(static_cast<size_t>(part) + c) * sampleBytes,
                        static_cast<ptrdiff_t>(sampleBytes) * kind_.channels()};
  }
}

void PageRows::Read(int32_t count, uint8_t* rows) {
  reader_.Read(count, [&](const void* row) {
    memcpy(rows, row, layout_.rowBytes);
    FlipSigns(kind_, rows);
    rows += layout_.rowBytes;
  });
}

void PageRows::FillFileRow(const uint8_t* row, void* fileRow) const {
  if (part_ == 0) {
    memcpy(fileRow, row, layout_.rowBytes);
    return FlipSigns(kind_, static_cast<uint8_t*>(fileRow));
  }
  const auto [offset, pixelBytes] = layout_.place[0];
  for (size_t at = offset; at < layout_.rowBytes; at += static_cast<size_t>(pixelBytes))
    memcpy(static_cast<uint8_t*>(fileRow) + at, row + at, static_cast<size_t>(kind_.bits / 8));
}

TiledPage::TiledPage(const PictureFile& file, int page, int32_t part, Engine& engine, int32_t side,
                     EngineProgress progress)
    : name_(file.path()),
      kind_(file.kind()),
      rows_(file, page, part),
      workspace_(engine.workspace()),
      side_(side),
      progress_(std::move(progress)) {}

EngineOutcome TiledPage::Look(const EngineWishes& wishes, const EngineProgress& progress) {
  rule_ = TilesOfPage(kind_, wishes.settings, side_);
  EngineOutcome outcome;
  EngineStretch looking{progress, "looking", 0.0, 1.0};
  StepClock clock;
  Analysis analysis;
  PictureTiles tiles;
  DemandStep(AnalyseInTiles(rows_, rule_, workspace_, looking.OfStep(), &analysis, &tiles), name_);
  outcome.transformSize = analysis.transformSize;
  outcome.seconds.analyse = clock.Lap();
  DemandStep(DecideWhole(tiles, analysis, wishes.settings, workspace_, &findings_), name_);
  outcome.seconds.decide = clock.Lap();
  DemandStep(Shape(findings_, wishes.settings, &mask_), name_);
  outcome.seconds.shape = clock.Lap();
  DescribeDecision(analysis, findings_, mask_, wishes, &outcome);
  rows_.Rewind();
  if (!outcome.samplesChanged) return outcome;
  TiledRemoval removal = {findings_, mask_, Rounding::kTruncate, wishes.restoration};
  if (findings_.isAutomatic) removal.restoration.strong = MeasureStrong(tiles.view(), findings_);
  cleaned_ = std::make_unique<CleanedRows>(rows_, rule_, removal, workspace_, removing_.OfStep());
  DemandStep(cleaned_->Begin(), name_);
  return outcome;
}

void TiledPage::NextRow(void* fileRow) {
  const size_t rowBytes = rows_.layout().rowBytes;
  if (!cleaned_) {
    row_.resize(rowBytes);
    rows_.Read(1, row_.data());
    rows_.FillFileRow(row_.data(), fileRow);
    return;
  }
  if (left_ == 0) {
    StepClock clock;
    DemandStep(cleaned_->Next(&next_, &left_), name_);
    cleaningSeconds_ += clock.Lap();
  }
  rows_.FillFileRow(next_, fileRow);
  next_ += rowBytes;
  --left_;
}

}  // namespace tessaline::cli
