#include "cli/tiled_page.h"

#include <cstring>

#include "cli/full_range.h"
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

// Samples of 32 bits stand as floats in their places, and behind them their lowest bytes, colour by colour.
size_t LowestByteAt(const PageKind& kind, int32_t x, int32_t colour) {
  return kind.RowBytes() + static_cast<size_t>(x * kind.colours() + colour);
}

size_t BytesOfRunRow(const PageKind& kind) {
  constexpr size_t kAligned = sizeof(float);
  return kind.isLong ? (LowestByteAt(kind, kind.width, 0) + kAligned - 1) / kAligned * kAligned
                     : kind.RowBytes();
}

// use(place of the sample, place of its lowest byte) for the colours `first` to `end` of a row.
template <typename Use>
void ForEachLong(const PageKind& kind, int32_t first, int32_t end, const Use& use) {
  for (int32_t x = 0; x < kind.width; ++x) {
    for (int32_t colour = first; colour < end; ++colour)
      use(sizeof(float) * static_cast<size_t>(x * kind.channels() + colour), LowestByteAt(kind, x, colour));
  }
}

void TakeLongRow(const PageKind& kind, uint8_t* row) {
  ForEachLong(kind, 0, kind.colours(), [row](size_t at, size_t lowestAt) {
    uint32_t sample;
    memcpy(&sample, row + at, sizeof sample);
    const float level = RunLevelOfLong(sample);
    memcpy(row + at, &level, sizeof level);
    row[lowestAt] = LowestByteOf(sample);
  });
}

void FillLongRow(const PageKind& kind, int32_t part, const uint8_t* row, uint8_t* fileRow) {
  if (part == 0) memcpy(fileRow, row, kind.RowBytes());
  const int32_t end = kind.parts() > 1 ? part + 1 : kind.colours();
  ForEachLong(kind, part, end, [=](size_t at, size_t lowestAt) {
    float level;
    memcpy(&level, row + at, sizeof level);
    const uint32_t sample = LongOfRunLevel(level, row[lowestAt]);
    memcpy(fileRow + at, &sample, sizeof sample);
  });
}

}  // namespace

TileRule TilesOfPage(const PageKind& kind, const Settings& settings, int32_t side) {
  constexpr size_t kMostBytes = size_t{540} << 20;  // with what the files' libraries hold, below 600 MiB
  return TilesFor(BytesOfRunRow(kind), settings, kMostBytes / static_cast<size_t>(kind.parts()), side);
}

PageRows::PageRows(const PictureFile& file, int page, int32_t part)
    : kind_(file.kind(page)), part_(part), reader_(file, page) {
  const auto sampleBytes = static_cast<size_t>(kind_.bits / 8);
  layout_ = {kind_.width,
             BytesOfRunRow(kind_),
             kind_.bits == 32   ? SampleFormat::kFloat
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
    memcpy(rows, row, kind_.RowBytes());
    FlipSigns(kind_, rows);
    if (kind_.isLong) TakeLongRow(kind_, rows);
    rows += layout_.rowBytes;
  });
}

void PageRows::FillFileRow(const uint8_t* row, void* fileRow) const {
  if (kind_.isLong) return FillLongRow(kind_, part_, row, static_cast<uint8_t*>(fileRow));
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
      kind_(file.kind(page)),
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
