#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <new>
#include <numbers>
#include <numeric>
#include <vector>

#include "image/pixel_kind.h"
#include "restoration/decision.h"
#include "restoration/licensed_peaks.h"
#include "restoration/local_spectrum.h"
#include "restoration/plane.h"
#include "restoration/row_kernels.h"

namespace tessaline {

namespace {

constexpr int32_t kLongestTile = 128;
constexpr int32_t kBinsAround = 3;  // of the tile padded to twice its side
constexpr int32_t kBins = 2 * kBinsAround + 1;
constexpr int32_t kPeaksChecked = 3;
constexpr double kLeastAmplitude = 2.0 * kByteToHost;
constexpr double kStrokes = 8.0 * kByteToHost;  // of writing have it, and more
constexpr double kStrongShare = 0.98;
// Neighbours are not measured one after the other, so that strong places are met early wherever they lie: a
// prime beyond the number of tiles.
constexpr size_t kTileStride = 547;

// One axis of a tile: the window times the waves of the bins round a peak's place.
struct TileAxis {
  int32_t side;
  double windowSum = 0.0;
  std::vector<float> window;
  // By place, a lane a bin and one of zeros.
  static_assert(kBins < kWaves);
  float cosine[kLongestTile][kWaves] = {}, sine[kLongestTile][kWaves] = {};

