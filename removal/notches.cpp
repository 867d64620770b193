#include "removal/notches.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tessaline {
namespace {

constexpr int32_t kSide = kSpectrumCells;

struct Cell {
  int32_t x;
  int32_t y;
};

bool IsInGrid(Cell cell) {
  return cell.x >= 0 && cell.x < kSide && cell.y >= 0 && cell.y < kSide;
}
size_t IndexOf(Cell cell) {
  return static_cast<size_t>(cell.y) * kSide + static_cast<size_t>(cell.x);
}
Cell MirrorOf(Cell cell) {
  return {kSide - cell.x, kSide - cell.y};
}

// The cell whose level decided over this one: the upper half decides for the lower, and on the centre row
// each side for the other.
Cell DecidingCell(Cell cell) {
  if (cell.y < kSpectrumCentre || cell.x == 0) return cell;
  return MirrorOf(cell);
}

uint16_t Level(const Image& spectrum, Cell cell) {
  return spectrum.view().Row<uint16_t>(cell.y)[cell.x];
}

bool IsSeed(const Image& seeds, Cell cell) {
  return seeds.view().Row(cell.y)[cell.x] != 0;
}

// All seed cells that hang together with `first`, diagonals included. They and their mirror images become
// taken.
std::vector<Cell> TakeCluster(const Image& seeds, Cell first, std::vector<bool>& taken) {
  std::vector<Cell> cluster = {first};
  taken[IndexOf(first)] = true;
  for (size_t i = 0; i < cluster.size(); ++i) {
    const Cell cell = cluster[i];
    for (int32_t dy = -1; dy <= 1; ++dy) {
      for (int32_t dx = -1; dx <= 1; ++dx) {
        const Cell neighbour = {cell.x + dx, cell.y + dy};
        if (!IsInGrid(neighbour) || taken[IndexOf(neighbour)] || !IsSeed(seeds, neighbour)) continue;
        taken[IndexOf(neighbour)] = true;
        cluster.push_back(neighbour);
      }
    }
  }
  for (const Cell& cell : cluster) {
    const Cell mirror = MirrorOf(cell);
    if (IsInGrid(mirror)) taken[IndexOf(mirror)] = true;
  }
  return cluster;
}

struct Frequency {  // cells
  double x;
  double y;
};

// A peak seldom stands in the middle of its cell. The magnitudes round it, less those of the surroundings,
// weigh the 3 x 3 cells.
Frequency RefinePeak(const Analysis& analysis, Cell peak) {
  const auto magnitude = [&](int32_t dx, int32_t dy) {
    const Cell cell = {std::clamp(peak.x + dx, 0, kSide - 1), std::clamp(peak.y + dy, 0, kSide - 1)};
    return std::exp(Level(analysis.rawGray16, cell) / 32768.0 * analysis.logSpan);
  };
  double surroundings = 0;
  int32_t ringCells = 0;
  for (int32_t dy = -2; dy <= 2; ++dy) {
    for (int32_t dx = -2; dx <= 2; ++dx) {
      if (std::max(std::abs(dx), std::abs(dy)) < 2) continue;
      surroundings += magnitude(dx, dy);
      ++ringCells;
    }
  }
  surroundings /= ringCells;
  double sum = 0, sumX = 0, sumY = 0;
  for (int32_t dy = -1; dy <= 1; ++dy) {
    for (int32_t dx = -1; dx <= 1; ++dx) {
      const double weight = std::max(magnitude(dx, dy) - surroundings, 0.0);
      sum += weight;
      sumX += weight * dx;
      sumY += weight * dy;
    }
  }
  // A cell holds the frequencies from its own position up to just before the next one's.
  const double binsPerCell = static_cast<double>(analysis.transformSize) / kSide;
  const double middle = (binsPerCell - 1) / (2 * binsPerCell);
  const double shiftX = sum > 0 ? sumX / sum : 0, shiftY = sum > 0 ? sumY / sum : 0;
  return {peak.x - kSpectrumCentre + middle + shiftX, peak.y - kSpectrumCentre + middle + shiftY};
}

Notch Describe(const Analysis& analysis, const Findings& findings, const std::vector<Cell>& cluster) {
  const auto decidingLevel = [&](Cell cell) { return Level(analysis.gray16, DecidingCell(cell)); };
  const Cell peak = DecidingCell(*std::max_element(
      cluster.begin(), cluster.end(), [&](Cell a, Cell b) { return decidingLevel(a) < decidingLevel(b); }));
  const Frequency offset = RefinePeak(analysis, peak);
  Notch notch = {};
  notch.dx = peak.x - kSpectrumCentre;
  notch.dy = peak.y - kSpectrumCentre;
  notch.cyclesPerPixelX = offset.x / kSide;
  notch.cyclesPerPixelY = offset.y / kSide;
  notch.periodPixels = kSide / std::hypot(offset.x, offset.y);
  const double degrees = std::atan2(-offset.y, offset.x) * 180.0 / std::numbers::pi;
  notch.angleDegrees = std::fmod(degrees + 180.0, 180.0);
  notch.level = Level(analysis.gray16, peak);
  notch.aboveThreshold = notch.level - findings.threshold;
  notch.cells = static_cast<int32_t>(cluster.size());
  return notch;
}

}  // namespace

std::vector<Notch> CollectNotches(const Analysis& analysis, const Findings& findings) {
  std::vector<Notch> notches;
  std::vector<bool> taken(static_cast<size_t>(kSide) * kSide);
  // Decisions were made on the upper half and the centre row; the rest mirrors them.
  for (int32_t y = 0; y <= kSpectrumCentre; ++y) {
    for (int32_t x = 0; x < kSide; ++x) {
      const Cell cell = {x, y};
      if (taken[IndexOf(cell)] || !IsSeed(findings.seeds, cell)) continue;
      notches.push_back(Describe(analysis, findings, TakeCluster(findings.seeds, cell, taken)));
    }
  }
  std::stable_sort(notches.begin(), notches.end(),
                   [](const Notch& a, const Notch& b) { return a.level > b.level; });
  return notches;
}

double LinesPerInch(const Notch& notch, double pixelsPerInchX, double pixelsPerInchY) {
  return std::hypot(notch.cyclesPerPixelX * pixelsPerInchX, notch.cyclesPerPixelY * pixelsPerInchY);
}

double LinesPerInch(const SpectrumPeak& peak, double pixelsPerInchX, double pixelsPerInchY) {
  return std::hypot(peak.dx * pixelsPerInchX, peak.dy * pixelsPerInchY) / kSide;
}

bool IsAtHalfTheResolution(const SpectrumPeak& peak) {
  return std::max(std::abs(peak.dx), std::abs(peak.dy)) == kSpectrumCentre;
}

}  // namespace tessaline
