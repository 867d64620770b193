#include <algorithm>
#include <cmath>
#include <iterator>
#include <new>
#include <vector>

#include "image/pixel_kind.h"
#include "removal/peak_detection.h"
#include "restoration/decision.h"
#include "restoration/local_spectrum.h"

namespace tessaline {

namespace {

// Of the first tiles half of what all of them must show is to be seen in some.
constexpr size_t kFirstTiles = 12, kFirstTilesOfParts = 48;
constexpr double kLeastShare = 0.6;  // of the tiles agree
// Of a page that has a screen in parts: of the tiles, of those that have one, and how many.
constexpr double kLeastShareOfParts = 0.1, kLeastAgreement = 0.75;
constexpr size_t kLeastTilesOfParts = 6;
constexpr double kCoarsestOfParts = 16.0;  // cells: eight pixels, for coarser ones are what fences are
constexpr double kSurePeak = 2.2;          // height, of a wave that is easy to see
constexpr double kSurePeakOnAxis = 3.5;
constexpr double kLeastAmplitude = 4.0 * kByteToHost;
constexpr double kSureFaintPeak = 2.8, kLeastFaintAmplitude = 2.0 * kByteToHost;
constexpr double kRulingsApart = 0.15;  // of two tiles that agree, as a share
constexpr size_t kMostInks = 4;
constexpr double kInksApart = 0.13;  // of the ruling, half of what inks 15 degrees apart are
constexpr double kMostSkew = 0.2;    // of a pair's distance from the zero frequency
constexpr size_t kTileStride = 547;  // a prime beyond the number of tiles: early ones lie everywhere

// The two directions of a screen in a tile.
struct LocalScreen {
  LocalPeak along{}, across{};
  double ruling = 0.0;  // cells of the tile's spectrum; 0: there is none
  double level = 0.0;
};

// On the axes only what is higher than lines of text are, and finer than what fences and tiles repeat by.
bool IsSure(const LocalPeak& peak) {
  if (peak.IsNearAxis()) {
    return peak.height >= kSurePeakOnAxis && peak.amplitude >= kLeastAmplitude &&
           peak.Ruling() >= kCoarsestOfParts;
  }
  return (peak.height >= kSurePeak && peak.amplitude >= kLeastAmplitude) ||
         (peak.height >= kSureFaintPeak && peak.amplitude >= kLeastFaintAmplitude);
}

// Windows and tiles: the repeats along the axes that the peak would be the product of are as strong.
bool IsProduct(const LocalSpectrum& spectrum, const LocalPeak& peak) {
  return spectrum.HighestAround(peak.dx, 0) >= peak.level && spectrum.HighestAround(0, peak.dy) >= peak.level;
}

bool AreSquare(const LocalPeak& a, const LocalPeak& b) {
  const double apart = std::min(std::hypot(b.dx + a.dy, b.dy - a.dx), std::hypot(b.dx - a.dy, b.dy + a.dx));
  return apart <= kMostSkew * a.Ruling();
}

// The pairs of sure peaks that have one ruling and are square to each other, the strongest first: one for
// every ink that the tile shows.
std::vector<LocalScreen> FindScreens(const LocalSpectrum& spectrum, const std::vector<LocalPeak>& peaks) {
  std::vector<LocalPeak> sure;
  for (const LocalPeak& peak : peaks) {
    if (IsSure(peak) && (peak.IsNearAxis() || !IsProduct(spectrum, peak))) sure.push_back(peak);
  }
  std::vector<LocalScreen> screens;
  for (;;) {
    LocalScreen screen;
    for (size_t i = 0; i < sure.size(); ++i) {
      for (size_t j = 0; j < i; ++j) {
        const double level = std::min(sure[i].level, sure[j].level);
        if (level <= screen.level || !AreSquare(sure[i], sure[j])) continue;
        screen = {sure[i], sure[j], std::sqrt(sure[i].Ruling() * sure[j].Ruling()), level};
      }
    }
    if (screen.ruling == 0.0) return screens;
    screens.push_back(screen);
    std::erase_if(sure, [&](const LocalPeak& peak) {
      return (peak.dx == screen.along.dx && peak.dy == screen.along.dy) ||
             (peak.dx == screen.across.dx && peak.dy == screen.across.dy);
    });
  }
}

using ScreensOfTile = std::vector<LocalScreen>;

// What the tiles that were looked at have.
struct ScreensOfTiles {
  size_t looked, found;
  std::vector<LocalScreen> agreeing;  // in ruling with the middle one
  double ruling = 0.0;                // of that

