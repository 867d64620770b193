#include "restoration/polish.h"

#include <algorithm>

#include "restoration/row_kernels.h"

namespace tessaline {

namespace {

constexpr int32_t kMostReach = kOtherRoughAxes.reach;

constexpr int32_t kTileColumns = 1024;
constexpr int32_t kTileRows = 128;
constexpr int32_t kMargin = 2 * kMostReach;  // of two windows, one over the other
// Loops run in whole vectors, over samples beyond a row's end that nobody looks at.
constexpr int32_t kWholeVectors = 16;
constexpr int32_t kRowFloats = kTileColumns + 2 * kWholeVectors;
static_assert(kRowFloats >= kTileColumns + 2 * kMargin + kWholeVectors);

// The rows that are needed at once of what comes by rows: row y is written over when y + kRows comes.
template <int32_t kRows>
struct Ring {
  static_assert(kRows > kMargin / 2);
  float rows[kRows][kRowFloats];

  const float* operator[](int32_t y) const { return rows[(y + kRows) % kRows]; }
  float* operator[](int32_t y) { return rows[(y + kRows) % kRows]; }
};

constexpr int32_t WholeVectors(int32_t count) {
  return (count + kWholeVectors - 1) / kWholeVectors * kWholeVectors;
}

// What a thread works in. Every row begins where a line of the processor's memory
// does, which vectors are loaded from fastest: channels and values kMargin before the tile, sums, squares,
// gain and smooth a window's reach before it, the others with it.
struct TileMemory {
  using Row = float[kRowFloats];
  using OfTwoWindows = Ring<kMargin + 1>;
  using OfOneWindow = Ring<2 * kMostReach + 1>;
  OfTwoWindows channels[kMostChannels];
  struct Axis {
    OfTwoWindows values;
    OfOneWindow sums, squares, gains, smooths;
    Row change;
  } axes[kMostChannels];
  Row gain, smooth, levels[kMostChannels];
  float noise[kRowFloats + 2 * Noise::kReduction];  // whole blocks, and one to either side
};

WindowRows Window(const TileMemory::OfOneWindow& ring, int32_t y, int32_t reach) {
  WindowRows window{};
  for (int32_t i = -reach; i <= reach; ++i) window.rows[i + reach] = ring[y + i];
  return window;
}

}  // namespace

struct Polish::Tile {
  const TakenChannels& kept;
  const Noise& noise;
  const Gate& gate;
  const PictureView& picture;
  TileMemory& memory;
  int32_t x, y, columns, rows;
  bool isOpen;  // else less is polished somewhere in it

