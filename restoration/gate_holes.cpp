#include "restoration/gate_holes.h"

#include <algorithm>
#include <vector>

#include "restoration/gate.h"

namespace tessaline {

namespace {

constexpr int32_t kMostSide = 48 / Gate::kReduction;  // blocks
constexpr float kOpen = 0.999f;                       // less is closed in part

struct Block {
  int32_t x, y;
};

// What is closed together, of which no more is kept than a hole has.
struct Hole {
  int32_t left, top, right, bottom;  // blocks, the last two included
  std::vector<Block> blocks;

  bool IsSmall() const { return right - left < kMostSide && bottom - top < kMostSide; }
};

// Takes in what is closed from a block on; `marks` are left wherever it was.
void Gather(const Plane& open, Block from, Plane* marks, std::vector<Block>* waiting, Hole* hole) {
  *hole = {from.x, from.y, from.x, from.y, std::move(hole->blocks)};
  hole->blocks.clear();
  const auto take = [&](int32_t x, int32_t y) {
    if (x < 0 || y < 0 || x >= open.width || y >= open.height) return;
    if (marks->Row(y)[x] != 0.0f || !(open.Row(y)[x] < kOpen)) return;
    marks->Row(y)[x] = 1.0f;
    waiting->push_back({x, y});
  };
  take(from.x, from.y);
  while (!waiting->empty()) {
    const Block block = waiting->back();
    waiting->pop_back();
    hole->left = std::min(hole->left, block.x), hole->right = std::max(hole->right, block.x);
    hole->top = std::min(hole->top, block.y), hole->bottom = std::max(hole->bottom, block.y);
    if (hole->IsSmall()) hole->blocks.push_back(block);
    take(block.x - 1, block.y);
    take(block.x + 1, block.y);
    take(block.x, block.y - 1);
    take(block.x, block.y + 1);
  }
}

}  // namespace

void OpenHoles(bool isPart, Plane* open, Plane* marks) {
  for (int32_t y = 0; y < marks->height; ++y) std::fill_n(marks->Row(y), marks->width, 0.0f);
  std::vector<Block> waiting;
  Hole hole;
  for (int32_t y = 0; y < open->height; ++y) {
    for (int32_t x = 0; x < open->width; ++x) {
      if (!(open->Row(y)[x] < kOpen) || marks->Row(y)[x] != 0.0f) continue;
      Gather(*open, {x, y}, marks, &waiting, &hole);
      // Else it is the gate that is closed, and what is open the exception.
      const bool isInTheMidst =
          4 * hole.blocks.size() < static_cast<size_t>(open->width) * static_cast<size_t>(open->height);
      const bool isAtBorder =
          hole.left == 0 || hole.top == 0 || hole.right == open->width - 1 || hole.bottom == open->height - 1;
      if (!hole.IsSmall() || !isInTheMidst || (isPart && isAtBorder)) continue;
      for (const Block& block : hole.blocks) open->Row(block.y)[block.x] = 1.0f;
    }
  }
}

}  // namespace tessaline