  TileAxis(int32_t tileSide, int32_t cells) : side(tileSide) {
    const double circle = 2.0 * std::numbers::pi;
    const int32_t padded = 2 * side;
    const auto middle = static_cast<int32_t>(std::lround(cells * double(padded) / kSpectrumCells));
    for (int32_t i = 0; i < side; ++i) {
      const double hann = side > 1 ? 0.5 - 0.5 * std::cos(circle * i / (side - 1)) : 1.0;
      windowSum += hann;
      window.push_back(static_cast<float>(hann));
      for (int32_t bin = 0; bin < kBins; ++bin) {
        const double phase = circle * (middle + bin - kBinsAround) * i / padded;
        cosine[i][bin] = static_cast<float>(std::cos(phase));
        sine[i][bin] = static_cast<float>(std::sin(phase));
      }
    }
  }
};

// A tile's samples, less their mean, under the window.
void LoadTile(const PictureView& picture, int32_t channel, const Tile& tile, const TileAxis& axisX,
              const TileAxis& axisY, float* samples) {
  const int32_t width = axisX.side;
  double sums[8] = {};
  for (int32_t y = 0; y < axisY.side; ++y) {
    float* const row = samples + y * width;
    LoadPart(picture, {channel, tile.y + y, tile.x, width}, row);
    int32_t x = 0;
    for (; x + 8 <= width; x += 8) {
      for (int32_t i = 0; i < 8; ++i) sums[i] += double{row[x + i]};
    }
    for (; x < width; ++x) sums[0] += double{row[x]};
  }
  double sum = 0.0;
  for (const double part : sums) sum += part;
  const auto mean = static_cast<float>(sum / (width * axisY.side));
  for (int32_t y = 0; y < axisY.side; ++y) {
    float* const row = samples + y * width;
    for (int32_t x = 0; x < width; ++x) row[x] = (row[x] - mean) * axisX.window[x] * axisY.window[y];
  }
}

// The greatest magnitude of the bins round the peak.
double GreatestMagnitude(const float* samples, const TileAxis& axisX, const TileAxis& axisY) {
  double real[kBins][kBins] = {}, imaginary[kBins][kBins] = {};
  for (int32_t first = 0; first < axisY.side; first += 2) {
    const int32_t count = std::min(2, axisY.side - first);
    const float* const rows[] = {samples + first * axisX.side, samples + (first + count - 1) * axisX.side};
    float cosines[2][kWaves], sines[2][kWaves];
    ActiveRowKernels().sumWaves(axisX.side, rows, axisX.cosine, axisX.sine, cosines, sines);
    for (int32_t row = 0; row < count; ++row) {
      for (int32_t j = 0; j < kBins; ++j) {  // exp(-i (phase x + phase y))
        const double cosine = axisY.cosine[first + row][j], sine = axisY.sine[first + row][j];
        for (int32_t i = 0; i < kBins; ++i) {
          real[j][i] += cosines[row][i] * cosine - sines[row][i] * sine;
          imaginary[j][i] -= sines[row][i] * cosine + cosines[row][i] * sine;
        }
      }
    }
  }
  double greatest = 0.0;
  for (int32_t j = 0; j < kBins; ++j) {
    for (int32_t i = 0; i < kBins; ++i)
      greatest = std::max(greatest, std::hypot(real[j][i], imaginary[j][i]));
  }
  return greatest;
}

// The amplitude of a peak in the picture's strong places, 0 .. kMostAmplitude. Where so many tiles reach that
// one that the others cannot change it, these are not measured.
double StrongAmplitude(const TiledPicture& tiled, const SpectrumPeak& peak, Parallel& parallel) {
  const size_t count = tiled.tiles.size();
  if (count == 0) return 0.0;
  const TileAxis axisX(tiled.tileWidth, peak.dx), axisY(tiled.tileHeight, peak.dy);
  const PictureView& picture = tiled.picture;
  std::vector<double> amplitudes(count);
  std::atomic<size_t> strong{0};
  const double unit = 2.0 / std::max(axisX.windowSum * axisY.windowSum, 1e-9);
  const auto measure = [&](int32_t index, int32_t) {
    float samples[kLongestTile * kLongestTile];
    double& amplitude = amplitudes[static_cast<size_t>(index)];
    const Tile& tile = tiled.tiles[static_cast<size_t>(index) * kTileStride % count];
    for (int32_t c = 0; c < picture.channels && amplitude < kMostAmplitude; ++c) {
      LoadTile(picture, c, tile, axisX, axisY, samples);
      amplitude = std::max(amplitude, unit * GreatestMagnitude(samples, axisX, axisY));
    }
    if (amplitude >= kMostAmplitude) ++strong;
  };
  const size_t enough = count - static_cast<size_t>(kStrongShare * static_cast<double>(count - 1));
  ForEachTask(parallel, static_cast<int32_t>(count), measure, [&](int32_t) { return strong >= enough; });
  return strong >= enough ? kMostAmplitude : std::min(Percentile(kStrongShare, amplitudes), kMostAmplitude);
}

// The same, looked up where it was measured before.
double StrongAmplitude(const TiledPicture& tiled, const SpectrumPeak& peak, Parallel& parallel,
                       KeptMeasures* kept) {
  if (kept == nullptr) return StrongAmplitude(tiled, peak, parallel);
  for (const KeptMeasures::Strength& known : kept->strengths) {
    if (known.dx == peak.dx && known.dy == peak.dy) return known.amplitude;
  }
  const double amplitude = StrongAmplitude(tiled, peak, parallel);
  kept->strengths.push_back({peak.dx, peak.dy, amplitude});
  return amplitude;
}

std::vector<SpectrumPeak> StrongestLicensed(const Findings& findings) {
  std::vector<SpectrumPeak> licensed = LicensedByMagnitude(findings);
  if (licensed.size() > kPeaksChecked) licensed.resize(kPeaksChecked);
  return licensed;
}

// Digits in rows and columns repeat both ways, in hundreds of peaks too close together for a licence, of
// which a few weak ones stand apart by chance. A screen's own lines are its strongest; only the fundamentals
// of four inks may be too close together, at most 8 of them.
bool IsSheet(const Findings& findings, const SpectrumPeak& strongest) {
  constexpr ptrdiff_t kMostFundamentals = 12;
  return std::count_if(findings.peaks.begin(), findings.peaks.end(), [&](const SpectrumPeak& peak) {
           return !IsNearAxis(peak.dx, peak.dy) && MagnitudeOf(peak) > MagnitudeOf(strongest);
         }) > kMostFundamentals;
}

// A sheet laid crooked and a wall of bricks repeat along both axes, longer than what is protected, and more
// strongly than anything off them: that is a sum of the two, or half of one where every other row is shifted.
bool IsOfRowsAndColumns(const Findings& findings, const SpectrumPeak& strongest) {
  constexpr int32_t kTolerance = 3;  // cells
  std::vector<const SpectrumPeak*> rows, columns;
  bool hasStrongRow = false, hasStrongColumn = false;
  for (const SpectrumPeak& peak : findings.peaks) {
    if (peak.verdict != PeakVerdict::kTextLines) continue;
    const bool isRow = std::abs(peak.dx) < std::abs(peak.dy);
    (isRow ? rows : columns).push_back(&peak);
    (isRow ? hasStrongRow : hasStrongColumn) |= MagnitudeOf(peak) > MagnitudeOf(strongest);
  }
  if (!hasStrongRow || !hasStrongColumn) return false;
  const auto isSum = [&](int32_t times, int32_t side) {
    return std::any_of(rows.begin(), rows.end(), [&](const SpectrumPeak* row) {
      return std::any_of(columns.begin(), columns.end(), [&](const SpectrumPeak* column) {
        const int32_t dx = row->dx + side * column->dx, dy = row->dy + side * column->dy;
        return std::abs(times * strongest.dx - dx) <= kTolerance &&
               std::abs(times * strongest.dy - dy) <= kTolerance;
      });
    });
  };
  return !IsNearAxis(strongest.dx, strongest.dy) &&
         (isSum(1, 1) || isSum(1, -1) || isSum(2, 1) || isSum(2, -1));
}

// The greatest common divisor of all, 0 where all are.
int32_t CommonDivisor(const std::vector<int32_t>& numbers) {
  int32_t common = 0;
  for (const int32_t number : numbers) common = std::gcd(common, number);
  return common;
}

// Not one of them most of the time, as in the ridge that a narrow strip draws out of every peak.
bool AreSpread(const std::vector<int32_t>& numbers) {
  constexpr ptrdiff_t kMostOfOne = 3;  // of all, one of so many
  return std::all_of(numbers.begin(), numbers.end(), [&](int32_t number) {
    return kMostOfOne * std::count(numbers.begin(), numbers.end(), number) <= std::ssize(numbers);
  });
}

// Whether at least `fewest` of the numbers are multiples of one that lies within `least` and `most`, and not
// all of those of a multiple of it: then it would be that one.
bool AreMultiples(const std::vector<double>& numbers, double least, double most, size_t fewest) {
  constexpr double kTolerance = 1.0, kStep = 0.01;  // cells; what the farthest tooth of a comb is missed by
  if (numbers.size() < fewest) return false;
  std::vector<int32_t> multiples;
  double next = least;
  while (next <= most) {
    // The guess grows from the nearer teeth to the farther ones.
    double fitted = next;
    next += kStep * next;
    for (int32_t round = 0; round < 3; ++round) {
      double weighted = 0.0, squares = 0.0;
      for (const double number : numbers) {
        const double multiple = std::round(number / fitted);
        if (std::abs(number - multiple * fitted) > 2.0 * kTolerance) continue;
        weighted += multiple * number, squares += multiple * multiple;
      }
      if (squares > 0.0) fitted = weighted / squares;
    }
    if (fitted < least || fitted > most) continue;
    multiples.clear();
    for (const double number : numbers) {
      const double multiple = std::round(number / fitted);
      if (std::abs(number - multiple * fitted) <= kTolerance)
        multiples.push_back(static_cast<int32_t>(multiple));
    }
    if (multiples.size() >= fewest && CommonDivisor(multiples) == 1 && AreSpread(multiples)) return true;
  }
  return false;
}

// Writing stands in rows, and sheets of it in columns too, farther apart than what a screen repeats in. All
// of its peaks, of which more are strong than of any screen, lie on rows of the spectrum with the spacing of
// that repeat; or there are fewer, of lines of text alone, on one line through the zero frequency.
bool IsWriting(const Findings& findings) {
  constexpr double kStrong = 1.0;                              // natural log below the highest
  constexpr double kLeastSpacing = 10.0, kMostSpacing = 40.0;  // cells: from 51 to 12.8 pixels
  constexpr double kMostOfCrooked = 64.0;                      // down to 8 pixels
  constexpr size_t kFewestOfSheet = 24, kFewestOfLines = 4, kSureOfCrooked = 7;
  constexpr double kShareOfSheet = 0.85, kShareOfLines = 0.8, kMostBeside = 3.0;
  constexpr double kTurnStep = 0.25;  // degrees
  constexpr int32_t kMostTurns = 24;  // to either side, of a page laid crooked
  constexpr double kLeastTurn = 1.0;  // of one that is not straight for sure
  double highest = 0.0;
  for (const SpectrumPeak& peak : findings.peaks) highest = std::max(highest, peak.height);
  std::vector<const SpectrumPeak*> strong;
  for (const SpectrumPeak& peak : findings.peaks) {
    if (peak.height >= highest - kStrong && peak.verdict != PeakVerdict::kBlocks) strong.push_back(&peak);
  }
  if (strong.size() < kFewestOfLines) return false;
  const bool isSheet = strong.size() >= kFewestOfSheet;
  const size_t half = strong.size() / 2 + 1;
  const double share = isSheet ? kShareOfSheet : kShareOfLines;
  const size_t fewest =
      std::max(kFewestOfLines, static_cast<size_t>(std::ceil(share * static_cast<double>(strong.size()))));
  for (int32_t step = -kMostTurns; step <= kMostTurns; ++step) {
    const double turn = kTurnStep * step;
    const double cosine = std::cos(turn * std::numbers::pi / 180),
                 sine = std::sin(turn * std::numbers::pi / 180);
    std::vector<double> down, across;
    const auto add = [&](int32_t dx, int32_t dy) {
      const double x = std::abs(cosine * dx + sine * dy), y = std::abs(cosine * dy - sine * dx);
      if (isSheet || x <= kMostBeside) down.push_back(y);
      if (isSheet || y <= kMostBeside) across.push_back(x);
    };
    for (const SpectrumPeak* const peak : strong) {
      const size_t before = down.size() + across.size();
      add(peak->dx, peak->dy);
      if (down.size() + across.size() > before) continue;
      // Repeats finer than the samples come back from beyond the spectrum's borders.
      add(peak->dx, peak->dy < 0 ? peak->dy + kSpectrumCells : peak->dy - kSpectrumCells);
      add(peak->dx < 0 ? peak->dx + kSpectrumCells : peak->dx - kSpectrumCells, peak->dy);
    }
    const bool isCrooked = !isSheet && std::abs(turn) >= kLeastTurn;
    const double most = isCrooked ? kMostOfCrooked : kMostSpacing;
    // Crooked rows and columns of digits: one line of peaks is of many teeth, and few lie beside the two.
    const bool areOnLines = isCrooked && down.size() + across.size() >= fewest;
    const size_t enough = areOnLines  ? kFewestOfLines
                          : isCrooked ? std::min(fewest, std::max(kSureOfCrooked, half))
                                      : fewest;
    if (AreMultiples(down, kLeastSpacing, most, enough) ||
        AreMultiples(across, kLeastSpacing, most, enough)) {
      return true;
    }
  }
  return false;
}

// Strokes of writing, strong as they are, repeat over the page and not from one to the next: within a tile
// the peaks hardly stand out of what else is there, as a screen's do wherever it is to be seen.
bool StandsOutInTiles(const TiledPicture& tiled, const Findings& findings, Parallel& parallel) {
  constexpr size_t kMostPeaks = 6, kMostTiles = 400, kFewestTiles = 2, kTilesToOne = 100;
  constexpr double kLeastHeight = 2.8;  // natural log
  const size_t count = std::min(tiled.tiles.size(), kMostTiles);
  if (count == 0 || tiled.tileWidth != LocalSpectrum::kSide || tiled.tileHeight != LocalSpectrum::kSide)
    return true;
  std::vector<SpectrumPeak> peaks = LicensedByMagnitude(findings);
  if (peaks.size() > kMostPeaks) peaks.resize(kMostPeaks);
  std::vector<LocalSpectrum> spectra(static_cast<size_t>(parallel.threads()));
  for (LocalSpectrum& spectrum : spectra) {
    if (!spectrum.Prepare()) throw std::bad_alloc();
  }
  const auto cell = [](int32_t cells) {
    return static_cast<int32_t>(std::lround(cells / double{LocalSpectrum::kCells}));
  };
  const size_t enough = std::min(std::max(kFewestTiles, count / kTilesToOne), count);
  std::atomic<size_t> standing{0};
  const auto look = [&](int32_t index, int32_t worker) {
    LocalSpectrum& spectrum = spectra[static_cast<size_t>(worker)];
    spectrum.Load(TileOf(tiled, static_cast<size_t>(index) * kTileStride % tiled.tiles.size()), 0, 0);
    standing += std::any_of(peaks.begin(), peaks.end(), [&](const SpectrumPeak& peak) {
      const int32_t dx = cell(peak.dx), dy = cell(peak.dy);
      return spectrum.HighestAround(dx, dy) - spectrum.UsualAround(dx, dy) >= kLeastHeight;
    });
  };
  ForEachTask(parallel, static_cast<int32_t>(count), look, [&](int32_t) { return standing >= enough; });
  return standing >= enough;
}

void TakeLicencesBack(PeakVerdict reason, Findings* findings) {
  for (SpectrumPeak& peak : findings->peaks) {
    if (peak.isLicensed) {
      peak.verdict = reason;
    } else if (peak.verdict == PeakVerdict::kUsed) {
      peak.verdict = PeakVerdict::kNoLicence;
    }
    peak.isLicensed = false;
  }
  ClearImage(findings->seeds.view());
  findings->seedCells = 0;
}

}  // namespace

int32_t CheckLicences(const TiledPicture& tiled, Parallel& parallel, Findings* findings, KeptMeasures* kept) {
  try {
    const std::vector<SpectrumPeak> strongest = StrongestLicensed(*findings);
    if (!strongest.empty() && (IsSheet(*findings, strongest[0]) ||
                               IsOfRowsAndColumns(*findings, strongest[0]) || IsWriting(*findings))) {
      TakeLicencesBack(PeakVerdict::kNotIsolated, findings);
      return kSuccess;
    }
    double amplitude = 0.0;
    for (size_t i = 0; i < strongest.size() && amplitude < kLeastAmplitude; ++i) {
      amplitude = StrongAmplitude(tiled, strongest[i], parallel, kept);
    }
    findings->strongAmplitude = amplitude;
    if (!strongest.empty() && amplitude < kLeastAmplitude) {
      TakeLicencesBack(PeakVerdict::kTooFaint, findings);
    } else if (amplitude >= kStrokes && !StandsOutInTiles(tiled, *findings, parallel)) {
      TakeLicencesBack(PeakVerdict::kNotIsolated, findings);
    }
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
  return kSuccess;
}

int32_t MeasureStrength(const TiledPicture& tiled, Parallel& parallel, Findings* findings,
                        KeptMeasures* kept) {
  try {
    const std::vector<SpectrumPeak> strongest = StrongestLicensed(*findings);
    if (!strongest.empty()) {
      findings->strongAmplitude = StrongAmplitude(tiled, strongest[0], parallel, kept);
    }
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
  return kSuccess;
}

}  // namespace tessaline
