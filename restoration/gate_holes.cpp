#include "restoration/gate_holes.h"

#include <algorithm>
#include <vector>

#include "restoration/gate.h"

namespace tessaline {

namespace {

constexpr int32_t kMostSide = 48 / Gate::kReduction;  // blocks
constexpr float kOpen = 0.999f,
                kHardlyOpen = 0.1f;  // less is closed in part, or wholly but for the softened rim
constexpr int32_t kReach = 3;        // blocks, of that rim
// What is open because the pattern is there is so somewhere over this; letters that look like it are so
// nowhere.
constexpr float kSolid = 0.9f;
constexpr int32_t kSolidSide = 16 / Gate::kReduction;  // blocks

struct Block {
  int32_t x, y;
};

// Blocks on one side of a level.
struct Kind {
  float level;
  bool isAbove;

  bool Has(float open) const { return isAbove ? open > level : open < level; }
};

// What hangs together. Its blocks are kept where it is small, and where it is open but nowhere solid.
struct Place {
  int32_t left, top, right, bottom;  // blocks, the last two included
  size_t size = 0;
  bool isHole;
  bool isSolid = false;  // somewhere
  std::vector<Block> blocks;

  bool IsSmall() const { return right - left < kMostSide && bottom - top < kMostSide; }
  bool IsKept() const { return IsSmall() || !(isHole || isSolid); }
};

// Over a square that ends with the block.
bool IsSolid(const Plane& open, Block last) {
  const int32_t left = last.x - kSolidSide + 1, top = last.y - kSolidSide + 1;
  if (left < 0 || top < 0) return false;
  for (int32_t y = last.y; y >= top; --y) {
    const float* const row = open.Row(y);
    if (std::any_of(row + left, row + last.x + 1, [](float part) { return part < kSolid; })) return false;
  }
  return true;
}

// Takes in what hangs together from a block on; `marks` are left wherever it was.
Place Gather(const Plane& open, const Kind& kind, Block from, Plane* marks, std::vector<Block>* waiting) {
  Place place{from.x, from.y, from.x, from.y, 0, !kind.isAbove};
  const auto take = [&](int32_t x, int32_t y) {
    if (x < 0 || y < 0 || x >= open.width || y >= open.height) return;
    if (marks->Row(y)[x] != 0.0f || !kind.Has(open.Row(y)[x])) return;
    marks->Row(y)[x] = 1.0f;
    waiting->push_back({x, y});
  };
  take(from.x, from.y);
  while (!waiting->empty()) {
    const Block block = waiting->back();
    waiting->pop_back();
    ++place.size;
    place.isSolid = place.isSolid || IsSolid(open, block);
    place.left = std::min(place.left, block.x), place.right = std::max(place.right, block.x);
    place.top = std::min(place.top, block.y), place.bottom = std::max(place.bottom, block.y);
    if (place.IsKept()) place.blocks.push_back(block);
    constexpr Block kAround[] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}};
    for (const Block& step : kAround) take(block.x + step.x, block.y + step.y);
  }
  if (!place.IsKept()) place.blocks = {};
  return place;
}

// All places of a kind.
std::vector<Place> PlacesOf(const Plane& open, const Kind& kind, Plane* marks) {
  for (int32_t y = 0; y < marks->height; ++y) std::fill_n(marks->Row(y), marks->width, 0.0f);
  std::vector<Block> waiting;
  std::vector<Place> places;
  for (int32_t y = 0; y < open.height; ++y) {
    for (int32_t x = 0; x < open.width; ++x) {
      if (marks->Row(y)[x] != 0.0f || !kind.Has(open.Row(y)[x])) continue;
      places.push_back(Gather(open, kind, {x, y}, marks, &waiting));
    }
  }
  return places;
}

bool MayGoOn(bool isPart, const Plane& open, const Place& place) {
  return isPart && (place.left == 0 || place.top == 0 || place.right == open.width - 1 ||
                    place.bottom == open.height - 1);
}

}  // namespace

void OpenHoles(bool isPart, Plane* open, Plane* marks) {
  const size_t all = static_cast<size_t>(open->width) * static_cast<size_t>(open->height);
  for (const Place& place : PlacesOf(*open, {kOpen, false}, marks)) {
    // Else it is the gate that is closed, and what is open the exception.
    const bool isInTheMidst = 4 * place.size < all;
    if (!place.IsSmall() || !isInTheMidst || MayGoOn(isPart, *open, place)) continue;
    for (const Block& block : place.blocks) open->Row(block.y)[block.x] = 1.0f;
  }
}

void CloseIslands(bool isPart, Plane* open, Plane* marks) {
  constexpr size_t kMostOfAll = 2;  // one of so many blocks
  constexpr float kIsland = 3.0f;   // a mark
  constexpr Kind kAnyhow = {kHardlyOpen, true};
  const size_t blocks = static_cast<size_t>(open->width) * static_cast<size_t>(open->height);
  // Most gates of whole prints: nothing is an island in them.
  if (std::all_of(open->Row(0), open->Row(0) + blocks, [&](float part) { return kAnyhow.Has(part); })) return;
  size_t all = 0, ofIslands = 0;
  for (const Place& place : PlacesOf(*open, kAnyhow, marks)) {
    all += place.size;
    if (!place.IsKept() || MayGoOn(isPart, *open, place)) continue;
    ofIslands += place.size;
    for (const Block& block : place.blocks) marks->Row(block.y)[block.x] = kIsland;
  }
  // Of a part nobody knows what is open beyond it.
  if (!isPart && kMostOfAll * ofIslands > all) return;
  const auto isNearWide = [&](int32_t x, int32_t y) {
    for (int32_t v = std::max(y - kReach, 0); v <= std::min(y + kReach, open->height - 1); ++v) {
      const float* const row = marks->Row(v);
      const auto isWide = [&](float mark) { return mark != 0.0f && mark != kIsland; };
      if (std::any_of(row + std::max(x - kReach, 0), row + std::min(x + kReach, open->width - 1) + 1, isWide))
        return true;
    }
    return false;
  };
  for (int32_t y = 0; y < open->height; ++y) {
    for (int32_t x = 0; x < open->width; ++x) {
      const bool isAlone = kAnyhow.Has(open->Row(y)[x]) ? marks->Row(y)[x] == kIsland
                                                        : open->Row(y)[x] > 0.0f && !isNearWide(x, y);
      if (isAlone) open->Row(y)[x] = 0.0f;
    }
  }
}

}  // namespace tessaline
