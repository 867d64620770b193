#include "removal/notch_mask.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "image/result_codes.h"
#include "platform/memory.h"
#include "removal/peak_detection.h"
#include "removal/portable_math.h"

namespace tessaline {

namespace {

constexpr uint8_t kPattern = 255;

// Chamfer distances: a step along an axis, along a diagonal (sqrt 2) and a knight's move (sqrt 5), in 41sts
// of a cell.
constexpr int32_t kCellDistance = 41;
constexpr int32_t kDiagonalDistance = 58;
constexpr int32_t kKnightDistance = 92;
constexpr uint16_t kFar = 65280;    // of cells that are no pattern cells, and of everything outside the grid
constexpr int32_t kBorderRows = 2;  // above and below the grid, as far as a knight's move reaches

// The neighbours in the two rows visited before a cell's row, the same when rows go down and when they go up.
struct ChamferStep {
  int32_t dx, rowsBack;
  int32_t distance;
};
constexpr ChamferStep kChamferSteps[] = {
    {0, 1, kCellDistance},   {-1, 1, kDiagonalDistance}, {1, 1, kDiagonalDistance}, {-2, 1, kKnightDistance},
    {2, 1, kKnightDistance}, {-1, 2, kKnightDistance},   {1, 2, kKnightDistance},
};
constexpr int32_t kBorderColumns = 2;  // cells whose neighbours may lie beside the grid

// The distance rows, border included: row -2 .. 513.
uint16_t* DistanceRow(uint16_t* distances, int32_t y) {
  return distances + static_cast<size_t>(y + kBorderRows) * kSpectrumCells;
}

using RowFlags = std::array<bool, kSpectrumCells>;

// Flags every row within `reach` of a flagged one.
RowFlags Widened(const RowFlags& flags, int32_t reach) {
  RowFlags widened{};
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    if (!flags[y]) continue;
    const int32_t end = std::min(y + reach + 1, kSpectrumCells);
    std::fill(widened.begin() + std::max(y - reach, 0), widened.begin() + end, true);
  }
  return widened;
}

// Flags the rows of the mask that hold anything but 0.
RowFlags RowsInUse(const ConstImageView& image) {
  RowFlags flags;
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    const uint8_t* const mask = image.Row(y);
    uint8_t any = 0;
    for (int32_t x = 0; x < kSpectrumCells; ++x) any |= mask[x];
    flags[y] = any != 0;
  }
  return flags;
}

// What the two rows before leave of one cell's distance, beside the grid nothing.
uint16_t NearestOfBorderCell(const uint16_t* const rows[3], int32_t x) {
  int32_t nearest = rows[0][x];
  for (const ChamferStep& step : kChamferSteps) {
    const int32_t neighbourX = x + step.dx;
    if (neighbourX < 0 || neighbourX >= kSpectrumCells) continue;
    nearest = std::min(nearest, rows[step.rowsBack][neighbourX] + step.distance);
  }
  return static_cast<uint16_t>(nearest);
}

// The same for all cells of a row whose neighbours lie inside. The sums stay below 65536, so 16 bits do.
void NearestOfInnerCells(uint16_t* __restrict row, const uint16_t* __restrict before,
                         const uint16_t* __restrict beforeThat) {
  const auto sum = [](uint16_t a, int32_t b) { return static_cast<uint16_t>(a + b); };
  for (int32_t x = kBorderColumns; x < kSpectrumCells - kBorderColumns; ++x) {
    const uint16_t diagonal = std::min(before[x - 1], before[x + 1]);
    const uint16_t aside = std::min(before[x - 2], before[x + 2]);
    const uint16_t knight = std::min(aside, std::min(beforeThat[x - 1], beforeThat[x + 1]));
    const uint16_t ahead = std::min(sum(before[x], kCellDistance), sum(diagonal, kDiagonalDistance));
    row[x] = std::min(row[x], std::min(ahead, sum(knight, kKnightDistance)));
  }
}

