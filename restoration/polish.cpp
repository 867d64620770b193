#include "restoration/polish.h"

#include <algorithm>

#include "image/pixel_kind.h"
#include "restoration/row_kernels.h"

namespace tessaline {

namespace {

// The axes that are polished, each for itself.
struct AxisRule {
  float noiseShare;  // of the mean square of what was taken out
  int32_t reach;     // of the window, to every side
};
constexpr AxisRule kFirstAxis = {0.15f, 1};  // luma, lightness
constexpr AxisRule kOtherAxes = {0.60f, 2};  // differences of colour, which carry less detail
const AxisRule& RuleOf(int32_t axis) {
  return axis == 0 ? kFirstAxis : kOtherAxes;
}
constexpr int32_t kMostReach = kOtherAxes.reach;

constexpr double kNoiseSigma = 6.0;
constexpr float kMostNoise = 100.0f * kByteToHost * kByteToHost;  // variance; 100 in levels of 255

// Axes from channels, and channels from axes.
using Matrix = float[kMostChannels][kMostChannels];
constexpr Matrix kLuma = {
    {0.299f, 0.587f, 0.114f}, {-0.168736f, -0.331264f, 0.5f}, {0.5f, -0.418688f, -0.081312f}};
constexpr Matrix kFromLuma = {{1.0f, 0.0f, 1.402f}, {1.0f, -0.344136f, -0.714136f}, {1.0f, 1.772f, 0.0f}};
constexpr Matrix kAsTheyAre = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};

constexpr int32_t kTileColumns = 256;
constexpr int32_t kTileRows = 64;
constexpr int32_t kMargin = 2 * kMostReach;  // of two windows, one over the other
constexpr int32_t kRowFloats = kTileColumns + 16;
static_assert(kRowFloats >= kTileColumns + 2 * kMargin);
constexpr int32_t kRing = 2 * kMargin + 1;  // rows of anything that are needed at once

// What a thread works in, a ring of rows for everything. Rows begin kMargin before the tile.
struct TileMemory {
  using Row = float[kRowFloats];
  using Ring = Row[kRing];
  Ring channels[kMostChannels];
  struct Axis {
    Ring values, sums, squares, gains, smooths;
    Row change;
  } axes[kMostChannels];
  Row gain, smooth, levels;
  float noise[kRowFloats + 16];  // whole blocks, and one to either side
};

int32_t Slot(int32_t y) {
  return (y + kRing) % kRing;
}
WindowRows Window(const TileMemory::Ring& ring, int32_t y, int32_t reach, int32_t column) {
  WindowRows window{};
  for (int32_t i = -reach; i <= reach; ++i) window.rows[i + reach] = ring[Slot(y + i)] + column;
  return window;
}

}  // namespace

struct Polish::Tile {
  const TakenChannels& kept;
  const PictureView& picture;
  TileMemory& memory;
  int32_t x, y, columns, rows;
};

const float* Polish::WeightsOf(int32_t axis) const {
  return isMixed_ ? kLuma[axis] : kAsTheyAre[axis];
}

bool Polish::Prepare(const PictureView& picture, ChannelMeaning meaning, int32_t threads) {
  channels_ = picture.channels;
  isMixed_ = meaning == ChannelMeaning::kRgb && channels_ == kMostChannels;
  const int32_t width = ReducedSide(picture.width, kReduction),
                height = ReducedSide(picture.height, kReduction);
  for (int32_t axis = 0; axis < channels_; ++axis) {
    if (!noise_[axis].Create(width, height)) return false;
  }
  memory_ = AllocateBlock<float>(sizeof(TileMemory) / sizeof(float) * static_cast<size_t>(threads));
  return memory_ && scratch_.Create(width, height);
}

// A row of blocks: the mean squares of the axes of what was taken out.
void Polish::MeasureBlocks(const PictureView& picture, int32_t blockY, const TakenChannels& channels) {
  constexpr int32_t kPart = 64 * kReduction;
  const int32_t endY = std::min((blockY + 1) * kReduction, picture.height);
  for (int32_t first = 0; first < picture.width; first += kPart) {
    const int32_t count = std::min(kPart, picture.width - first);
    float squares[kMostChannels][kPart] = {}, taken[kMostChannels][kPart], levels[kPart], rest[kPart];
    const float* rows[kMostChannels];
    for (int32_t c = 0; c < kMostChannels; ++c) rows[c] = taken[c < channels_ ? c : 0];
    for (int32_t y = blockY * kReduction; y < endY; ++y) {
      for (int32_t c = 0; c < channels_; ++c) {
        const RowPart part{c, y, first, count};
        channels.Load(part, rest);
        LoadPart(picture, part, levels);
        ActiveRowKernels().findTaken(count, levels, rest, taken[c]);
      }
      for (int32_t axis = 0; axis < channels_; ++axis) {
        ActiveRowKernels().addSquares(count, rows, WeightsOf(axis), squares[axis]);
      }
    }
    for (int32_t axis = 0; axis < channels_; ++axis) {
      float* const means = noise_[axis].Row(blockY) + first / kReduction;
      for (int32_t x = 0; x < count; x += kReduction) {
        const int32_t end = std::min(x + kReduction, count);
        float sum = 0.0f;
        for (int32_t i = x; i < end; ++i) sum += squares[axis][i];
        means[x / kReduction] = sum / static_cast<float>((end - x) * (endY - blockY * kReduction));
      }
    }
  }
}