  explicit ScreensOfTiles(const std::vector<ScreensOfTile>& tiles) : looked(tiles.size()) {
    std::vector<LocalScreen> screens;  // the strongest of each
    for (const ScreensOfTile& ofTile : tiles) {
      if (!ofTile.empty()) screens.push_back(ofTile.front());
    }
    found = screens.size();
    if (screens.empty()) return;
    std::sort(screens.begin(), screens.end(),
              [](const LocalScreen& a, const LocalScreen& b) { return a.ruling < b.ruling; });
    ruling = screens[screens.size() / 2].ruling;
    std::erase_if(screens, [&](const LocalScreen& screen) { return !Agrees(screen); });
    agreeing = std::move(screens);
  }

  bool Agrees(const LocalScreen& screen) const {
    return std::abs(screen.ruling - ruling) <= kRulingsApart * ruling;
  }

  // By how much of what is asked for there must be.
  bool CoverAll(double share) const { return AreShare(share * kLeastShare, looked); }
  bool CoverParts(double share) const {
    return static_cast<double>(agreeing.size()) >= share * static_cast<double>(kLeastTilesOfParts) &&
           AreShare(share * kLeastShareOfParts, looked) && AreShare(kLeastAgreement, found) &&
           ruling >= kCoarsestOfParts;
  }

 private:
  bool AreShare(double share, size_t of) const {
    return static_cast<double>(agreeing.size()) >= share * static_cast<double>(of);
  }
};

// How far a screen's peaks lie from those of another, in cells; a quarter of a turn is none.
double ApartFrom(const LocalScreen& a, const LocalScreen& b) {
  const auto apart = [&](const LocalPeak& peak) {
    return std::min(std::hypot(a.along.dx - peak.dx, a.along.dy - peak.dy),
                    std::hypot(a.along.dx + peak.dx, a.along.dy + peak.dy));
  };
  return std::min(apart(b.along), apart(b.across));
}

// The one in the midst of them.
const LocalScreen& MiddleOf(const std::vector<LocalScreen>& screens) {
  const auto apartFromAll = [&](const LocalScreen& screen) {
    double sum = 0.0;
    for (const LocalScreen& other : screens) sum += ApartFrom(screen, other);
    return sum;
  };
  std::vector<double> sums(screens.size());
  std::transform(screens.begin(), screens.end(), sums.begin(), apartFromAll);
  return screens[static_cast<size_t>(std::min_element(sums.begin(), sums.end()) - sums.begin())];
}

// One for every ink that some tiles have, that of most of them first: where one ink is missing another tells
// that the page is printed.
std::vector<LocalScreen> InksOf(const std::vector<ScreensOfTile>& tiles, const ScreensOfTiles& all) {
  std::vector<LocalScreen> inks{MiddleOf(all.agreeing)}, left;
  for (const ScreensOfTile& ofTile : tiles) {
    std::copy_if(ofTile.begin(), ofTile.end(), std::back_inserter(left),
                 [&](const LocalScreen& screen) { return all.Agrees(screen); });
  }
  while (inks.size() < kMostInks) {
    std::erase_if(left, [&](const LocalScreen& screen) {
      return ApartFrom(screen, inks.back()) <= kInksApart * all.ruling;
    });
    if (left.size() < kLeastTilesOfParts) break;
    inks.push_back(MiddleOf(left));
  }
  return inks;
}

SpectrumPeak AsPeak(const LocalPeak& local, PeakScale scale) {
  constexpr double kDegrees = 57.29577951308232;
  SpectrumPeak peak = {};
  peak.dx = local.dx * LocalSpectrum::kCells;
  peak.dy = local.dy * LocalSpectrum::kCells;
  peak.period = LocalSpectrum::kSide / local.Ruling();
  peak.angle = std::fmod(std::atan2(-local.dy, local.dx) * kDegrees + 180.0, 180.0);
  peak.height = peak.isolation = local.height;
  peak.background = local.background;
  peak.isLicensed = true;
  peak.verdict = PeakVerdict::kUsed;
  peak.scale = scale;
  return peak;
}

// All cells of the picture's grid that a cell of a tile's stands for.
void Seed(int32_t dx, int32_t dy, float discRadius, const ImageView& seeds) {
  constexpr int32_t kHalf = LocalSpectrum::kCells / 2, kWrap = kSpectrumCells - 1;
  for (int32_t v = -kHalf; v <= kHalf; ++v) {
    for (int32_t u = -kHalf; u <= kHalf; ++u) {
      const int32_t column = (kSpectrumCentre + dx * LocalSpectrum::kCells + u) & kWrap,
                    row = (kSpectrumCentre + dy * LocalSpectrum::kCells + v) & kWrap;
      const int32_t x = column - kSpectrumCentre, y = row - kSpectrumCentre;
      if (static_cast<float>(x * x + y * y) >= discRadius * discRadius) {
        seeds.Row(row)[column] = seeds.Row(-row & kWrap)[-column & kWrap] = 255;
      }
    }
  }
}

// Tiles looked at in the order of their spread.
class LookedTiles {
 public:
  explicit LookedTiles(const TiledPicture& tiled) : tiled_(tiled) {}

