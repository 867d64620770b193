#include "restoration/rim.h"

#include <algorithm>

namespace tessaline {

namespace {

constexpr int32_t kRimBlocks = 3;  // of the gate, from where it is closed
constexpr float kClosed = 0.5f;    // less is beyond the border

constexpr int32_t kTile = 32;  // pixels both ways
static_assert(kTile <= TakenChannels::kMostReplaced && kTile % Noise::kReduction == 0);
constexpr int32_t kTileBlocks = kTile / Gate::kReduction;
// A speckled gate has no rim to speak of: memory and time are kept for those that have.
constexpr size_t kTilesAnyway = 64, kMostTiles = 4;  // one of so many

// The pixels of a line to one side of its middle; to the other they lie opposite.
constexpr int32_t kReach = 3;
struct Offset {
  int32_t x, y;
};
constexpr Offset kLines[][kReach] = {{{1, 0}, {2, 0}, {3, 0}},    {{1, 0}, {2, 1}, {3, 1}},
                                     {{1, 1}, {2, 2}, {3, 3}},    {{0, 1}, {1, 2}, {1, 3}},
                                     {{0, 1}, {0, 2}, {0, 3}},    {{0, 1}, {-1, 2}, {-1, 3}},
                                     {{-1, 1}, {-2, 2}, {-3, 3}}, {{-1, 0}, {-2, 1}, {-3, 1}}};
constexpr int32_t kLineCount = sizeof(kLines) / sizeof(kLines[0]);
constexpr float kShare = 1.0f / (2 * kReach + 1);

constexpr int32_t kSpread = 1;  // of the window in which a line's variances are compared
constexpr int32_t kMargin = kReach + kSpread;
constexpr int32_t kSide = kTile + 2 * kMargin;
constexpr int32_t kCompared = kTile + 2 * kSpread;

// A row of 1 wherever one is within `reach`.
void Dilate(const float* row, int32_t count, int32_t stride, int32_t reach, float* dilated) {
  int32_t last = -reach - 1;
  for (int32_t i = 0; i < count + reach; ++i) {
    if (i < count && row[i * stride] > 0.0f) last = i;
    const int32_t middle = i - reach;
    if (middle >= 0) dilated[middle * stride] = last >= middle - reach ? 1.0f : 0.0f;
  }
}

}  // namespace

// A tile with its surroundings, by axis.
struct Rim::Patch {
  float axes[kMostChannels][kSide][kSide];
  float variances[kCompared][kCompared];
  float least[kTile][kTile];
  int32_t line[kTile][kTile];

