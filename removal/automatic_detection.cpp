#include "removal/automatic_detection.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <new>

#include "image/pixel_kind.h"
#include "image/result_codes.h"
#include "removal/spectrum_grid.h"

namespace tessaline {

namespace {

constexpr int32_t kWrap = kSpectrumCells - 1;  // the spectrum is periodic: coordinates are taken modulo 512

// Heights, in natural-log units, that the rule compares with.
struct Limits {
  double weak;          // a peak must stand this high to count at all
  double strong;        // a licence needs this much ...
  double strongOnAxis;  // ... or this near an axis, where edges of the picture put a bright cross
  double smear;         // this much above the need, the isolation may be measured farther out (warped pages)
  double isolation;     // what a licence needs

  Limits(double sensitivity, int32_t blockSide)
      : weak((0.7 + 1.2 / blockSide) / sensitivity),  // a sum over a larger block is steadier
        strong(weak + 1.05 / sensitivity),
        strongOnAxis(strong + 0.45 / sensitivity),
        smear(0.6 / sensitivity),
        isolation(0.75 / sensitivity) {}
};

enum class Axis { kNone, kVertical, kHorizontal };

struct Candidate {
  SpectrumPeak peak;
  double level;  // natural log over the spectrum minimum
  Axis axis;
  bool isOut;
};

// The cells of a ring, as offsets.
struct Offset {
  int32_t dx, dy;
};
std::vector<Offset> MakeRing(double innerRadius, double outerRadius) {
  std::vector<Offset> ring;
  const auto reach = static_cast<int32_t>(outerRadius);
  for (int32_t dy = -reach; dy <= reach; ++dy) {
    for (int32_t dx = -reach; dx <= reach; ++dx) {
      const int32_t distanceSquared = dx * dx + dy * dy;
      if (distanceSquared >= innerRadius * innerRadius && distanceSquared <= outerRadius * outerRadius) {
        ring.push_back({dx, dy});
      }
    }
  }
  return ring;
}

// The spectrum before the enhancement, addressed from the zero frequency. It is periodic: the copy kept here
// repeats it beyond each edge as far as any neighbourhood reaches, so that rings are plain offsets.
class LogSpectrum {
 public:
  LogSpectrum(const ConstImageView& rawGray16, double logSpan, double discRadius)
      : levels_(size_t{kSide} * kSide), logSpan_(logSpan), discRadiusSquared_(discRadius * discRadius) {
    for (int32_t y = 0; y < kSide; ++y) {
      const auto* const row = rawGray16.Row<uint16_t>((y - kReach) & kWrap);
      for (int32_t x = 0; x < kSide; ++x) levels_[y * kSide + x] = row[(x - kReach) & kWrap];
    }
  }

  // 0..32768. Whole levels are compared wherever only the order counts. At most kReach cells beyond an edge.
  int32_t Level(int32_t dx, int32_t dy) const { return levels_[Index(dx, dy)]; }
  double ToLog(int32_t level) const { return level * logSpan_ / double{kHostMax}; }
  double Log(int32_t dx, int32_t dy) const { return ToLog(Level(dx, dy)); }

  bool IsInsideDisc(int32_t dx, int32_t dy) const {
    const int32_t x = ((dx + kSpectrumCentre) & kWrap) - kSpectrumCentre;
    const int32_t y = ((dy + kSpectrumCentre) & kWrap) - kSpectrumCentre;
    return x * x + y * y < discRadiusSquared_;
  }

  double MedianOverRing(int32_t dx, int32_t dy, const std::vector<Offset>& ring) const {
    int32_t cells[kMostRingCells] = {};
    int32_t count = 0;
    const uint16_t* const centre = &levels_[Index(dx, dy)];
    for (const Offset& offset : ring) cells[count++] = centre[offset.dy * kSide + offset.dx];
    return ToLog(LowerMedian(cells, count));
  }

