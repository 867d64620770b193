#include <algorithm>
#include <array>
#include <cmath>
#include <new>
#include <numbers>
#include <vector>

#include "image/pixel_kind.h"
#include "restoration/decision.h"
#include "restoration/plane.h"

namespace tessaline {

namespace {

constexpr int32_t kLongestTile = 128;
constexpr int32_t kBinsAround = 3;  // of the tile padded to twice its side
constexpr int32_t kBins = 2 * kBinsAround + 1;
constexpr int32_t kPeaksChecked = 3;
constexpr double kLeastAmplitude = 2.0 * kByteToHost;
constexpr double kStrongShare = 0.98;

// One axis of a tile: the window times the waves of the bins round a peak's place.
struct TileAxis {
  int32_t side;
  double windowSum = 0.0;
  std::vector<float> window;
  // By place, a lane a bin and one of zeros: the sums of all bins go along together.
  using Lanes = std::array<float, kBins + 1>;
  std::vector<Lanes> cosine, sine;

  TileAxis(int32_t tileSide, int32_t cells) : side(tileSide) {
    const double circle = 2.0 * std::numbers::pi;
    const int32_t padded = 2 * side;
    const auto middle = static_cast<int32_t>(std::lround(cells * double(padded) / kSpectrumCells));
    for (int32_t i = 0; i < side; ++i) {
      const double hann = side > 1 ? 0.5 - 0.5 * std::cos(circle * i / (side - 1)) : 1.0;
      windowSum += hann;
      window.push_back(static_cast<float>(hann));
      cosine.emplace_back();
      sine.emplace_back();
      for (int32_t bin = 0; bin < kBins; ++bin) {
        const double phase = circle * (middle + bin - kBinsAround) * i / padded;
        cosine.back()[bin] = static_cast<float>(std::cos(phase));
        sine.back()[bin] = static_cast<float>(std::sin(phase));
      }
    }
  }
};

// A tile's samples, less their mean, under the window.
void LoadTile(const PictureView& picture, int32_t channel, const Tile& tile, const TileAxis& axisX,
              const TileAxis& axisY, float* samples) {
  PictureView part = picture;
  part.width = axisX.side;
  const ChannelView& whole = picture.channel[channel];
  part.channel[channel].data = whole.data + tile.x * whole.pixelBytes;
  float row[2 * kLongestTile];
  double sum = 0.0;
  for (int32_t y = 0; y < axisY.side; ++y) {
    sum += LoadLevels(part, channel, tile.y + y, row);
    for (int32_t x = 0; x < axisX.side; ++x) samples[y * axisX.side + x] = row[2 * x];
  }
  const auto mean = static_cast<float>(sum / (axisX.side * axisY.side));
  for (int32_t y = 0; y < axisY.side; ++y) {
    for (int32_t x = 0; x < axisX.side; ++x) {
      float& sample = samples[y * axisX.side + x];
      sample = (sample - mean) * axisX.window[x] * axisY.window[y];
    }
  }
}

// The greatest magnitude of the bins round the peak.
double GreatestMagnitude(const float* samples, const TileAxis& axisX, const TileAxis& axisY) {
  double real[kBins][kBins] = {}, imaginary[kBins][kBins] = {};
  for (int32_t y = 0; y < axisY.side; ++y) {
    const float* const row = samples + y * axisX.side;
    TileAxis::Lanes cosines{}, sines{};
    for (int32_t x = 0; x < axisX.side; ++x) {
      for (size_t lane = 0; lane < cosines.size(); ++lane) {
        cosines[lane] += row[x] * axisX.cosine[x][lane];
        sines[lane] += row[x] * axisX.sine[x][lane];
      }
    }
    for (int32_t i = 0; i < kBins; ++i) {
      for (int32_t j = 0; j < kBins; ++j) {  // exp(-i (phase x + phase y))
        const double cosine = axisY.cosine[y][j], sine = axisY.sine[y][j];
        real[j][i] += cosines[i] * cosine - sines[i] * sine;
        imaginary[j][i] -= sines[i] * cosine + cosines[i] * sine;
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

// The amplitude of a peak in the picture's strong places, 0 .. 32768.
double StrongAmplitude(const TiledPicture& tiled, const SpectrumPeak& peak, Parallel& parallel) {
  const TileAxis axisX(tiled.tileWidth, peak.dx), axisY(tiled.tileHeight, peak.dy);
  const PictureView& picture = tiled.picture;
  const std::vector<Tile>& tiles = tiled.tiles;
  std::vector<double> amplitudes(tiles.size());
  const double unit = 2.0 / std::max(axisX.windowSum * axisY.windowSum, 1e-9);
  const auto measure = [&](int32_t index, int32_t) {
    float samples[kLongestTile * kLongestTile];
    for (int32_t c = 0; c < picture.channels; ++c) {
      LoadTile(picture, c, tiles[index], axisX, axisY, samples);
      amplitudes[index] = std::max(amplitudes[index], unit * GreatestMagnitude(samples, axisX, axisY));
    }
  };
  ForEachTask(parallel, static_cast<int32_t>(tiles.size()), measure, [](int32_t) { return false; });
  std::sort(amplitudes.begin(), amplitudes.end());
  const double place = kStrongShare * static_cast<double>(amplitudes.size() - 1);
  const auto lower = static_cast<size_t>(place);
  const size_t upper = std::min(lower + 1, amplitudes.size() - 1);
  return amplitudes[lower] + (place - static_cast<double>(lower)) * (amplitudes[upper] - amplitudes[lower]);
}

double MagnitudeOf(const SpectrumPeak& peak) {
  return peak.height + peak.background;
}

std::vector<SpectrumPeak> StrongestLicensed(const Findings& findings) {
  std::vector<SpectrumPeak> licensed;
  for (const SpectrumPeak& peak : findings.peaks) {
    if (peak.isLicensed) licensed.push_back(peak);
  }
  std::stable_sort(licensed.begin(), licensed.end(), [](const SpectrumPeak& a, const SpectrumPeak& b) {
    return MagnitudeOf(a) > MagnitudeOf(b);
  });
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

int32_t CheckLicences(const TiledPicture& tiled, Parallel& parallel, Findings* findings) {
  try {
    const std::vector<SpectrumPeak> strongest = StrongestLicensed(*findings);
    if (!strongest.empty() && IsSheet(*findings, strongest[0])) {
      TakeLicencesBack(PeakVerdict::kNotIsolated, findings);
      return kSuccess;
    }
    double amplitude = 0.0;
    for (size_t i = 0; i < strongest.size() && amplitude < kLeastAmplitude; ++i) {
      amplitude = StrongAmplitude(tiled, strongest[i], parallel);
    }
    findings->strongAmplitude = amplitude;
    if (!strongest.empty() && amplitude < kLeastAmplitude) TakeLicencesBack(PeakVerdict::kTooFaint, findings);
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
  return kSuccess;
}

int32_t MeasureStrength(const TiledPicture& tiled, Parallel& parallel, Findings* findings) {
  try {
    const std::vector<SpectrumPeak> strongest = StrongestLicensed(*findings);
    if (!strongest.empty()) findings->strongAmplitude = StrongAmplitude(tiled, strongest[0], parallel);
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
  return kSuccess;
}

}  // namespace tessaline
