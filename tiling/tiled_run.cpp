#include "tiling/tiled_run.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace tessaline {

namespace {

template <typename Use>
void WithSample(SampleFormat format, const Use& use) {
  switch (SampleBytes(format)) {
    case 1:
      return use(uint8_t{});
    case 2:
      return use(uint16_t{});
    default:
      return use(float{});
  }
}

// From `a`, of weight `span - place`, to `b`, of weight `place`.
template <typename Sample>
Sample Between(Sample a, Sample b, int32_t place, int32_t span) {
  if constexpr (std::is_same_v<Sample, float>) {
    const float share = static_cast<float>(place) / static_cast<float>(span);
    return a == b ? a : a + (b - a) * share;  // equal ones stay equal
  } else {
    return static_cast<Sample>((int32_t{a} * (span - place) + int32_t{b} * place + span / 2) / span);
  }
}

}  // namespace

size_t BytesOfTiles(size_t rowBytes, bool isAutomatic, const TileRule& rule) {
  const size_t transformBytes = isAutomatic ? 24 : 14;  // a pixel, measured over RGB
  const auto side = static_cast<size_t>(rule.side);
  return rowBytes * 2 * side + transformBytes * side * side;
}

TileRule TilesFor(size_t rowBytes, const Settings& settings, size_t mostBytes, int32_t side) {
  // Longest sides of three transform sizes.
  constexpr int32_t kSides[] = {kLargestTile, 1748, 774};
  // A notch is as wide in the spectrum as its answer is short in the picture: at 6 cells nothing is left of
  // it 96 pixels away.
  TileRule rule;
  rule.margin = std::clamp(static_cast<int32_t>(std::lround(576.0f / settings.notchRadius)), 96, 224);
  rule.blend = 32;
  for (const int32_t candidate : kSides) {
    rule.side = candidate;
    if (BytesOfTiles(rowBytes, settings.isAutomatic, rule) <= mostBytes) break;
  }
  if (side != 0) rule.side = std::clamp(side, kSmallestTile, kLargestTile);
  rule.margin = std::min(rule.margin, (rule.side - rule.blend) / 4);
  return rule;
}

int32_t AnalyseInTiles(PictureRows& picture, const TileRule& rule, Workspace& workspace,
                       const Progress& progress, Analysis* analysis, PictureTiles* looked) {
  *analysis = {};
  const RowLayout& layout = picture.layout();
  const TileRule apart = {rule.side, 0, 0};
  const std::vector<TileSpan> across = TileSpans(layout.width, apart),
                              down = TileSpans(picture.height(), apart);
  RowWindow window;
  if (!window.Open(picture, down[0].count)) return kOutOfMemory;
  double done = 0.0;
  const double all = static_cast<double>(across.size() * down.size());
  for (const TileSpan& row : down) {
    window.MoveTo(row.first, row.count);
    for (const TileSpan& column : across) {
      const PictureView tile =
          ViewOfRows(layout, window.Row(row.first), column.first, column.count, row.count);
      int32_t result = AddSpectrum(tile, workspace, progress.Part(done / all, (done + 1.0) / all), analysis);
      if (result == kSuccess && looked != nullptr) result = looked->Add(tile, workspace.parallel());
      if (result != kSuccess) return result;
      done += 1.0;
    }
  }
  return FinishAnalysis(analysis);
}

CleanedRows::CleanedRows(PictureRows& picture, const TileRule& rule, const TiledRemoval& removal,
                         Workspace& workspace, const Progress& progress)
    : picture_(picture),
      layout_(picture.layout()),
      rule_(rule),
      removal_(removal),
      workspace_(workspace),
      progress_(progress),
      across_(TileSpans(layout_.width, rule)),
      down_(TileSpans(picture.height(), rule)) {}

int32_t CleanedRows::Begin() {
  const int32_t width = across_[0].count, height = down_[0].count;
  const auto pixels = static_cast<size_t>(width) * static_cast<size_t>(height);
  const size_t sampleBytes = SampleBytes(layout_.format);
  int32_t mostKept = 0;
  for (const TileSpan& span : down_) mostKept = std::max(mostKept, span.keptCount);
  tile_ = AllocateBlock<uint8_t>(pixels * sampleBytes * static_cast<size_t>(layout_.channels));
  rows_ = AllocateBlock<uint8_t>(layout_.rowBytes * static_cast<size_t>(mostKept));
  shared_ = AllocateBlock<uint8_t>(layout_.rowBytes * static_cast<size_t>(std::max(rule_.blend, 1)));
  if (!tile_ || !rows_ || !shared_ || !window_.Open(picture_, height)) return kOutOfMemory;
  cleaned_ = {width, height, layout_.format, layout_.channels, {}};
  for (int32_t c = 0; c < layout_.channels; ++c) {
    cleaned_.channel[c] = {tile_.get() + static_cast<size_t>(c) * pixels * sampleBytes,
                           static_cast<ptrdiff_t>(sampleBytes),
                           static_cast<ptrdiff_t>(static_cast<size_t>(width) * sampleBytes)};
  }
  next_ = 0;
  return IsUsable(cleaned_) ? kSuccess : kUnknownPixelKind;
}

