#include <algorithm>
#include <cfloat>
#include <cmath>
#include <new>
#include <utility>
#include <vector>

#include "removal/peak_detection.h"
#include "removal/portable_math.h"
#include "restoration/decision.h"

namespace tessaline {

namespace {

constexpr int32_t kWrap = kSpectrumCells - 1;
constexpr double kPeriodAngle = 57.29577951308232;  // degrees of a radian

// How a spectrum is searched for peaks of one smear. Lengths are in multiples of the sigma where not in
// cells.
struct SmearRule {
  PeakScale scale;
  int32_t sigma;   // cells
  double licence;  // height, natural log
  double weak;
  int32_t reach;
  bool avoidsBlocks;  // not where compression in blocks of 8 x 8 leaves its trace
};
constexpr SmearRule kNear = {PeakScale::kNear, 4, 2.2, 1.0, 5, true};
constexpr SmearRule kFar = {PeakScale::kFar, 8, 1.8, 0.7, 4, false};

constexpr int32_t kNearestToCentre = 40;  // cells
constexpr double kLeastIsolation = 0.8;
constexpr double kLeastUsed = 1.0, kLeastUsedOnAxis = 1.5;  // height
constexpr double kLeastUsedOffLattice = 2.2;                // right on an axis, where text has its lines

bool IsOnAxis(int32_t dx, int32_t dy) {
  return std::abs(dx) <= 8 + 0.06 * std::abs(dy) || std::abs(dy) <= 8 + 0.06 * std::abs(dx);
}

bool IsOnBlocks(int32_t dx, int32_t dy) {
  constexpr int32_t kBlockFrequency = kSpectrumCells / 8;
  const auto isNear = [](int32_t cells) {
    const int32_t rest = std::abs(cells) % kBlockFrequency;
    return std::min(rest, kBlockFrequency - rest) <= 2;
  };
  return isNear(dx) && isNear(dy);
}

// Adds `count` rows with weights, in their order. Four at once spare the sums most of their way to memory.
void AddWeighted(int32_t count, const double* const* rows, const double* weights, double* __restrict sums) {
  int32_t i = 0;
  for (; i + 4 <= count; i += 4) {
    const double *const a = rows[i], *const b = rows[i + 1], *const c = rows[i + 2], *const d = rows[i + 3];
    const double ofA = weights[i], ofB = weights[i + 1], ofC = weights[i + 2], ofD = weights[i + 3];
    for (int32_t x = 0; x < kSpectrumCells; ++x) {
      sums[x] = sums[x] + ofA * a[x] + ofB * b[x] + ofC * c[x] + ofD * d[x];
    }
  }
  for (; i < count; ++i) {
    for (int32_t x = 0; x < kSpectrumCells; ++x) sums[x] += weights[i] * rows[i][x];
  }
}

// Half the natural log of the powers under a Gaussian, the spectrum being periodic.
class SmoothedSpectrum {
 public:
  explicit SmoothedSpectrum(std::vector<double> cells) : cells_(std::move(cells)) {}
  SmoothedSpectrum(const ConstImageView& powers, int32_t sigma)
      : cells_(size_t{kSpectrumCells} * kSpectrumCells) {
    const int32_t reach = 4 * sigma;
    std::vector<double> weights;
    double total = 0.0;
    for (int32_t i = -reach; i <= reach; ++i) {
      weights.push_back(PortableExp(-0.5 * i * i / (sigma * sigma)));
      total += weights.back();
    }
    for (double& weight : weights) weight /= total;
    const auto terms = static_cast<int32_t>(weights.size());
    std::vector<const double*> rows(weights.size());
    std::vector<double> wrapped(static_cast<size_t>(kSpectrumCells + 2 * reach));
    std::vector<double> across(cells_.size());
    for (int32_t y = 0; y < kSpectrumCells; ++y) {
      const double* const row = powers.Row<double>(y);
      for (int32_t x = -reach; x < kSpectrumCells + reach; ++x) wrapped[x + reach] = row[x & kWrap];
      for (int32_t i = 0; i < terms; ++i) rows[i] = &wrapped[i];
      AddWeighted(terms, rows.data(), weights.data(),
                  &across[size_t{kSpectrumCells} * static_cast<size_t>(y)]);
    }
    for (int32_t y = 0; y < kSpectrumCells; ++y) {
      double* const row = &cells_[size_t{kSpectrumCells} * static_cast<size_t>(y)];
      for (int32_t i = 0; i < terms; ++i) {
        rows[i] = &across[size_t{kSpectrumCells} * static_cast<size_t>((y + i - reach) & kWrap)];
      }
      AddWeighted(terms, rows.data(), weights.data(), row);
      for (int32_t x = 0; x < kSpectrumCells; ++x) row[x] = 0.5 * PortableLog(std::max(row[x], DBL_MIN));
    }
  }