  void Load(const Tile& tile, int32_t width, int32_t height, const Axes& ofPicture,
            const TakenChannels& kept);
  void TryLine(int32_t line);
  float Smoothed(int32_t axis, int32_t x, int32_t y, float noise) const;
};

void Rim::Patch::Load(const Tile& tile, int32_t width, int32_t height, const Axes& ofPicture,
                      const TakenChannels& kept) {
  const int32_t first = std::max(tile.x - kMargin, 0), last = std::min(tile.x + kTile + kMargin, width);
  for (int32_t y = 0; y < kSide; ++y) {
    LevelRows loaded = {};
    for (int32_t c = 0; c < ofPicture.count; ++c) loaded[c] = axes[c][y] + kMargin - tile.x + first;
    kept.Load({Reflected(tile.y - kMargin + y, height), first, last - first}, loaded);
    for (int32_t c = 0; c < ofPicture.count; ++c) {
      float* const row = loaded[c] - first;  // by the picture's columns
      for (int32_t x = tile.x - kMargin; x < first; ++x) row[x] = row[Reflected(x, width)];
      for (int32_t x = last; x < tile.x + kTile + kMargin; ++x) row[x] = row[Reflected(x, width)];
    }
    for (int32_t x = 0; x < kSide && ofPicture.isMixed; ++x) {
      const float red = axes[0][y][x], green = axes[1][y][x], blue = axes[2][y][x];
      for (int32_t axis = 0; axis < kMostChannels; ++axis) {
        axes[axis][y][x] = kLuma[axis][0] * red + kLuma[axis][1] * green + kLuma[axis][2] * blue;
      }
    }
  }
}

// Where the first axis changes less along the line than along those before it, it is taken.
void Rim::Patch::TryLine(int32_t candidate) {
  for (int32_t y = 0; y < kCompared; ++y) {
    const float* const middle = &axes[0][y + kReach][kReach];
    float sums[kCompared], squares[kCompared];
    for (int32_t x = 0; x < kCompared; ++x) sums[x] = middle[x], squares[x] = middle[x] * middle[x];
    for (const Offset& offset : kLines[candidate]) {
      const float* const one = middle + offset.y * kSide + offset.x;
      const float* const other = middle - offset.y * kSide - offset.x;
      for (int32_t x = 0; x < kCompared; ++x) {
        sums[x] += one[x] + other[x];
        squares[x] += one[x] * one[x] + other[x] * other[x];
      }
    }
    for (int32_t x = 0; x < kCompared; ++x) variances[y][x] = squares[x] - sums[x] * sums[x] * kShare;
  }
  for (int32_t y = 0; y < kTile; ++y) {
    for (int32_t x = 0; x < kTile; ++x) {
      float sum = 0.0f;
      for (int32_t i = 0; i <= 2 * kSpread; ++i) {
        for (int32_t j = 0; j <= 2 * kSpread; ++j) sum += variances[y + i][x + j];
      }
      const bool isLess = candidate == 0 || sum < least[y][x];
      least[y][x] = isLess ? sum : least[y][x];
      line[y][x] = isLess ? candidate : line[y][x];
    }
  }
}

// Of an axis at a pixel of the tile, along its line: of the deviation from the line's mean stays what is
// more than noise.
float Rim::Patch::Smoothed(int32_t axis, int32_t x, int32_t y, float noise) const {
  const float* const middle = &axes[axis][y + kMargin][x + kMargin];
  float values[2 * kReach + 1] = {*middle};
  int32_t count = 1;
  for (const Offset& offset : kLines[line[y][x]]) {
    values[count++] = middle[offset.y * kSide + offset.x];
    values[count++] = middle[-offset.y * kSide - offset.x];
  }
  float mean = 0.0f, variance = 0.0f;
  for (const float value : values) mean += value;
  mean *= kShare;
  for (const float value : values) variance += (value - mean) * (value - mean);
  variance *= kShare;
  const float gain = variance > noise ? (variance - noise) / variance : 0.0f;
  return mean + gain * (*middle - mean);
}

bool Rim::Find(const Gate& gate, const PictureView& picture, const Axes& axes) {
  width_ = picture.width, height_ = picture.height;
  axes_ = axes;
  if (gate.IsOpen(0, 0, width_, height_)) return true;
  Plane along;
  const int32_t columns = gate.blocks(), rows = ReducedSide(height_, Gate::kReduction);
  if (!part_.Create(columns, rows) || !along.Create(columns, rows)) return false;
  for (int32_t y = 0; y < rows; ++y) {
    const float* const open = gate.Blocks(y);
    for (int32_t x = 0; x < columns; ++x) part_.Row(y)[x] = open[x] < kClosed ? 1.0f : 0.0f;
    Dilate(part_.Row(y), columns, 1, kRimBlocks, along.Row(y));
  }
  for (int32_t x = 0; x < columns; ++x) {
    Dilate(along.Row(0) + x, rows, columns, kRimBlocks, part_.Row(0) + x);
  }
  for (int32_t y = 0; y < rows; ++y) {
    const float* const open = gate.Blocks(y);
    for (int32_t x = 0; x < columns; ++x) part_.Row(y)[x] *= open[x] > 0.0f ? 1.0f : 0.0f;
  }
  const auto isRim = [&](int32_t x, int32_t y) {
    for (int32_t row = y; row < std::min(y + kTileBlocks, rows); ++row) {
      const float* const part = part_.Row(row);
      if (std::any_of(part + x, part + std::min(x + kTileBlocks, columns),
                      [](float of) { return of > 0.0f; }))
        return true;
    }
    return false;
  };
  for (int32_t y = 0; y < rows; y += kTileBlocks) {
    for (int32_t x = 0; x < columns; x += kTileBlocks) {
      if (isRim(x, y)) tiles_.push_back({x * Gate::kReduction, y * Gate::kReduction});
    }
  }
  const size_t all =
      static_cast<size_t>(ReducedSide(width_, kTile)) * static_cast<size_t>(ReducedSide(height_, kTile));
  if (tiles_.size() > kTilesAnyway + all / kMostTiles) tiles_.clear();
  smoothed_ = AllocateBlock<float>(tiles_.size() * static_cast<size_t>(axes_.count * kTile * kTile));
  return smoothed_ != nullptr || tiles_.empty();
}

float* Rim::SmoothedOf(int32_t tile) const {
  return smoothed_.get() + static_cast<size_t>(tile) * static_cast<size_t>(axes_.count * kTile * kTile);
}

void Rim::SmoothTile(const Tile& tile, const Noise& noise, const Gate& gate, const TakenChannels& kept,
                     float* smoothed) const {
  Patch patch;
  patch.Load(tile, width_, height_, axes_, kept);
  for (int32_t line = 0; line < kLineCount; ++line) patch.TryLine(line);
  const int32_t columns = std::min(kTile, width_ - tile.x), rows = std::min(kTile, height_ - tile.y);
  for (int32_t y = 0; y < rows; ++y) {
    float part[kTile], open[kTile], variance[kMostChannels][kTile];
    const int32_t block = tile.x / Gate::kReduction, blocks = ReducedSide(columns, Gate::kReduction);
    EnlargeRow(part_, Gate::kReduction, tile.y + y, block, blocks, part);
    gate.Row(tile.y + y, block, blocks, open);
    LevelRows levels = {};
    for (int32_t c = 0; c < axes_.count; ++c) {
      noise.Row(c, tile.y + y, tile.x / Noise::kReduction, ReducedSide(columns, Noise::kReduction),
                variance[c]);
      levels[c] = smoothed + (c * kTile + y) * kTile;
    }
    kept.Load({tile.y + y, tile.x, columns}, levels);
    for (int32_t x = 0; x < columns; ++x) {
      const float share = part[x] * open[x];
      if (!(share > 0.0f)) continue;
      float changes[kMostChannels] = {};
      for (int32_t axis = 0; axis < axes_.count; ++axis) {
        changes[axis] = share * (patch.Smoothed(axis, x, y, axes_.Rule(axis).alongEdge * variance[axis][x]) -
                                 patch.axes[axis][y + kMargin][x + kMargin]);
      }
      for (int32_t c = 0; c < axes_.count; ++c) {
        levels[c][x] += axes_.isMixed ? kFromLuma[c][0] * changes[0] + kFromLuma[c][1] * changes[1] +
                                            kFromLuma[c][2] * changes[2]
                                      : changes[c];
      }
    }
  }
}

bool Rim::Smooth(const Noise& noise, const Gate& gate, Parallel& parallel, const Progress& progress,
                 TakenChannels* channels) {
  const auto tiles = static_cast<int32_t>(tiles_.size());
  if (ForEachTask(
          parallel, tiles,
          [&](int32_t i, int32_t) { SmoothTile(tiles_[i], noise, gate, *channels, SmoothedOf(i)); },
          [&](int32_t finished) { return progress.Advance(finished, tiles); })) {
    return true;
  }
  ForEachTask(
      parallel, tiles,
      [&](int32_t i, int32_t) {
        const Tile& tile = tiles_[i];
        const int32_t columns = std::min(kTile, width_ - tile.x), rows = std::min(kTile, height_ - tile.y);
        for (int32_t y = 0; y < rows; ++y) {
          LevelRows levels = {};
          for (int32_t c = 0; c < axes_.count; ++c) levels[c] = SmoothedOf(i) + (c * kTile + y) * kTile;
          channels->Replace({tile.y + y, tile.x, columns}, levels);
        }
      },
      [](int32_t) { return false; });
  return false;
}

}  // namespace tessaline