  bool Prepare(int32_t threads) {
    spectra_.resize(static_cast<size_t>(threads));
    return std::all_of(spectra_.begin(), spectra_.end(),
                       [](LocalSpectrum& spectrum) { return spectrum.Prepare(); });
  }

  template <typename Look>
  void ForEach(size_t first, size_t end, Parallel& parallel, const Look& look) {
    const auto task = [&](int32_t place, int32_t worker) {
      const size_t index = first + static_cast<size_t>(place);
      LocalSpectrum& spectrum = spectra_[static_cast<size_t>(worker)];
      const size_t tile = index * kTileStride % tiled_.tiles.size();
      spectrum.Load(TileOf(tiled_, tile), 0, 0);
      look(index, spectrum, spectrum.FindPeaks());
    };
    ForEachTask(parallel, static_cast<int32_t>(end - first), task, [](int32_t) { return false; });
  }

 private:
  const TiledPicture& tiled_;
  std::vector<LocalSpectrum> spectra_;
};

int32_t AddPeaks(const TiledPicture& tiled, const Settings& settings, Parallel& parallel, Findings* findings,
                 LocalWish wish) {
  const size_t count = tiled.tiles.size();
  if (count == 0 || tiled.tileWidth != LocalSpectrum::kSide || tiled.tileHeight != LocalSpectrum::kSide) {
    return kSuccess;
  }
  LookedTiles tiles(tiled);
  if (!tiles.Prepare(parallel.threads())) return kOutOfMemory;
  std::vector<ScreensOfTile> found;
  const auto lookAtFirst = [&](size_t looked) {
    const size_t before = found.size();
    found.resize(std::max(before, std::min(looked, count)));
    tiles.ForEach(before, found.size(), parallel,
                  [&](size_t i, const LocalSpectrum& spectrum, const std::vector<LocalPeak>& peaks) {
                    found[i] = FindScreens(spectrum, peaks);
                  });
    return ScreensOfTiles(found);
  };
  if (wish == LocalWish::kParts && lookAtFirst(kFirstTilesOfParts).CoverAll(1.0)) return kSuccess;
  if (!lookAtFirst(kFirstTiles).CoverAll(0.5) && !lookAtFirst(kFirstTilesOfParts).CoverParts(0.5)) {
    return kSuccess;
  }
  const ScreensOfTiles all = lookAtFirst(count);
  if (all.CoverAll(1.0) ? wish == LocalWish::kParts : !all.CoverParts(1.0)) return kSuccess;
  const PeakScale scale = all.CoverAll(1.0) ? PeakScale::kLocal : PeakScale::kParts;
  const float discRadius = ProtectedDiscRadius(UsableSettings(settings).protectionRadius);
  std::vector<std::vector<LocalPeak>> taken(count);
  std::vector<std::vector<std::pair<int32_t, int32_t>>> cells(count);
  tiles.ForEach(0, count, parallel,
                [&](size_t i, LocalSpectrum& spectrum, const std::vector<LocalPeak>& peaks) {
                  for (const LocalPeak& peak : peaks) spectrum.Take(peak);
                  constexpr int32_t kHalf = LocalSpectrum::kSide / 2;
                  for (int32_t dx = -kHalf; dx < kHalf; ++dx) {
                    for (int32_t dy = -kHalf; dy <= 0; ++dy) {
                      if (spectrum.IsTaken(dx, dy)) cells[i].emplace_back(dx, dy);
                    }
                  }
                  constexpr int32_t kReach = LocalSpectrum::kBeatReach;
                  for (const LocalPeak& beat : spectrum.beats()) {
                    for (int32_t v = -kReach; v <= kReach; ++v) {
                      for (int32_t u = -kReach; u <= kReach; ++u)
                        cells[i].emplace_back(beat.dx + u, beat.dy + v);
                    }
                  }
                });
  for (const auto& ofTile : cells) {
    for (const auto& [dx, dy] : ofTile) Seed(dx, dy, discRadius, findings->seeds.view());
  }
  findings->seedCells = CountSeeds(findings->seeds.view());
  std::vector<LocalScreen> inks = InksOf(found, all);
  if (scale == PeakScale::kLocal) inks.resize(1);  // every tile tells by its own peaks
  for (const LocalScreen& ink : inks) {
    for (const LocalPeak& peak : {ink.along, ink.across}) findings->peaks.push_back(AsPeak(peak, scale));
  }
  return kSuccess;
}

}  // namespace

int32_t AddLocalPeaks(const TiledPicture& tiled, const Settings& settings, Parallel& parallel,
                      Findings* findings, LocalWish wish) {
  try {
    return AddPeaks(tiled, settings, parallel, findings, wish);
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
}

}  // namespace tessaline