int32_t CleanedRows::CleanTile(const TileSpan& across, const TileSpan& down) {
  const PictureView tile =
      ViewOfRows(layout_, window_.Row(down.first), across.first, across.count, down.count);
  const double row = static_cast<double>(next_), column = static_cast<double>(&across - across_.data());
  const double columns = static_cast<double>(across_.size()),
               tiles = columns * static_cast<double>(down_.size());
  const Progress part =
      progress_.Part((row * columns + column) / tiles, (row * columns + column + 1.0) / tiles);
  ApplyOptions options;
  options.rounding = removal_.rounding;
  return removal_.findings.isAutomatic ? Restore(tile, cleaned_, removal_.findings, removal_.mask, workspace_,
                                                 options, removal_.restoration, part)
                                       : Apply(tile, cleaned_, removal_.mask, workspace_, options, part);
}

// The tile's kept samples into the kept rows, where those of the tile to the left stand already.
void CleanedRows::Keep(const TileSpan& across, const TileSpan& down) {
  const bool isFirst = across.keptFirst == 0;
  ForEachRow(workspace_.parallel(), down.keptCount, [&](int32_t row) {
    const int32_t y = down.keptFirst + row;
    for (int32_t c = 0; c < layout_.channels; ++c) {
      const ChannelView& channel = cleaned_.channel[c];
      const RowLayout::Place& place = layout_.place[c];
      const uint8_t* from = channel.data + (y - down.first) * channel.rowBytes +
                            (across.keptFirst - across.first) * channel.pixelBytes;
      uint8_t* to = rows_.get() + static_cast<size_t>(row) * layout_.rowBytes + place.offset +
                    across.keptFirst * place.pixelBytes;
      WithSample(layout_.format, [&](auto sample) {
        using Sample = decltype(sample);
        const int32_t blended = isFirst ? 0 : rule_.blend;
        for (int32_t x = 0; x < across.keptCount; ++x, to += place.pixelBytes, from += channel.pixelBytes) {
          auto& kept = *reinterpret_cast<Sample*>(to);
          const auto mine = *reinterpret_cast<const Sample*>(from);
          kept = x < blended ? Between(kept, mine, 2 * x + 1, 2 * blended) : mine;
        }
      });
    }
  });
}

void CleanedRows::BlendDown(const TileSpan& down) {
  if (down.keptFirst > 0) {
    for (int32_t row = 0; row < rule_.blend; ++row) {
      for (int32_t c = 0; c < layout_.channels; ++c) {
        const RowLayout::Place& place = layout_.place[c];
        const size_t at = static_cast<size_t>(row) * layout_.rowBytes + place.offset;
        WithSample(layout_.format, [&](auto sample) {
          using Sample = decltype(sample);
          for (int32_t x = 0; x < layout_.width; ++x) {
            auto& kept = *reinterpret_cast<Sample*>(rows_.get() + at + x * place.pixelBytes);
            const auto above = *reinterpret_cast<const Sample*>(shared_.get() + at + x * place.pixelBytes);
            kept = Between(above, kept, 2 * row + 1, 2 * rule_.blend);
          }
        });
      }
    }
  }
  if (next_ + 1 == down_.size()) return;
  const size_t sharedBytes = static_cast<size_t>(rule_.blend) * layout_.rowBytes;
  std::memcpy(shared_.get(),
              rows_.get() + static_cast<size_t>(down.keptCount) * layout_.rowBytes - sharedBytes,
              sharedBytes);
}

int32_t CleanedRows::Next(const uint8_t** rows, int32_t* count) {
  *rows = rows_.get();
  *count = 0;
  if (next_ == down_.size()) return kSuccess;
  const TileSpan& down = down_[next_];
  window_.MoveTo(down.first, down.count);
  std::memcpy(rows_.get(), window_.Row(down.keptFirst),
              static_cast<size_t>(down.keptCount) * layout_.rowBytes);
  for (const TileSpan& across : across_) {
    const int32_t result = CleanTile(across, down);
    if (result != kSuccess) return result;
    Keep(across, down);
  }
  BlendDown(down);
  const bool isLast = ++next_ == down_.size();
  *count = down.keptCount - (isLast ? 0 : rule_.blend);
  return kSuccess;
}

}  // namespace tessaline