  // From the zero frequency.
  double At(int32_t dx, int32_t dy) const {
    const auto row = static_cast<size_t>((dy + kSpectrumCentre) & kWrap);
    return cells_[row * kSpectrumCells + static_cast<size_t>((dx + kSpectrumCentre) & kWrap)];
  }

  const std::vector<double>& cells() const { return cells_; }

  bool IsHighestWithin(int32_t dx, int32_t dy, int32_t reach) const {
    const double level = At(dx, dy);
    // Of nearly every cell one of these tells.
    if (At(dx - 1, dy) > level || At(dx + 1, dy) > level || At(dx, dy - 1) > level ||
        At(dx, dy + 1) > level) {
      return false;
    }
    for (int32_t v = -reach; v <= reach; ++v) {
      for (int32_t u = -reach; u <= reach; ++u) {
        if (At(dx + u, dy + v) > level) return false;
      }
    }
    return true;
  }

  // The cells of a ring, inner and outer radius included.
  std::vector<double> Ring(int32_t dx, int32_t dy, double inner, double outer) const {
    std::vector<double> ring;
    const auto reach = static_cast<int32_t>(outer);
    for (int32_t v = -reach; v <= reach; ++v) {
      for (int32_t u = -reach; u <= reach; ++u) {
        const int32_t square = u * u + v * v;
        if (square >= inner * inner && square <= outer * outer) ring.push_back(At(dx + u, dy + v));
      }
    }
    return ring;
  }

