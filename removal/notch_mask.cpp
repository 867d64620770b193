#include "removal/notch_mask.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "buffers/buffer_table.h"
#include "buffers/result_codes.h"
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

// The neighbours visited before a cell when rows go down and columns right; the way back mirrors them.
struct ChamferStep {
  int32_t dx, dy;
  int32_t distance;
};
constexpr ChamferStep kChamferSteps[] = {
    {-1, 0, kCellDistance},     {0, -1, kCellDistance},    {-1, -1, kDiagonalDistance},
    {1, -1, kDiagonalDistance}, {-2, -1, kKnightDistance}, {2, -1, kKnightDistance},
    {-1, -2, kKnightDistance},  {1, -2, kKnightDistance},
};

// The distance rows, border included: row -2 .. 513.
uint16_t* DistanceRow(int32_t distanceSlot, int32_t y) {
  return reinterpret_cast<uint16_t*>(BufferRow(distanceSlot, y + kBorderRows));
}

// One raster pass; direction +1 goes down and right, -1 up and left with the mirrored neighbours.
void PropagateDistances(int32_t distanceSlot, int32_t direction) {
  for (int32_t i = 0; i < kSpectrumCells; ++i) {
    const int32_t y = direction > 0 ? i : kSpectrumCells - 1 - i;
    uint16_t* const row = DistanceRow(distanceSlot, y);
    const uint16_t* neighbourRows[3];
    for (int32_t up = 0; up <= kBorderRows; ++up) {
      neighbourRows[up] = DistanceRow(distanceSlot, y - direction * up);
    }
    for (int32_t j = 0; j < kSpectrumCells; ++j) {
      const int32_t x = direction > 0 ? j : kSpectrumCells - 1 - j;
      int32_t nearest = row[x];
      for (const ChamferStep& step : kChamferSteps) {
        const int32_t neighbourX = x + direction * step.dx;
        if (neighbourX < 0 || neighbourX >= kSpectrumCells) continue;
        nearest = std::min(nearest, neighbourRows[-step.dy][neighbourX] + step.distance);
      }
      row[x] = static_cast<uint16_t>(nearest);
    }
  }
}

int32_t GrowNotches(int32_t maskSlot, float notchRadius) {
  OwnedBuffer distances;
  const int32_t result =
      distances.Create("EDM-Erode", kSpectrumCells, kSpectrumCells + 2 * kBorderRows, sizeof(uint16_t));
  if (result != kSuccess) return result;
  for (int32_t y = -kBorderRows; y < kSpectrumCells + kBorderRows; ++y) {
    uint16_t* const row = DistanceRow(distances.slot(), y);
    std::fill(row, row + kSpectrumCells, kFar);
    const uint8_t* const mask = BufferRow(maskSlot, y);  // null on the border rows
    if (mask == nullptr) continue;
    for (int32_t x = 0; x < kSpectrumCells; ++x) {
      if (mask[x] != 0) row[x] = 0;
    }
  }
  PropagateDistances(distances.slot(), +1);
  PropagateDistances(distances.slot(), -1);
  // A senseless radius (a damaged settings record) must not reach the far cells of an empty map.
  const float reach = std::clamp(notchRadius * kCellDistance, 0.0f, float{kFar - 1});
  const auto notchDistance = static_cast<uint16_t>(reach);
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    const uint16_t* const row = DistanceRow(distances.slot(), y);
    uint8_t* const mask = BufferRow(maskSlot, y);
    for (int32_t x = 0; x < kSpectrumCells; ++x) mask[x] = row[x] <= notchDistance ? kPattern : 0;
  }
  return kSuccess;
}

void ClearProtectedDisc(int32_t maskSlot, float protectionRadius) {
  const float discRadius = ProtectedDiscRadius(protectionRadius);
  const float discRadiusSquared = discRadius * discRadius;
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    const int32_t dy = y - kSpectrumCentre;
    if (static_cast<float>(dy * dy) >= discRadiusSquared) continue;
    uint8_t* const mask = BufferRow(maskSlot, y);
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

int32_t SoftenMask(int32_t maskSlot) {
  constexpr size_t kCells = size_t{kSpectrumCells} * kSpectrumCells;
  const auto alongRows = AllocateBlock<double>(kCells);
  if (!alongRows) return kOutOfMemory;
  const auto weights = SofteningWeights();
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    const uint8_t* const mask = BufferRow(maskSlot, y);
    double extended[kSpectrumCells + 2 * kSofteningReach];
    for (int32_t x = -kSofteningReach; x < kSpectrumCells + kSofteningReach; ++x) {
      extended[x + kSofteningReach] = mask[std::clamp(x, 0, kSpectrumCells - 1)];
    }
    double* const row = alongRows.get() + static_cast<size_t>(y) * kSpectrumCells;
    for (int32_t t = 0; t < kSofteningTaps; ++t) {
      for (int32_t x = 0; x < kSpectrumCells; ++x) row[x] += weights[t] * extended[x + t];
    }
  }
  // Values are truncated to bytes here, once. The weights sum to 1 but for their rounding; a millionth of a
  // level keeps a full 255 from falling to 254, which would leave 0.4 % of every broad notch standing.
  constexpr double kRoundingAllowance = 1e-6;
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    double sums[kSpectrumCells] = {};
    for (int32_t t = 0; t < kSofteningTaps; ++t) {
      const int32_t sourceY = std::clamp(y + t - kSofteningReach, 0, kSpectrumCells - 1);
      const double* const row = alongRows.get() + static_cast<size_t>(sourceY) * kSpectrumCells;
      for (int32_t x = 0; x < kSpectrumCells; ++x) sums[x] += weights[t] * row[x];
    }
    uint8_t* const mask = BufferRow(maskSlot, y);
    for (int32_t x = 0; x < kSpectrumCells; ++x) mask[x] = static_cast<uint8_t>(sums[x] + kRoundingAllowance);
  }
  return kSuccess;
}

}  // namespace