bool Polish::MeasureNoise(const PictureView& picture, float amount, const TakenChannels& channels,
                          Parallel& parallel, const Progress& progress) {
  const int32_t tasks = noise_[0].height;
  if (ForEachTask(
          parallel, tasks, [&](int32_t blockY, int32_t) { MeasureBlocks(picture, blockY, channels); },
          [&](int32_t finished) { return progress.Advance(finished, tasks); })) {
    return true;
  }
  const double done = VarianceOfBlocks(kReduction) + VarianceOfEnlarging(kReduction);
  for (int32_t axis = 0; axis < channels_; ++axis) {
    Plane& noise = noise_[axis];
    Blur(GaussianOfRest(kNoiseSigma, done, kReduction), parallel, noise.width, &noise, &scratch_);
    RowsInParallel(parallel, noise.height, [&](int32_t y, int32_t) {
      float* const row = noise.Row(y);
      const float share = RuleOf(axis).noiseShare;
      for (int32_t x = 0; x < noise.width; ++x) row[x] = amount * std::min(share * row[x], kMostNoise);
    });
  }
  return false;
}

// Row y of the tile, margins included: the channels, the axes, and their sums along the row.
void Polish::LoadRow(const Tile& tile, int32_t y) const {
  const int32_t width = tile.picture.width;
  const int32_t first = std::max(tile.x - kMargin, 0);
  const int32_t last = std::min(tile.x + tile.columns + kMargin, width);
  const int32_t from = Reflected(tile.y + y, tile.picture.height);
  const float* rows[kMostChannels];
  for (int32_t c = 0; c < kMostChannels; ++c) {
    rows[c] = tile.memory.channels[c < channels_ ? c : 0][Slot(y)];
    if (c >= channels_) continue;
    float* const row = tile.memory.channels[c][Slot(y)] + kMargin - tile.x;  // by the picture's columns
    tile.kept.Load({c, from, first, last - first}, row + first);
    for (int32_t x = tile.x - kMargin; x < 0; ++x) row[x] = row[Reflected(x, width)];
    for (int32_t x = width; x < tile.x + tile.columns + kMargin; ++x) row[x] = row[Reflected(x, width)];
  }
  const RowKernels& kernels = ActiveRowKernels();
  for (int32_t axis = 0; axis < channels_; ++axis) {
    TileMemory::Axis& memory = tile.memory.axes[axis];
    const int32_t reach = RuleOf(axis).reach, slot = Slot(y);
    kernels.mix(tile.columns + 2 * kMargin, rows, WeightsOf(axis), memory.values[slot]);
    kernels.sumValues[reach - 1](tile.columns + 2 * (kMargin - reach), memory.values[slot] + reach,
                                 memory.sums[slot] + reach, memory.squares[slot] + reach);
  }
}

// Of row y of the tile, whose neighbours are loaded.
void Polish::MeasureGains(const Tile& tile, int32_t axis, int32_t y) const {
  const RowKernels& kernels = ActiveRowKernels();
  TileMemory::Axis& memory = tile.memory.axes[axis];
  const int32_t reach = RuleOf(axis).reach, begin = kMargin - reach;
  const Plane& noise = noise_[axis];
  // The blocks of the tile and a neighbour to each side.
  const int32_t firstBlock = std::max(tile.x / kReduction - 1, 0);
  const int32_t endBlock = std::min((tile.x + tile.columns + kReduction - 1) / kReduction + 1, noise.width);
  float* const row = tile.memory.noise;
  EnlargeRow(noise, kReduction, Reflected(tile.y + y, tile.picture.height), firstBlock, endBlock - firstBlock,
             row + kReduction);
  float* const beginning = row + kReduction + tile.x - firstBlock * kReduction;
  if (tile.x == 0 || tile.x + tile.columns == tile.picture.width) {
    for (int32_t i = 1; i <= reach && tile.x == 0; ++i) {
      beginning[-i] = beginning[Reflected(-i, tile.columns)];
    }
    for (int32_t i = 0; i < reach && tile.x + tile.columns == tile.picture.width; ++i) {
      const int32_t x = Reflected(tile.picture.width + i, tile.picture.width);
      beginning[tile.columns + i] = beginning[x - tile.x];
    }
  }
  const int32_t count = tile.columns + 2 * reach;
  float *const gain = tile.memory.gain + begin, *const smooth = tile.memory.smooth + begin;
  kernels.measureGain[reach - 1](count, Window(memory.sums, y, reach, begin),
                                 Window(memory.squares, y, reach, begin), beginning - reach, gain, smooth);
  kernels.sumGains[reach - 1](tile.columns, gain + reach, smooth + reach, memory.gains[Slot(y)] + kMargin,
                              memory.smooths[Slot(y)] + kMargin);
}