  // A quick no: true when the cell cannot stand `height` above its ring's median. Most local maxima are
  // turned away here by counting, which is several times cheaper than the median itself.
  bool IsSurelyLowerThan(double height, int32_t dx, int32_t dy, const std::vector<Offset>& ring) const {
    // The median must not exceed this level; one more allows for rounding.
    const double highestMedian = (Log(dx, dy) - height) / logSpan_ * double{kHostMax} + 1.0;
    const uint16_t* const centre = &levels_[Index(dx, dy)];
    size_t notAbove = 0;
    for (const Offset& offset : ring) notAbove += centre[offset.dy * kSide + offset.dx] <= highestMedian;
    return notAbove < (ring.size() + 1) / 2;
  }

  // Over the cells 4 to 16 away on both sides along a row (stepX 1) or a column (stepY 1).
  double MedianAlong(int32_t dx, int32_t dy, int32_t stepX, int32_t stepY) const {
    int32_t cells[2 * 13] = {};
    int32_t count = 0;
    for (int32_t i = 4; i <= 16; ++i) {
      cells[count++] = Level(dx + i * stepX, dy + i * stepY);
      cells[count++] = Level(dx - i * stepX, dy - i * stepY);
    }
    return ToLog(LowerMedian(cells, count));
  }

  // How far a level stands above the highest cell of a ring. Cells inside the disc are not looked at.
  double IsolationOver(int32_t dx, int32_t dy, const std::vector<Offset>& ring) const {
    int32_t highest = 0;
    for (const Offset& offset : ring) {
      const int32_t x = dx + offset.dx, y = dy + offset.dy;
      if (!IsInsideDisc(x, y)) highest = std::max(highest, Level(x, y));
    }
    return Log(dx, dy) - ToLog(highest);
  }

  // Highest of the 5 x 5 cells round a place.
  double HighestAround(int32_t dx, int32_t dy) const {
    int32_t highest = 0;
    for (int32_t y = -2; y <= 2; ++y) {
      for (int32_t x = -2; x <= 2; ++x) highest = std::max(highest, Level(dx + x, dy + y));
    }
    return ToLog(highest);
  }

  // At least as high as its later neighbours in reading order and higher than the earlier ones, so that of a
  // plateau one cell wins.
  bool IsLocalMaximum(int32_t dx, int32_t dy) const {
    constexpr Offset kEarlier[] = {{-1, -1}, {0, -1}, {1, -1}, {-1, 0}};
    const int32_t level = Level(dx, dy);
    for (const Offset& offset : kEarlier) {
      if (level <= Level(dx + offset.dx, dy + offset.dy)) return false;
      if (level < Level(dx - offset.dx, dy - offset.dy)) return false;
    }
    return true;
  }

 private:
  // The lower middle one of an even count.
  static int32_t LowerMedian(int32_t* cells, int32_t count) {
    int32_t* const middle = cells + (count - 1) / 2;
    std::nth_element(cells, middle, cells + count);
    return *middle;
  }

  static constexpr int32_t kReach = 16;
  static constexpr int32_t kSide = kSpectrumCells + 2 * kReach;
  static constexpr size_t kMostRingCells = 512;

  static size_t Index(int32_t dx, int32_t dy) {
    return static_cast<size_t>(dy + kSpectrumCentre + kReach) * kSide + (dx + kSpectrumCentre + kReach);
  }