// One raster pass over the rows in question; direction +1 goes down and right, -1 up and left. A cell depends
// on the rows before and on the cell before it: first all that the rows give, then the run along the row.
void PropagateDistances(uint16_t* distances, int32_t direction, const RowFlags& rowsInReach) {
  for (int32_t i = 0; i < kSpectrumCells; ++i) {
    const int32_t y = direction > 0 ? i : kSpectrumCells - 1 - i;
    if (!rowsInReach[y]) continue;
    uint16_t* const row = DistanceRow(distances, y);
    const uint16_t* const rows[3] = {row, DistanceRow(distances, y - direction),
                                     DistanceRow(distances, y - 2 * direction)};
    for (int32_t border = 0; border < kBorderColumns; ++border) {
      row[border] = NearestOfBorderCell(rows, border);
      row[kSpectrumCells - 1 - border] = NearestOfBorderCell(rows, kSpectrumCells - 1 - border);
    }
    NearestOfInnerCells(row, rows[1], rows[2]);
    int32_t nearest = kFar;
    for (int32_t j = 0; j < kSpectrumCells; ++j) {
      const int32_t x = direction > 0 ? j : kSpectrumCells - 1 - j;
      nearest = std::min(int32_t{row[x]}, nearest + kCellDistance);
      row[x] = static_cast<uint16_t>(nearest);
    }
  }
}

int32_t GrowNotches(const ImageView& image, float notchRadius) {
  const auto block = AllocateBlock<uint16_t>(kSpectrumCells * (kSpectrumCells + 2 * kBorderRows));
  if (!block) return kOutOfMemory;
  uint16_t* const distances = block.get();
  for (int32_t y = -kBorderRows; y < kSpectrumCells + kBorderRows; ++y) {
    uint16_t* const row = DistanceRow(distances, y);
    const bool isBorder = y < 0 || y >= kSpectrumCells;
    const uint8_t* const mask = isBorder ? nullptr : image.Row(y);
    for (int32_t x = 0; x < kSpectrumCells; ++x) row[x] = mask != nullptr && mask[x] != 0 ? 0 : kFar;
  }
  // A senseless radius (a damaged settings record) must not reach the far cells of an empty map.
  const float reach = std::clamp(notchRadius * kCellDistance, 0.0f, float{kFar - 1});
  const auto notchDistance = static_cast<uint16_t>(reach);
  // Every step costs a cell's distance per row at least, so the walks that count stay within these rows. The
  // others keep "far", which is all that the threshold below asks of them.
  const RowFlags rowsInReach = Widened(RowsInUse(image), notchDistance / kCellDistance);
  PropagateDistances(distances, +1, rowsInReach);
  PropagateDistances(distances, -1, rowsInReach);
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    const uint16_t* const row = DistanceRow(distances, y);
    uint8_t* const mask = image.Row(y);
    for (int32_t x = 0; x < kSpectrumCells; ++x) mask[x] = row[x] <= notchDistance ? kPattern : 0;
  }
  return kSuccess;
}

void ClearProtectedDisc(const ImageView& image, float protectionRadius) {
  const float discRadius = ProtectedDiscRadius(protectionRadius);
  const float discRadiusSquared = discRadius * discRadius;
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    const int32_t dy = y - kSpectrumCentre;
    if (static_cast<float>(dy * dy) >= discRadiusSquared) continue;
    uint8_t* const mask = image.Row(y);
    for (int32_t x = 0; x < kSpectrumCells; ++x) {
      const int32_t dx = x - kSpectrumCentre;
      if (static_cast<float>(dx * dx + dy * dy) < discRadiusSquared) mask[x] = 0;
    }
  }
}

// 21 taps with a standard deviation of 3 cells: every notch gets a ramp about 10 cells wide, which keeps the
// result from ringing.
constexpr int32_t kSofteningReach = 10;
constexpr int32_t kSofteningTaps = 2 * kSofteningReach + 1;