void Polish::StoreRow(const Tile& tile, int32_t y) const {
  const Matrix& back = isMixed_ ? kFromLuma : kAsTheyAre;
  const float* changes[kMostChannels];
  for (int32_t axis = 0; axis < kMostChannels; ++axis) {
    changes[axis] = tile.memory.axes[axis < channels_ ? axis : 0].change;
    if (axis >= channels_) continue;
    TileMemory::Axis& memory = tile.memory.axes[axis];
    const int32_t reach = RuleOf(axis).reach;
    ActiveRowKernels().change[reach - 1](tile.columns, Window(memory.gains, y, reach, kMargin),
                                         Window(memory.smooths, y, reach, kMargin),
                                         memory.values[Slot(y)] + kMargin, memory.change);
  }
  for (int32_t c = 0; c < channels_; ++c) {
    float* const levels = tile.memory.levels;
    ActiveRowKernels().mix(tile.columns, changes, back[c], levels);
    const float* const rest = tile.memory.channels[c][Slot(y)] + kMargin;
    for (int32_t x = 0; x < tile.columns; ++x) levels[x] += rest[x];
    StorePart(tile.picture, {c, tile.y + y, tile.x, tile.columns}, Rounding::kNearest, levels);
  }
}

// Every row's three stages follow each other as soon as the rows that they look at are there.
void Polish::StoreTile(const Tile& tile) const {
  for (int32_t y = -kMargin; y < tile.rows + kMargin; ++y) {
    LoadRow(tile, y);
    const int32_t measured = y - kMostReach, stored = y - kMargin;
    if (measured >= -kMostReach) {
      for (int32_t axis = 0; axis < channels_; ++axis) MeasureGains(tile, axis, measured);
    }
    if (stored >= 0) StoreRow(tile, stored);
  }
}

void Polish::StorePlainly(const Tile& tile) const {
  float* const levels = tile.memory.levels;
  for (int32_t c = 0; c < channels_; ++c) {
    for (int32_t y = tile.y; y < tile.y + tile.rows; ++y) {
      const RowPart part{c, y, tile.x, tile.columns};
      tile.kept.Load(part, levels);
      StorePart(tile.picture, part, Rounding::kNearest, levels);
    }
  }
}

// Whether anything in the tile or beside it is to be polished.
bool Polish::IsAnyNoise(const Tile& tile) const {
  const auto firstOf = [](int32_t place) { return std::max(place / kReduction - 1, 0); };
  const auto endOf = [](int32_t end, int32_t count) {
    return std::min((end + kReduction - 1) / kReduction + 1, count);
  };
  for (int32_t axis = 0; axis < channels_; ++axis) {
    const Plane& noise = noise_[axis];
    for (int32_t y = firstOf(tile.y); y < endOf(tile.y + tile.rows, noise.height); ++y) {
      const float* const row = noise.Row(y);
      for (int32_t x = firstOf(tile.x); x < endOf(tile.x + tile.columns, noise.width); ++x) {
        if (row[x] > 0.0f) return true;
      }
    }
  }
  return false;
}

void Polish::Store(const TakenChannels& channels, Parallel& parallel, const PictureView& picture,
                   const Progress& progress) const {
  const int32_t across = (picture.width + kTileColumns - 1) / kTileColumns;
  const int32_t tiles = across * ((picture.height + kTileRows - 1) / kTileRows);
  const auto store = [&](int32_t index, int32_t worker) {
    const int32_t x = index % across * kTileColumns, y = index / across * kTileRows;
    const Tile tile{channels,
                    picture,
                    reinterpret_cast<TileMemory*>(memory_.get())[worker],
                    x,
                    y,
                    std::min(kTileColumns, picture.width - x),
                    std::min(kTileRows, picture.height - y)};
    if (IsAnyNoise(tile)) {
      StoreTile(tile);
    } else {
      StorePlainly(tile);
    }
  };
  ForEachTask(parallel, tiles, store,
              [&](int32_t finished) { return progress.Unstoppable().Advance(finished, tiles); });
}

}  // namespace tessaline