 private:
  std::vector<double> cells_;
};

SpectrumPeak Weigh(const SmoothedSpectrum& spectrum, const SmearRule& rule, int32_t dx, int32_t dy) {
  std::vector<double> around = spectrum.Ring(dx, dy, 3 * rule.sigma + 2, 7 * rule.sigma + 2);
  const auto middle = around.begin() + static_cast<ptrdiff_t>((around.size() - 1) / 2);
  std::nth_element(around.begin(), middle, around.end());
  const std::vector<double> beside = spectrum.Ring(dx, dy, 3.5 * rule.sigma, 8.0 * rule.sigma);
  SpectrumPeak peak = {};
  peak.dx = dx;
  peak.dy = dy;
  peak.period = kSpectrumCells / std::hypot(dx, dy);
  peak.angle = std::fmod(std::atan2(-dy, dx) * kPeriodAngle + 180.0, 180.0);
  peak.background = *middle;
  peak.height = spectrum.At(dx, dy) - peak.background;
  peak.isolation = spectrum.At(dx, dy) - *std::max_element(beside.begin(), beside.end());
  peak.scale = rule.scale;
  peak.verdict = PeakVerdict::kUsed;
  return peak;
}

bool HasLicence(const SpectrumPeak& peak, const SmearRule& rule, double sensitivity) {
  return peak.height >= rule.licence / sensitivity && peak.isolation >= kLeastIsolation / sensitivity &&
         !IsOnAxis(peak.dx, peak.dy) && !(rule.avoidsBlocks && IsOnBlocks(peak.dx, peak.dy));
}

// Those that are used where one of them has a licence, highest first; who has one is not looked at yet.
std::vector<SpectrumPeak> FindPeaks(const SmoothedSpectrum& spectrum, const SmearRule& rule) {
  std::vector<SpectrumPeak> peaks;
  for (int32_t dy = -kSpectrumCentre; dy <= 0; ++dy) {
    for (int32_t dx = -kSpectrumCentre; dx < (dy == 0 ? 0 : kSpectrumCentre); ++dx) {
      if (dx * dx + dy * dy < kNearestToCentre * kNearestToCentre) continue;
      if (!spectrum.IsHighestWithin(dx, dy, rule.sigma)) continue;
      const SpectrumPeak peak = Weigh(spectrum, rule, dx, dy);
      if (peak.height >= (IsOnAxis(dx, dy) ? kLeastUsedOnAxis : kLeastUsed)) peaks.push_back(peak);
    }
  }
  std::stable_sort(peaks.begin(), peaks.end(),
                   [](const SpectrumPeak& a, const SpectrumPeak& b) { return a.height > b.height; });
  return peaks;
}

bool HasLicence(const std::vector<SpectrumPeak>& peaks) {
  return std::any_of(peaks.begin(), peaks.end(), [](const SpectrumPeak& peak) { return peak.isLicensed; });
}

// Whether a place is a sum of up to `terms` licensed peaks, signs free, the spectrum being periodic.
bool IsSumOf(int32_t terms, int32_t dx, int32_t dy, double tolerance,
             const std::vector<SpectrumPeak>& peaks) {
  const int32_t x = ((dx + kSpectrumCentre) & kWrap) - kSpectrumCentre;
  const int32_t y = ((dy + kSpectrumCentre) & kWrap) - kSpectrumCentre;
  if (x * x + y * y <= tolerance * tolerance) return true;
  return terms > 0 && std::any_of(peaks.begin(), peaks.end(), [&](const SpectrumPeak& peak) {
           return peak.isLicensed && (IsSumOf(terms - 1, dx - peak.dx, dy - peak.dy, tolerance, peaks) ||
                                      IsSumOf(terms - 1, dx + peak.dx, dy + peak.dy, tolerance, peaks));
         });
}

// Lines of text and upright edges smear into low peaks right on the axes: one is used there only where it is
// high, as an ink at 0 degrees is, or the others' lattice has a place for it. (A page that is warped all over
// has smears only, which are too wide for that question.)
void LeaveOutOffLattice(const SmearRule& rule, std::vector<SpectrumPeak>* peaks) {
  constexpr int32_t kOnAxis = 4;  // cells
  constexpr int32_t kMostTerms = 3;
  const std::vector<SpectrumPeak> all = *peaks;
  std::erase_if(*peaks, [&](const SpectrumPeak& peak) {
    return std::min(std::abs(peak.dx), std::abs(peak.dy)) <= kOnAxis && peak.height < kLeastUsedOffLattice &&
           !IsSumOf(kMostTerms, peak.dx, peak.dy, 1.5 * rule.sigma, all);
  });
}

// Much coarser than the highest of the fine licences is a rosette of several inks or a wave's own first
// harmonic, which lies where the picture itself is strong: a narrow peak there would only smear into it.
void LeaveOutCoarse(const std::vector<SpectrumPeak>& fine, std::vector<SpectrumPeak>* peaks) {
  constexpr double kCoarsest = 0.6;  // of the highest one's distance from the zero frequency
  const auto distance = [](const SpectrumPeak& peak) {
    return std::sqrt(double(peak.dx * peak.dx + peak.dy * peak.dy));
  };
  const auto highest =
      std::find_if(fine.begin(), fine.end(), [](const auto& peak) { return peak.isLicensed; });
  std::erase_if(*peaks,
                [&](const SpectrumPeak& peak) { return distance(peak) < kCoarsest * distance(*highest); });
}

// A peak's cells, finer than it was found by, and their mirror images.
void SeedPeak(const SmoothedSpectrum& fine, const SmearRule& rule, const SpectrumPeak& peak, float discRadius,
              const ImageView& seeds) {
  // Low ones near an axis lie beside the cross that the edges of every picture have there.
  constexpr int32_t kReachNearCross = 3;
  constexpr double kCrossRadius = 80.0;  // cells
  const bool isNearCross = IsOnAxis(peak.dx, peak.dy) && std::hypot(peak.dx, peak.dy) < kCrossRadius;
  // That cross may run through the surroundings of a peak that has nothing to do with it.
  constexpr int32_t kCrossWidth = 4;  // cells to both sides
  const bool isOffCross = std::min(std::abs(peak.dx), std::abs(peak.dy)) > 2 * kCrossWidth;
  const int32_t reach = (isNearCross ? kReachNearCross : rule.reach) * rule.sigma;
  const double least = std::max(rule.weak, 0.4 * peak.height);
  for (int32_t v = -reach; v <= reach; ++v) {
    for (int32_t u = -reach; u <= reach; ++u) {
      if (u * u + v * v > reach * reach || fine.At(peak.dx + u, peak.dy + v) - peak.background < least)
        continue;
      const int32_t column = (peak.dx + u + kSpectrumCentre) & kWrap,
                    row = (peak.dy + v + kSpectrumCentre) & kWrap;
      const int32_t dx = column - kSpectrumCentre, dy = row - kSpectrumCentre;
      if (static_cast<float>(dx * dx + dy * dy) < discRadius * discRadius) continue;
      if (isOffCross && std::min(std::abs(dx), std::abs(dy)) <= kCrossWidth) continue;
      seeds.Row(row)[column] = 255;
      seeds.Row(-row & kWrap)[-column & kWrap] = 255;
    }
  }
}

void AddPeaks(const ConstImageView& powers, const Settings& settings, Findings* findings,
              KeptMeasures* kept) {
  const bool isFound = HasLicence(findings->peaks);
  for (const SmearRule& rule : {kNear, kFar}) {
    const auto which = static_cast<size_t>(rule.scale == kFar.scale);
    if (!kept->isSmeared[which]) {
      kept->smeared[which] = FindPeaks(SmoothedSpectrum(powers, rule.sigma), rule);
      kept->isSmeared[which] = true;
    }
    std::vector<SpectrumPeak> peaks = kept->smeared[which];
    for (SpectrumPeak& peak : peaks) peak.isLicensed = HasLicence(peak, rule, settings.sensitivity);
    if (HasLicence(peaks)) {
      if (isFound) {
        LeaveOutOffLattice(rule, &peaks);
        LeaveOutCoarse(findings->peaks, &peaks);
      }
      if (kept->narrow.empty()) kept->narrow = SmoothedSpectrum(powers, 1).cells();
      const SmoothedSpectrum fine(kept->narrow);
      const float discRadius = ProtectedDiscRadius(settings.protectionRadius);
      for (const SpectrumPeak& peak : peaks) {
        SeedPeak(fine, rule, peak, discRadius, findings->seeds.view());
        findings->peaks.push_back(peak);
      }
      return;
    }
    if (isFound) return;  // the farther ones count alone
  }
}

}  // namespace

int32_t AddSmearedPeaks(const Analysis& analysis, const Settings& settings, Findings* findings,
                        KeptMeasures* kept) {
  if (analysis.powers.IsEmpty() || analysis.logSpan <= 0.0) return kSuccess;
  try {
    KeptMeasures own;
    AddPeaks(analysis.powers.view(), UsableSettings(settings), findings, kept != nullptr ? kept : &own);
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
  findings->seedCells = CountSeeds(findings->seeds.view());
  return kSuccess;
}

}  // namespace tessaline
