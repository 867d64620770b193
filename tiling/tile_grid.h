// How a picture is cut into overlapping tiles of one size.
//
// Along each axis tiles lie evenly spread; neighbours share at least twice the margin, near a tile's edge
// where its transform knows nothing of what lies beyond, and in the middle of that the few pixels over which
// one result passes into the other.
#pragma once

#include <cstdint>
#include <vector>

namespace tessaline {

struct TileRule {
  int32_t side = 0;    // pixels of a tile, both ways; shorter where the picture is
  int32_t margin = 0;  // of which no sample is kept
  int32_t blend = 0;   // over which neighbours pass into each other
};

// One tile along one axis.
struct TileSpan {
  int32_t first, count;          // pixels that are transformed
  int32_t keptFirst, keptCount;  // of them those that are kept; neighbours share the rule's blend
};

// All tiles begin at multiples of it, so that what is measured on reduced planes is measured at the same
// places in all of them.
constexpr int32_t kTileStep = 8;

// Covers 0 .. length - 1. All spans have one count.
std::vector<TileSpan> TileSpans(int32_t length, const TileRule& rule);

}  // namespace tessaline
