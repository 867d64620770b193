#include "tiling/tile_grid.h"

#include <algorithm>

namespace tessaline {

std::vector<TileSpan> TileSpans(int32_t length, const TileRule& rule) {
  if (length <= rule.side) return {{0, length, 0, length}};
  const int32_t side = rule.side - (rule.side - length % kTileStep + kTileStep) % kTileStep;
  const int32_t mostStep = side - 2 * rule.margin - rule.blend - kTileStep;
  const int32_t tiles = 1 + (length - side + mostStep - 1) / mostStep;
  const auto firstOf = [&](int32_t tile) {
    const auto evenly = static_cast<int32_t>(int64_t{length - side} * tile / (tiles - 1));
    return evenly / kTileStep * kTileStep;
  };
  std::vector<TileSpan> spans;
  int32_t keptFirst = 0;
  for (int32_t tile = 0; tile < tiles; ++tile) {
    const int32_t first = firstOf(tile);
    const int32_t seam = tile + 1 < tiles ? (firstOf(tile + 1) + first + side) / 2 : length;
    const int32_t keptEnd = tile + 1 < tiles ? seam + rule.blend / 2 : length;
    spans.push_back({first, side, keptFirst, keptEnd - keptFirst});
    keptFirst = keptEnd - rule.blend;
  }
  return spans;
}

}  // namespace tessaline