std::array<double, kSofteningTaps> SofteningWeights() {
  std::array<double, kSofteningTaps> weights;
  double sum = 0.0;
  for (int32_t i = 0; i < kSofteningTaps; ++i) {
    const int32_t offset = i - kSofteningReach;
    weights[i] = PortableExp(-offset * offset / 18.0);
    sum += weights[i];
  }
  for (double& weight : weights) weight /= sum;
  return weights;
}

// A row is softened block by block, and only blocks that anything reaches: where all 21 cells are 0 the sum
// is too.
constexpr int32_t kBlockCells = 16;
constexpr int32_t kBlocks = kSpectrumCells / kBlockCells;
using BlockFlags = std::array<bool, kBlocks>;
static_assert(kSofteningReach < kBlockCells, "a cell reaches the next block at most");

// The weighted sums of a block's cells: tap t takes its values from `values[t]` on. Every cell's additions
// run in the order of the taps.
void SoftenBlock(const double* const values[kSofteningTaps], const double* weights, double* sums) {
  double block[kBlockCells] = {};
  for (int32_t t = 0; t < kSofteningTaps; ++t) {
    for (int32_t i = 0; i < kBlockCells; ++i) block[i] += weights[t] * values[t][i];
  }
  std::copy(block, block + kBlockCells, sums);
}

int32_t SoftenMask(const ImageView& image) {
  constexpr size_t kCells = size_t{kSpectrumCells} * kSpectrumCells;
  const auto alongRows = AllocateBlock<double>(kCells);
  const auto blocksInUse = AllocateBlock<BlockFlags>(kSpectrumCells);
  if (!alongRows || !blocksInUse) return kOutOfMemory;
  const auto rowOf = [&](int32_t y) { return alongRows.get() + static_cast<size_t>(y) * kSpectrumCells; };
  const auto weights = SofteningWeights();
  const RowFlags rowsInUse = RowsInUse(image);
  const double* values[kSofteningTaps];
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    if (!rowsInUse[y]) continue;
    const uint8_t* const mask = image.Row(y);
    BlockFlags own{};
    double extended[kSpectrumCells + 2 * kSofteningReach];
    for (int32_t x = 0; x < kSpectrumCells; ++x) {
      extended[x + kSofteningReach] = mask[x];
      own[x / kBlockCells] |= mask[x] != 0;
    }
    std::fill(extended, extended + kSofteningReach, mask[0]);
    std::fill(extended + kSofteningReach + kSpectrumCells, std::end(extended), mask[kSpectrumCells - 1]);
    for (int32_t block = 0; block < kBlocks; ++block) {
      if (!own[block] && !own[std::max(block - 1, 0)] && !own[std::min(block + 1, kBlocks - 1)]) continue;
      blocksInUse[y][block] = true;
      const int32_t x = block * kBlockCells;
      for (int32_t t = 0; t < kSofteningTaps; ++t) values[t] = extended + x + t;
      SoftenBlock(values, weights.data(), rowOf(y) + x);
    }
  }
  // Values are truncated to bytes here, once. The weights sum to 1 but for their rounding; a millionth of a
  // level keeps a full 255 from falling to 254, which would leave 0.4 % of every broad notch standing.
  constexpr double kRoundingAllowance = 1e-6;
  const RowFlags rowsReached = Widened(rowsInUse, kSofteningReach);
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    if (!rowsReached[y]) continue;  // the mask is 0 there already
    uint8_t* const mask = image.Row(y);
    for (int32_t block = 0; block < kBlocks; ++block) {
      const int32_t x = block * kBlockCells;
      bool isReached = false;
      for (int32_t t = 0; t < kSofteningTaps; ++t) {
        const int32_t sourceY = std::clamp(y + t - kSofteningReach, 0, kSpectrumCells - 1);
        values[t] = rowOf(sourceY) + x;
        isReached |= blocksInUse[sourceY][block];
      }
      if (!isReached) continue;
      double sums[kBlockCells];
      SoftenBlock(values, weights.data(), sums);
      for (int32_t i = 0; i < kBlockCells; ++i)
        mask[x + i] = static_cast<uint8_t>(static_cast<int32_t>(sums[i] + kRoundingAllowance));
    }
  }
  return kSuccess;
}

}  // namespace