  // An axis' values in a row.
  float* Values(const Axes& axes, int32_t axis, int32_t row) const {
    return axes.isMixed ? memory.axes[axis].values[row] : memory.channels[axis][row];
  }
};

bool Polish::Prepare(const Axes& axes, int32_t threads) {
  axes_ = axes;
  memory_ = AllocateBlock<float>(sizeof(TileMemory) / sizeof(float) * static_cast<size_t>(threads));
  return memory_ != nullptr;
}

// Row y of the tile, margins included: the channels, the axes, and their sums along the row.
void Polish::LoadRow(const Tile& tile, int32_t y) const {
  const int32_t width = tile.picture.width;
  const int32_t first = std::max(tile.x - kMargin, 0);
  const int32_t last = std::min(tile.x + tile.columns + kMargin, width);
  LevelRows rows = {}, loaded = {};
  for (int32_t c = 0; c < axes_.count; ++c) {
    rows[c] = tile.memory.channels[c][y];
    loaded[c] = rows[c] + kMargin - tile.x + first;
  }
  const int32_t height = tile.picture.height;
  tile.kept.Load({Reflected(tile.y + y, height), first, last - first}, loaded);
  tile.kept.Expect({Reflected(tile.y + y + 1, height), first, last - first});
  for (int32_t c = 0; c < axes_.count; ++c) {
    float* const row = rows[c] + kMargin - tile.x;  // by the picture's columns
    for (int32_t x = tile.x - kMargin; x < 0; ++x) row[x] = row[Reflected(x, width)];
    for (int32_t x = width; x < tile.x + tile.columns + kMargin; ++x) row[x] = row[Reflected(x, width)];
  }
  const RowKernels& kernels = ActiveRowKernels();
  if (axes_.isMixed) {
    const LevelRows values = {tile.Values(axes_, 0, y), tile.Values(axes_, 1, y), tile.Values(axes_, 2, y)};
    kernels.mix(WholeVectors(tile.columns + 2 * kMargin), rows, kLuma, values);
  }
  for (int32_t axis = 0; axis < axes_.count; ++axis) {
    const int32_t reach = tile.noise.axes().Rule(axis).reach;
    kernels.sumValues[reach - 1](WholeVectors(tile.columns + 2 * reach),
                                 tile.Values(axes_, axis, y) + kMargin - reach,
                                 tile.memory.axes[axis].sums[y], tile.memory.axes[axis].squares[y]);
  }
}

// Of row y of the tile, whose neighbours are loaded.
void Polish::MeasureGains(const Tile& tile, int32_t axis, int32_t y) const {
  const RowKernels& kernels = ActiveRowKernels();
  TileMemory::Axis& memory = tile.memory.axes[axis];
  const int32_t reach = tile.noise.axes().Rule(axis).reach;
  constexpr int32_t kBlock = Noise::kReduction;
  // The blocks of the tile and a neighbour to each side.
  const int32_t firstBlock = std::max(tile.x / kBlock - 1, 0);
  const int32_t endBlock = std::min((tile.x + tile.columns + kBlock - 1) / kBlock + 1, tile.noise.blocks());
  float* const row = tile.memory.noise;
  tile.noise.Row(axis, Reflected(tile.y + y, tile.picture.height), firstBlock, endBlock - firstBlock,
                 row + kBlock);
  float* const beginning = row + kBlock + tile.x - firstBlock * kBlock;
  if (tile.x == 0 || tile.x + tile.columns == tile.picture.width) {
    for (int32_t i = 1; i <= reach && tile.x == 0; ++i) {
      beginning[-i] = beginning[Reflected(-i, tile.columns)];
    }
    for (int32_t i = 0; i < reach && tile.x + tile.columns == tile.picture.width; ++i) {
      const int32_t x = Reflected(tile.picture.width + i, tile.picture.width);
      beginning[tile.columns + i] = beginning[x - tile.x];
    }
  }
  const int32_t count = WholeVectors(tile.columns + 2 * reach);
  float *const gain = tile.memory.gain, *const smooth = tile.memory.smooth;
  kernels.measureGain[reach - 1](count, Window(memory.sums, y, reach), Window(memory.squares, y, reach),
                                 beginning - reach, gain, smooth);
  kernels.sumGains[reach - 1](WholeVectors(tile.columns), gain + reach, smooth + reach, memory.gains[y],
                              memory.smooths[y]);
}

void Polish::StoreRow(const Tile& tile, int32_t y) const {
  const RowKernels& kernels = ActiveRowKernels();
  TileMemory& memory = tile.memory;
  const int32_t count = WholeVectors(tile.columns);
  LevelRows changes = {}, rests = {}, levels = {};
  for (int32_t axis = 0; axis < axes_.count; ++axis) {
    TileMemory::Axis& of = memory.axes[axis];
    const int32_t reach = tile.noise.axes().Rule(axis).reach;
    changes[axis] = of.change;
    rests[axis] = memory.channels[axis][y] + kMargin;
    levels[axis] = memory.levels[axis];
    kernels.change[reach - 1](count, Window(of.gains, y, reach), Window(of.smooths, y, reach),
                              tile.Values(axes_, axis, y) + kMargin, of.change);
  }
  if (!tile.isOpen) {
    float open[kTileColumns];
    tile.gate.Row(tile.y + y, tile.x / Gate::kReduction, ReducedSide(tile.columns, Gate::kReduction), open);
    for (int32_t axis = 0; axis < axes_.count; ++axis) {
      for (int32_t x = 0; x < tile.columns; ++x) changes[axis][x] *= open[x];
    }
  }
  if (axes_.isMixed) {
    kernels.addMixed(count, rests, changes, kFromLuma, levels);
  } else {
    for (int32_t c = 0; c < axes_.count; ++c) kernels.add(count, rests[c], changes[c], levels[c]);
  }
  StoreChannels(tile.picture, {tile.y + y, tile.x, tile.columns}, levels);
}

// Every row's three stages follow each other as soon as the rows that they look at are there.
void Polish::StoreTile(const Tile& tile) const {
  const int32_t reach = tile.noise.axes().MostReach(), margin = 2 * reach;
  for (int32_t y = -margin; y < tile.rows + margin; ++y) {
    LoadRow(tile, y);
    const int32_t measured = y - reach, stored = y - margin;
    if (measured >= -reach) {
      for (int32_t axis = 0; axis < axes_.count; ++axis) MeasureGains(tile, axis, measured);
    }
    if (stored >= 0) StoreRow(tile, stored);
  }
}

void Polish::StorePlainly(const Tile& tile) const {
  const LevelRows levels = {tile.memory.levels[0], tile.memory.levels[1], tile.memory.levels[2]};
  for (int32_t y = tile.y; y < tile.y + tile.rows; ++y) {
    tile.kept.Load({y, tile.x, tile.columns}, levels);
    StoreChannels(tile.picture, {y, tile.x, tile.columns}, levels);
  }
}

void Polish::Store(const TakenChannels& channels, const Noise& noise, const Gate& gate, Parallel& parallel,
                   const PictureView& picture, const Progress& progress) const {
  const int32_t across = (picture.width + kTileColumns - 1) / kTileColumns;
  const int32_t tiles = across * ((picture.height + kTileRows - 1) / kTileRows);
  const auto store = [&](int32_t index, int32_t worker) {
    const int32_t x = index % across * kTileColumns, y = index / across * kTileRows;
    const int32_t columns = std::min(kTileColumns, picture.width - x),
                  rows = std::min(kTileRows, picture.height - y);
    const Tile tile{channels, noise, gate,    picture, reinterpret_cast<TileMemory*>(memory_.get())[worker],
                    x,        y,     columns, rows,    gate.IsOpen(x, y, columns, rows)};
    if (noise.IsAny(x, y, tile.columns, tile.rows)) {
      StoreTile(tile);
    } else {
      StorePlainly(tile);
    }
  };
  ForEachTask(parallel, tiles, store,
              [&](int32_t finished) { return progress.Unstoppable().Advance(finished, tiles); });
}

}  // namespace tessaline
