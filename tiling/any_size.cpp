#include "tiling/any_size.h"

#include <cstring>
#include <new>

#include "restoration/gate.h"
#include "tiling/tiled_run.h"

namespace tessaline {

namespace {

// A picture in memory is more than its tiles.
constexpr size_t kMostBytes = size_t{1} << 31;

// A picture's samples, plane after plane in every row.
RowLayout PlanarLayout(const PictureView& picture) {
  const size_t sampleBytes = SampleBytes(picture.format);
  const size_t planeBytes = static_cast<size_t>(picture.width) * sampleBytes;
  RowLayout layout = {picture.width,
                      planeBytes * static_cast<size_t>(picture.channels),
                      picture.format,
                      picture.channels,
                      {}};
  for (int32_t c = 0; c < picture.channels; ++c) {
    layout.place[c] = {planeBytes * static_cast<size_t>(c), static_cast<ptrdiff_t>(sampleBytes)};
  }
  return layout;
}

// Rows of two pictures of one shape.
void CopyRows(const PictureView& from, int32_t fromY, const PictureView& to, int32_t toY, int32_t count) {
  const size_t sampleBytes = SampleBytes(from.format);
  for (int32_t c = 0; c < from.channels; ++c) {
    for (int32_t row = 0; row < count; ++row) {
      const uint8_t* source = from.channel[c].data + (fromY + row) * from.channel[c].rowBytes;
      uint8_t* target = to.channel[c].data + (toY + row) * to.channel[c].rowBytes;
      for (int32_t x = 0; x < from.width; ++x) {
        std::memcpy(target, source, sampleBytes);
        source += from.channel[c].pixelBytes;
        target += to.channel[c].pixelBytes;
      }
    }
  }
}

class RowsInMemory final : public PictureRows {
 public:
  explicit RowsInMemory(const PictureView& picture) : picture_(picture), layout_(PlanarLayout(picture)) {}
  const RowLayout& layout() const override { return layout_; }
  int32_t height() const override { return picture_.height; }
  void Rewind() override { next_ = 0; }
  void Read(int32_t count, uint8_t* rows) override {
    CopyRows(picture_, next_, ViewOfRows(layout_, rows, 0, layout_.width, count), 0, count);
    next_ += count;
  }

 private:
  const PictureView& picture_;
  RowLayout layout_;
  int32_t next_ = 0;
};

// A mask may come from elsewhere: a margin for narrow notches.
TileRule RuleFor(const RowLayout& layout) {
  Settings settings;
  settings.notchRadius = 3.0f;
  return TilesFor(layout.rowBytes, settings, kMostBytes);
}

bool IsAnySize(const PictureView& picture) {
  return picture.width >= 1 && picture.height >= 1 && picture.width <= kLargestTiledSide &&
         picture.height <= kLargestTiledSide && picture.channels >= 1 && picture.channels <= kMostChannels;
}

int32_t TakeOutInTiles(const PictureView& from, const PictureView& to, const TiledRemoval& removal,
                       Workspace& workspace, const Progress& progress) {
  RowsInMemory rows(from);
  const RowLayout& layout = rows.layout();
  const auto result = AllocateBlock<uint8_t>(layout.rowBytes * static_cast<size_t>(from.height));
  if (!result) return kOutOfMemory;
  CleanedRows cleaned(rows, RuleFor(layout), removal, workspace, progress);
  int32_t code = cleaned.Begin();
  uint8_t* next = result.get();
  for (int32_t count = 1; code == kSuccess && count > 0;) {
    const uint8_t* finished = nullptr;
    code = cleaned.Next(&finished, &count);
    if (code != kSuccess) break;
    const size_t bytes = static_cast<size_t>(count) * layout.rowBytes;
    std::memcpy(next, finished, bytes);
    next += bytes;
  }
  if (code == kSuccess) {
    CopyRows(ViewOfRows(layout, result.get(), 0, layout.width, from.height), 0, to, 0, from.height);
  }
  return code;
}

}  // namespace

int32_t AnalyseAnySize(const PictureView& picture, Workspace& workspace, const Progress& progress,
                       Analysis* analysis, PictureTiles* looked) {
  if (!IsDoneInTiles(picture)) {
    const int32_t result = Analyse(picture, workspace, progress, analysis);
    return result == kSuccess && looked != nullptr ? looked->Add(picture, workspace.parallel()) : result;
  }
  if (!IsAnySize(picture)) return kUnknownPixelKind;
  RowsInMemory rows(picture);
  return AnalyseInTiles(rows, RuleFor(rows.layout()), workspace, progress, analysis, looked);
}

int32_t TakeOutAnySize(const PictureView& from, const PictureView& to, const Findings& findings,
                       const Mask& mask, Workspace& workspace, const ApplyOptions& options,
                       const RestorationSettings& restoration, const Progress& progress) {
  if (!IsDoneInTiles(from)) {
    return findings.isAutomatic ? Restore(from, to, findings, mask, workspace, options, restoration, progress)
                                : Apply(from, to, mask, workspace, options, progress);
  }
  if (!IsAnySize(from)) return kUnknownPixelKind;
  if (!HasSameShape(from, to)) return kUnequalSizes;
  try {
    TiledRemoval removal = {findings, mask, options.rounding, restoration};
    if (findings.isAutomatic) removal.restoration.strong = MeasureStrong(TilesOf(from), findings);
    return TakeOutInTiles(from, to, removal, workspace, progress);
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
}

}  // namespace tessaline