int32_t ShapeNotches(int32_t maskSlot, float protectionRadius, float notchRadius) {
  if (!IsSpectrumGrid(maskSlot, 1)) return kUnequalSizes;
  int32_t result = GrowNotches(maskSlot, notchRadius);
  if (result != kSuccess) return result;
  ClearProtectedDisc(maskSlot, protectionRadius);
  result = SoftenMask(maskSlot);
  if (result != kSuccess) return result;
  BufferRow(maskSlot, kSpectrumCentre)[kSpectrumCentre] = 0;  // the mean level is never touched
  MarkDirty(maskSlot);
  return kSuccess;
}

int32_t EnlargeMask(int32_t maskSlot, int32_t fullMaskSlot) {
  const BufferShape full = ShapeOf(fullMaskSlot);
  if (!IsSpectrumGrid(maskSlot, 1) || full.bytesPerPixel != 1 || full.width != full.height)
    return kUnequalSizes;
  const int32_t factor = std::max(full.width / kSpectrumCells, 1);
  const auto lower = AllocateBlock<int32_t>(static_cast<size_t>(kSpectrumCells) * factor);
  const auto upper = AllocateBlock<int32_t>(static_cast<size_t>(kSpectrumCells) * factor);
  if (!lower || !upper) return kOutOfMemory;
  // The weights k/D are fractions of a power of two, so the interpolation is done in whole numbers of 1/D and
  // gives what exact arithmetic gives.
  const auto stretchRow = [&](int32_t y, int32_t* stretched) {
    const uint8_t* const mask = BufferRow(maskSlot, std::min(y, kSpectrumCells - 1));
    for (int32_t x = 0; x < kSpectrumCells; ++x) {
      const int32_t next = mask[std::min(x + 1, kSpectrumCells - 1)];
      for (int32_t k = 0; k < factor; ++k) *stretched++ = mask[x] * (factor - k) + next * k;
    }
  };
  const int32_t columns = std::min(full.width, kSpectrumCells * factor);
  int32_t* current = upper.get();
  int32_t* next = lower.get();
  stretchRow(0, current);
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    stretchRow(y + 1, next);
    for (int32_t i = 0; i < factor; ++i) {
      uint8_t* const row = BufferRow(fullMaskSlot, y * factor + i);
      if (row == nullptr) continue;
      for (int32_t x = 0; x < columns; ++x) {
        row[x] = static_cast<uint8_t>((current[x] * (factor - i) + next[x] * i) / (factor * factor));
      }
    }
    std::swap(current, next);
  }
  MarkDirty(fullMaskSlot);
  return kSuccess;
}

int32_t BuildMaskFromSeeds(float protectionRadius, float notchRadius, int32_t workingMaskSlot,
                           int32_t fullMaskSlot) {
  const int32_t result = ShapeNotches(workingMaskSlot, protectionRadius, notchRadius);
  if (result != kSuccess) return result;
  const bool hasFullMask = fullMaskSlot >= 1 && fullMaskSlot < kBufferSlots;
  return hasFullMask ? EnlargeMask(workingMaskSlot, fullMaskSlot) : kSuccess;
}

int32_t BuildMask(int32_t spectrumSlot, float threshold, float protectionRadius, float notchRadius,
                  int32_t workingMaskSlot, int32_t fullMaskSlot) {
  OwnedBuffer ownMask;
  if (workingMaskSlot == 0) {
    const int32_t result = ownMask.Create("Temp Mask", kSpectrumCells, kSpectrumCells, 1);
    if (result != kSuccess) return result;
    workingMaskSlot = ownMask.slot();
  }
  const int32_t result = DetectPeaks(spectrumSlot, threshold, protectionRadius, workingMaskSlot);
  if (result != kSuccess) return result;
  return BuildMaskFromSeeds(protectionRadius, notchRadius, workingMaskSlot, fullMaskSlot);
}

}  // namespace tessaline