  std::vector<uint16_t> levels_;
  double logSpan_;
  double discRadiusSquared_;
};

Axis NearestAxis(int32_t dx, int32_t dy) {
  // 3.4 degrees to each side: a page laid crooked.
  constexpr double kSlope = 0.06;
  if (std::abs(dx) <= 3 + kSlope * std::abs(dy)) return Axis::kVertical;
  if (std::abs(dy) <= 3 + kSlope * std::abs(dx)) return Axis::kHorizontal;
  return Axis::kNone;
}

// What is usual around a cell. Near an axis the bright cross of the picture's edges counts as usual.
double BackgroundOf(const LogSpectrum& spectrum, int32_t dx, int32_t dy, const std::vector<Offset>& ring) {
  double background = spectrum.MedianOverRing(dx, dy, ring);
  if (std::abs(dx) <= 1) background = std::max(background, spectrum.MedianAlong(dx, dy, 0, 1));
  if (std::abs(dy) <= 1) background = std::max(background, spectrum.MedianAlong(dx, dy, 1, 0));
  return background;
}

bool IsHigher(const Candidate& a, const Candidate& b) {
  if (a.peak.height != b.peak.height) return a.peak.height > b.peak.height;
  return a.peak.dy != b.peak.dy ? a.peak.dy < b.peak.dy : a.peak.dx < b.peak.dx;
}

// All cells of the upper half that stand `weak` or more above their surroundings, highest first.
std::vector<Candidate> FindCandidates(const LogSpectrum& spectrum, const ConstImageView& gray16,
                                      double logSpan, const Limits& limits) {
  const auto backgroundRing = MakeRing(3.5, 9.5);
  const auto isolationRing = MakeRing(4, 12);
  std::vector<Candidate> candidates;
  for (int32_t dy = -kSpectrumCentre; dy <= 0; ++dy) {
    const auto* const enhanced = gray16.Row<uint16_t>(dy + kSpectrumCentre);
    const int32_t endX = dy == 0 ? 0 : kSpectrumCentre;  // of the centre row only the left half
    for (int32_t dx = -kSpectrumCentre; dx < endX; ++dx) {
      if (spectrum.IsInsideDisc(dx, dy)) continue;
      // A cheap sieve only: the enhanced value of a real peak is never this low.
      if (enhanced[dx + kSpectrumCentre] * logSpan / double{kHostMax} < 0.5 * limits.weak) continue;
      if (!spectrum.IsLocalMaximum(dx, dy)) continue;
      if (spectrum.IsSurelyLowerThan(limits.weak, dx, dy, backgroundRing)) continue;
      const double background = BackgroundOf(spectrum, dx, dy, backgroundRing);
      const double level = spectrum.Log(dx, dy);
      const double height = level - background;
      if (height < limits.weak) continue;
      const double angle = std::atan2(-dy, dx) * 180.0 / 3.14159265358979323846;
      const SpectrumPeak peak{dx,
                              dy,
                              kSpectrumCells / std::sqrt(static_cast<double>(dx * dx + dy * dy)),
                              angle >= 180.0 ? angle - 180.0 : angle,
                              height,
                              spectrum.IsolationOver(dx, dy, isolationRing),
                              background,
                              false,
                              false,
                              PeakVerdict::kUsed};
      candidates.push_back({peak, level, NearestAxis(dx, dy), false});
    }
  }
  std::sort(candidates.begin(), candidates.end(), IsHigher);
  return candidates;
}

void LeaveOut(Candidate* candidate, PeakVerdict verdict) {
  if (candidate->isOut) return;
  candidate->isOut = true;
  candidate->peak.verdict = verdict;
}

// Combs: evenly spaced harmonics near an axis whose period is longer than the protected one, as lines of text
// make.

int32_t PositionOf(const Candidate& candidate) {
  return std::abs(candidate.axis == Axis::kVertical ? candidate.peak.dy : candidate.peak.dx);
}

// Places along an axis of its peaks that reach half of its highest one, apart by more than 4 cells, in rising
// order.
std::vector<int32_t> PositionsAlong(Axis axis, const std::vector<Candidate>& candidates) {
  std::vector<int32_t> positions;
  double highest = 0.0;
  for (const Candidate& candidate : candidates) {  // highest first
    if (candidate.axis != axis) continue;
    highest = std::max(highest, candidate.peak.height);
    if (candidate.peak.height < 0.5 * highest) break;
    const int32_t position = PositionOf(candidate);
    const bool isTaken = std::any_of(positions.begin(), positions.end(),
                                     [&](int32_t taken) { return std::abs(taken - position) <= 4; });
    if (!isTaken) positions.push_back(position);
  }
  std::sort(positions.begin(), positions.end());
  return positions;
}

double Multiple(double position, double spacing) {
  return std::floor(position / spacing + 0.5);
}

bool IsNearMultiple(double position, double spacing, double tolerance) {
  return std::abs(position - Multiple(position, spacing) * spacing) <= tolerance;
}

// Whether all harmonics of the axis are one comb.
bool IsPureComb(const std::vector<int32_t>& positions, double longestSpacing) {
  constexpr size_t kFewestTeeth = 4;
  if (positions.size() < kFewestTeeth) return false;
  int32_t smallestGap = kSpectrumCells;
  for (size_t i = 1; i < positions.size(); ++i)
    smallestGap = std::min(smallestGap, positions[i] - positions[i - 1]);
  if (smallestGap > longestSpacing) return false;

  double gaps = 0.0, steps = 0.0;
  for (size_t i = 1; i < positions.size(); ++i) {
    const double gap = positions[i] - positions[i - 1];
    gaps += gap;
    steps += Multiple(gap, smallestGap);
  }
  const double roughSpacing = gaps / steps;
  double weighted = 0.0, squares = 0.0;
  for (const int32_t position : positions) {
    const double k = Multiple(position, roughSpacing);
    weighted += k * position;
    squares += k * k;
  }
  if (squares == 0.0) return false;
  const double spacing = weighted / squares;
  double hits = 0.0;
  for (const int32_t position : positions) {
    if (std::abs(position - Multiple(position, roughSpacing) * spacing) <= 1.5) ++hits;
  }
  const double span =
      Multiple(positions.back(), roughSpacing) - Multiple(positions.front(), roughSpacing) + 1;
  return spacing <= longestSpacing && hits >= kFewestTeeth &&
         4 * hits >= 3.0 * static_cast<double>(positions.size()) && hits >= 0.7 * span;
}

// A comb among other harmonics of the axis (text beside a screened picture).
struct MixedComb {
  double spacing = 0.0;
  int32_t hits = 0;
};

// The comb that a first guess of the spacing grows into; no hits when it is none.
MixedComb GrowComb(const std::vector<int32_t>& positions, double spacing) {
  for (const double tolerance : {3.0, 1.5}) {
    double weighted = 0.0, squares = 0.0;
    for (const int32_t position : positions) {
      if (position < spacing / 2 || !IsNearMultiple(position, spacing, tolerance)) continue;
      const double k = Multiple(position, spacing);
      weighted += k * position;
      squares += k * k;
    }
    if (squares == 0.0) return {};
    spacing = weighted / squares;
  }
  int32_t hits = 0;
  double first = 0.0, last = 0.0;
  for (const int32_t position : positions) {
    if (position < spacing / 2 || !IsNearMultiple(position, spacing, 1.5)) continue;
    last = Multiple(position, spacing);
    if (hits++ == 0) first = last;
  }
  const bool isComb = hits >= 5 && spacing >= 12 && hits >= 0.7 * (last - first + 1);
  return isComb ? MixedComb{spacing, hits} : MixedComb{};
}

MixedComb FindMixedComb(const std::vector<int32_t>& positions, double longestSpacing) {
  std::vector<int32_t> differences;
  for (size_t i = 0; i < positions.size(); ++i) {
    for (size_t j = i + 1; j < positions.size(); ++j) {
      const int32_t difference = positions[j] - positions[i];
      if (difference >= 12 && difference <= longestSpacing) differences.push_back(difference);
    }
  }
  std::sort(differences.begin(), differences.end());
  differences.erase(std::unique(differences.begin(), differences.end()), differences.end());
  MixedComb best;
  for (const int32_t difference : differences) {
    const MixedComb comb = GrowComb(positions, difference);
    if (comb.hits > best.hits) best = comb;
  }
  return best;
}

// Whether all harmonics of the axis are multiples of its strongest one, which is finer than any text: a
// screen of lines. Those that the scan folds back look like teeth between the others; under the strongest
// tooth of text there are always lower ones, or the protected disc hides the first and the third tells.
bool IsFoldedScreen(Axis axis, const std::vector<Candidate>& candidates,
                    const std::vector<int32_t>& positions, double longestSpacing) {
  constexpr int32_t kMostMultiple = 5;
  constexpr double kTolerance = 1.0, kTolerancePerMultiple = 0.5;  // cells
  const Candidate* strongest = nullptr;
  for (const Candidate& candidate : candidates) {
    if (candidate.axis == axis && (strongest == nullptr || candidate.level > strongest->level)) {
      strongest = &candidate;
    }
  }
  if (strongest == nullptr || PositionOf(*strongest) <= longestSpacing) return false;
  return std::all_of(positions.begin(), positions.end(), [&](int32_t position) {
    for (int32_t k = 1; k <= kMostMultiple; ++k) {
      const int32_t place = k * PositionOf(*strongest) & kWrap;
      if (std::abs(std::min(place, kSpectrumCells - place) - position) <=
          kTolerance + kTolerancePerMultiple * k)
        return true;
    }
    return false;
  });
}

// Whether a place is that of a tooth which the scan folded back, one of the first two beyond its resolution.
bool IsFoldedTooth(int32_t position, const MixedComb& comb) {
  const double unfolded = kSpectrumCells - position;
  return unfolded <= kSpectrumCentre + 2.0 * comb.spacing && IsNearMultiple(unfolded, comb.spacing, 3.0);
}

// Such a tooth is no stronger than the others.
bool HasStrongerTooth(const Candidate& candidate, const MixedComb& comb,
                      const std::vector<Candidate>& candidates) {
  return std::any_of(candidates.begin(), candidates.end(), [&](const Candidate& tooth) {
    return tooth.axis == candidate.axis && IsNearMultiple(PositionOf(tooth), comb.spacing, 3.0) &&
           tooth.level >= candidate.level;
  });
}

// Small text, whose lines repeat a little faster than what is protected: evenly spaced too, and its higher
// harmonics are as strong as the lower ones, for its letters are thinner than any line of a screen.
bool IsFineText(Axis axis, const std::vector<Candidate>& candidates, const std::vector<int32_t>& positions,
                double discRadius) {
  constexpr double kFinest = 1.6;    // of the disc's radius, its spacing
  constexpr int32_t kHigher = 4;     // harmonics from here on
  constexpr double kMostLoss = 1.0;  // natural log
  if (positions.empty() || positions.front() > kFinest * discRadius) return false;
  const MixedComb comb = GrowComb(positions, positions.front());
  if (comb.hits == 0 || !std::all_of(positions.begin(), positions.end(), [&](int32_t position) {
        return IsNearMultiple(position, comb.spacing, 3.0) || IsFoldedTooth(position, comb);
      })) {
    return false;
  }
  double strongest = 0.0, strongestHigher = 0.0;
  for (const Candidate& candidate : candidates) {
    if (candidate.axis != axis) continue;
    strongest = std::max(strongest, candidate.level);
    if (PositionOf(candidate) > (kHigher - 0.5) * comb.spacing) {
      strongestHigher = std::max(strongestHigher, candidate.level);
    }
  }
  return strongestHigher >= strongest - kMostLoss;
}

void LeaveOutTextLines(double discRadius, std::vector<Candidate>* candidates) {
  const double longestSpacing = 1.25 * discRadius;
  for (const Axis axis : {Axis::kVertical, Axis::kHorizontal}) {
    const std::vector<int32_t> positions = PositionsAlong(axis, *candidates);
    const bool isFine = IsFineText(axis, *candidates, positions, discRadius);
    if (!isFine && IsFoldedScreen(axis, *candidates, positions, longestSpacing)) continue;
    const bool isPure = isFine || IsPureComb(positions, longestSpacing);
    const MixedComb mixed = isPure ? MixedComb{} : FindMixedComb(positions, longestSpacing);
    for (Candidate& candidate : *candidates) {
      if (candidate.axis != axis) continue;
      const bool isTooth =
          mixed.hits > 0 &&
          (IsNearMultiple(PositionOf(candidate), mixed.spacing, 3.0) ||
           (IsFoldedTooth(PositionOf(candidate), mixed) && HasStrongerTooth(candidate, mixed, *candidates)));
      if (isPure || isTooth) LeaveOut(&candidate, PeakVerdict::kTextLines);
    }
  }
}

// Compression in blocks of 8 x 8 leaves its trace at the multiples of 512 / 8 cells on the axes.
void LeaveOutBlocks(const Limits& limits, std::vector<Candidate>* candidates) {
  constexpr int32_t kBlockFrequency = kSpectrumCells / 8;
  const auto isNearBlockFrequency = [](int32_t position) {
    const int32_t rest = std::abs(position) % kBlockFrequency;
    return rest <= 1 || rest >= kBlockFrequency - 1;
  };
  for (Candidate& candidate : *candidates) {
    const SpectrumPeak& peak = candidate.peak;
    const bool isOnBlock = (std::abs(peak.dx) <= 1 && isNearBlockFrequency(peak.dy)) ||
                           (std::abs(peak.dy) <= 1 && isNearBlockFrequency(peak.dx));
    if (isOnBlock && peak.height < limits.strong + 1) LeaveOut(&candidate, PeakVerdict::kBlocks);
  }
}

bool IsWithin(const SpectrumPeak& a, const SpectrumPeak& b, int32_t cells) {
  const int32_t x = a.dx - b.dx, y = a.dy - b.dy;
  return x * x + y * y <= cells * cells;
}

void LeaveOutSkirts(std::vector<Candidate>* candidates) {
  for (size_t i = 0; i < candidates->size(); ++i) {
    Candidate& candidate = (*candidates)[i];
    for (size_t higher = 0; higher < i && !candidate.isOut; ++higher) {
      const Candidate& other = (*candidates)[higher];
      if (!other.isOut && IsWithin(candidate.peak, other.peak, 10) &&
          candidate.peak.height < 0.4 * other.peak.height) {
        LeaveOut(&candidate, PeakVerdict::kSkirt);
      }
    }
  }
}

// Windows and tiles: both repeats that the peak would be the product of stand on the axes, as high as the
// peak.
bool IsGrid(const LogSpectrum& spectrum, const Candidate& candidate) {
  const SpectrumPeak& peak = candidate.peak;
  const double onRow = spectrum.HighestAround(peak.dx, 0);
  const double onColumn = spectrum.HighestAround(0, peak.dy);
  return onRow >= candidate.level && onColumn >= candidate.level &&
         onRow - spectrum.MedianAlong(peak.dx, 0, 1, 0) >= 0.3 * peak.height &&
         onColumn - spectrum.MedianAlong(0, peak.dy, 0, 1) >= 0.3 * peak.height;
}

bool GiveLicences(const LogSpectrum& spectrum, const Limits& limits,
                  const std::vector<SpectrumPeak>& licensedBefore, std::vector<Candidate>* candidates) {
  const auto farRing = MakeRing(8, 16);
  bool anyLicence = false;
  for (Candidate& candidate : *candidates) {
    if (candidate.isOut) continue;
    SpectrumPeak& peak = candidate.peak;
    const bool isOnAxis = candidate.axis != Axis::kNone;
    const bool isKept = std::any_of(licensedBefore.begin(), licensedBefore.end(),
                                    [&](const SpectrumPeak& before) { return IsSamePeak(peak, before); });
    const double share = isKept ? 0.5 : 1.0;
    const double strong = isOnAxis ? limits.strongOnAxis : limits.strong;
    const double need = limits.weak + share * (strong - limits.weak);
    const double isolation = share * limits.isolation;
    if (peak.height < need) continue;
    const bool isIsolated =
        peak.isolation >= isolation || (peak.height >= need + limits.smear &&
                                        spectrum.IsolationOver(peak.dx, peak.dy, farRing) >= isolation);
    if (!isIsolated) continue;
    peak.isGrid = !isOnAxis && IsGrid(spectrum, candidate);
    peak.isLicensed = !peak.isGrid;
    anyLicence |= peak.isLicensed;
  }
  return anyLicence;
}

// Whether a place is within 2.5 cells of a sum of so many licensed peaks or their partners, the same one as
// often as it likes.
bool IsSumOf(int32_t terms, int32_t dx, int32_t dy, const std::vector<Offset>& licensed) {
  if (terms == 0) {
    const int32_t x = ((dx + kSpectrumCentre) & kWrap) - kSpectrumCentre;
    const int32_t y = ((dy + kSpectrumCentre) & kWrap) - kSpectrumCentre;
    return 4 * (x * x + y * y) <= 5 * 5;
  }
  return std::any_of(licensed.begin(), licensed.end(), [&](const Offset& peak) {
    return IsSumOf(terms - 1, dx - peak.dx, dy - peak.dy, licensed) ||
           IsSumOf(terms - 1, dx + peak.dx, dy + peak.dy, licensed);
  });
}

// The weakest of four inks has its screen along the axes: a peak and one square to it, of the ruling that the
// other inks have.
bool IsInkOnAxis(const SpectrumPeak& peak, const std::vector<Candidate>& candidates) {
  constexpr int32_t kTolerance = 2;         // cells
  constexpr ptrdiff_t kFewestOfRuling = 3;  // one ink has two
  const auto isSquareTo = [&](const Candidate& other) {
    const bool isThere = !other.isOut || other.peak.verdict == PeakVerdict::kOffLattice ||
                         other.peak.verdict == PeakVerdict::kBlocks;
    SpectrumPeak turned = other.peak;
    turned.dx = other.peak.dy, turned.dy = -other.peak.dx;
    SpectrumPeak opposite = turned;
    opposite.dx = -turned.dx, opposite.dy = -turned.dy;
    return isThere && (IsWithin(peak, turned, kTolerance) || IsWithin(peak, opposite, kTolerance));
  };
  const auto distance = [](const SpectrumPeak& of) {
    return std::sqrt(double(of.dx * of.dx + of.dy * of.dy));
  };
  const auto isOfRuling = [&](const Candidate& other) {
    return other.peak.isLicensed && other.axis == Axis::kNone &&
           std::abs(distance(other.peak) - distance(peak)) <= kTolerance;
  };
  return std::any_of(candidates.begin(), candidates.end(), isSquareTo) &&
         std::count_if(candidates.begin(), candidates.end(), isOfRuling) >= kFewestOfRuling;
}

// A weak peak near an axis is as likely the trace of an upright line as of the screen: only where the
// screen's lattice has a place for it, or another ink, is it used.
void LeaveOutOffLattice(std::vector<Candidate>* candidates) {
  constexpr size_t kMostForSumsOfThree = 24;
  std::vector<Offset> licensed;
  for (const Candidate& candidate : *candidates) {
    if (candidate.peak.isLicensed) licensed.push_back({candidate.peak.dx, candidate.peak.dy});
  }
  const int32_t mostTerms = licensed.size() <= kMostForSumsOfThree ? 3 : 2;
  for (Candidate& candidate : *candidates) {
    const SpectrumPeak& peak = candidate.peak;
    if (candidate.isOut || peak.isLicensed || candidate.axis == Axis::kNone) continue;
    const auto isTriple = [&](const Offset& other) {
      return IsSumOf(0, peak.dx - 3 * other.dx, peak.dy - 3 * other.dy, licensed) ||
             IsSumOf(0, peak.dx + 3 * other.dx, peak.dy + 3 * other.dy, licensed);
    };
    const bool isExplained =
        IsSumOf(2, peak.dx, peak.dy, licensed) || std::any_of(licensed.begin(), licensed.end(), isTriple) ||
        (mostTerms == 3 && IsSumOf(3, peak.dx, peak.dy, licensed)) || IsInkOnAxis(peak, *candidates);
    if (!isExplained) LeaveOut(&candidate, PeakVerdict::kOffLattice);
  }
}

// A screen of eight pixels stands where blocks do.
void TakeInkForBlocksBack(std::vector<Candidate>* candidates) {
  for (Candidate& candidate : *candidates) {
    if (candidate.peak.verdict != PeakVerdict::kBlocks || !IsInkOnAxis(candidate.peak, *candidates)) continue;
    candidate.isOut = false;
    candidate.peak.verdict = PeakVerdict::kUsed;
  }
}

// Of the peaks that are left, those that a licensed picture's removal uses.
void ChooseUsed(bool anyLicence, std::vector<Candidate>* candidates) {
  for (Candidate& candidate : *candidates) {
    SpectrumPeak& peak = candidate.peak;
    if (candidate.isOut) continue;
    if (!anyLicence) {
      LeaveOut(&candidate, PeakVerdict::kNoLicence);
      continue;
    }
    const auto isNearLicensed = [&] {
      return std::abs(peak.dx) > 3 && std::abs(peak.dy) > 3 &&
             std::any_of(candidates->begin(), candidates->end(), [&](const Candidate& other) {
               return other.peak.isLicensed && IsWithin(peak, other.peak, 32);
             });
    };
    if (!peak.isLicensed && peak.isolation < 0.0 && !isNearLicensed())
      LeaveOut(&candidate, PeakVerdict::kNotIsolated);
  }
}

// A peak with its skirt: seeding the cells around widens the notch exactly where the peak is broad.
void SeedPeak(const LogSpectrum& spectrum, const Limits& limits, const SpectrumPeak& peak,
              const ImageView& seeds) {
  constexpr int32_t kReach = 10;
  const double least = std::max(limits.weak, 0.4 * peak.height);
  for (int32_t y = -kReach; y <= kReach; ++y) {
    for (int32_t x = -kReach; x <= kReach; ++x) {
      if (x * x + y * y > kReach * kReach) continue;
      const int32_t dx = peak.dx + x, dy = peak.dy + y;
      if (spectrum.IsInsideDisc(dx, dy) || spectrum.Log(dx, dy) - peak.background < least) continue;
      const int32_t column = (dx + kSpectrumCentre) & kWrap;
      const int32_t row = (dy + kSpectrumCentre) & kWrap;
      seeds.Row(row)[column] = 255;
      seeds.Row(-row & kWrap)[-column & kWrap] = 255;
    }
  }
}

void Detect(const ConstImageView& rawGray16, const ConstImageView& gray16, double logSpan,
            int32_t transformSize, double sensitivity, float protectionRadius, const ImageView& seeds,
            std::vector<SpectrumPeak>* peaks, const std::vector<SpectrumPeak>& licensedBefore,
            bool keepsToLattice) {
  const double discRadius = kSpectrumCentre / std::min(double{protectionRadius}, 127.9);
  const LogSpectrum spectrum(rawGray16, logSpan, discRadius);
  const Limits limits(sensitivity, std::max(transformSize / kSpectrumCells, 1));
  std::vector<Candidate> candidates = FindCandidates(spectrum, gray16, logSpan, limits);
  LeaveOutTextLines(discRadius, &candidates);
  LeaveOutBlocks(limits, &candidates);
  LeaveOutSkirts(&candidates);
  const bool anyLicence = GiveLicences(spectrum, limits, licensedBefore, &candidates);
  ChooseUsed(anyLicence, &candidates);
  if (keepsToLattice) {
    LeaveOutOffLattice(&candidates);
    TakeInkForBlocksBack(&candidates);
  }
  if (peaks != nullptr) {
    peaks->clear();
    for (const Candidate& candidate : candidates) peaks->push_back(candidate.peak);
  }
  ClearImage(seeds);
  for (const Candidate& candidate : candidates) {
    if (candidate.peak.verdict == PeakVerdict::kUsed) {
      SeedPeak(spectrum, limits, candidate.peak, seeds);
    }
  }
}

}  // namespace

const char* VerdictWords(const SpectrumPeak& peak) {
  constexpr const char* kWords[] = {"used",         "text lines", "blocks",    "skirt",
                                    "not isolated", "no licence", "too faint", "off the lattice"};
  if (peak.isGrid && peak.verdict != PeakVerdict::kUsed) return "windows";
  return kWords[static_cast<size_t>(peak.verdict)];
}

bool IsNearAxis(int32_t dx, int32_t dy) {
  return NearestAxis(dx, dy) != Axis::kNone;
}

bool IsSamePeak(const SpectrumPeak& a, const SpectrumPeak& b) {
  return IsWithin(a, b, 2);
}

int32_t DetectPeaksAutomatically(const ConstImageView& rawGray16, const ConstImageView& gray16,
                                 double logSpan, int32_t transformSize, double sensitivity,
                                 float protectionRadius, const ImageView& seeds,
                                 std::vector<SpectrumPeak>* peaks,
                                 const std::vector<SpectrumPeak>* licensedBefore, bool keepsToLattice) {
  if (!IsSpectrumGrid(rawGray16, kGray16) || !IsSpectrumGrid(gray16, kGray16) ||
      !IsSpectrumGrid(seeds, kGray8)) {
    return kUnequalSizes;
  }
  try {
    Detect(rawGray16, gray16, logSpan, transformSize, sensitivity, protectionRadius, seeds, peaks,
           licensedBefore != nullptr ? *licensedBefore : std::vector<SpectrumPeak>{}, keepsToLattice);
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
  return kSuccess;
}

}  // namespace tessaline