int32_t ShapeNotches(const ImageView& image, float protectionRadius, float notchRadius) {
  if (!IsSpectrumGrid(image, 1)) return kUnequalSizes;
  int32_t result = GrowNotches(image, notchRadius);
  if (result != kSuccess) return result;
  ClearProtectedDisc(image, protectionRadius);
  result = SoftenMask(image);
  if (result != kSuccess) return result;
  image.Row(kSpectrumCentre)[kSpectrumCentre] = 0;  // the mean level is never touched
  return kSuccess;
}

namespace {

// Row `i` of `factor` rows that lead from one stretched row to the next. The factors of the run's transforms
// are powers of two, where the division is a shift that vectors have.
void BlendRows(const int32_t* upper, const int32_t* lower, int32_t i, int32_t factor, int32_t columns,
               uint8_t* row) {
  const int32_t whole = factor * factor;
  if ((whole & (whole - 1)) == 0) {
    const int32_t bits = std::countr_zero(static_cast<uint32_t>(whole));
    for (int32_t x = 0; x < columns; ++x)
      row[x] = static_cast<uint8_t>((upper[x] * (factor - i) + lower[x] * i) >> bits);
  } else {
    for (int32_t x = 0; x < columns; ++x)
      row[x] = static_cast<uint8_t>((upper[x] * (factor - i) + lower[x] * i) / whole);
  }
}

}  // namespace

int32_t EnlargeMask(const ConstImageView& grid, const ImageView& full) {
  if (!IsSpectrumGrid(grid, 1) || full.IsEmpty() || full.bytesPerPixel != 1 || full.width != full.height)
    return kUnequalSizes;
  const int32_t factor = std::max(full.width / kSpectrumCells, 1);
  const auto lower = AllocateBlock<int32_t>(static_cast<size_t>(kSpectrumCells) * factor);
  const auto upper = AllocateBlock<int32_t>(static_cast<size_t>(kSpectrumCells) * factor);
  if (!lower || !upper) return kOutOfMemory;
  // The weights k/D are fractions of a power of two, so the interpolation is done in whole numbers of 1/D and
  // gives what exact arithmetic gives.
  const auto stretchRow = [&](int32_t y, int32_t* stretched) {
    const uint8_t* const mask = grid.Row(y);
    for (int32_t x = 0; x < kSpectrumCells; ++x) {
      const int32_t next = mask[std::min(x + 1, kSpectrumCells - 1)];
      for (int32_t k = 0; k < factor; ++k) *stretched++ = mask[x] * (factor - k) + next * k;
    }
  };
  const int32_t columns = std::min(full.width, kSpectrumCells * factor);
  // Between two rows that are 0 there is nothing to compute; a row beside one that is not is still needed.
  const RowFlags inUse = RowsInUse(grid);
  const RowFlags isNeeded = Widened(inUse, 1);
  int32_t* current = upper.get();
  int32_t* next = lower.get();
  stretchRow(0, current);
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    const int32_t lowerY = std::min(y + 1, kSpectrumCells - 1);
    if (isNeeded[lowerY]) stretchRow(lowerY, next);
    for (int32_t i = 0; i < factor; ++i) {
      if (y * factor + i >= full.height) continue;
      uint8_t* const row = full.Row(y * factor + i);
      if (inUse[y] || inUse[lowerY]) {
        BlendRows(current, next, i, factor, columns, row);
      } else {
        std::fill(row, row + columns, uint8_t{0});
      }
    }
    std::swap(current, next);
  }
  return kSuccess;
}

}  // namespace tessaline
