#include "restoration/line_offsets.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <new>
#include <vector>

#include "image/pixel_kind.h"
#include "removal/peak_detection.h"
#include "restoration/licensed_peaks.h"
#include "restoration/plane.h"

namespace tessaline {

namespace {

enum Direction : int32_t { kRows, kColumns, kDirections };

// What varies more slowly along the lines' order is left to the picture.
constexpr double kCoarsest = 2.0;   // sigma, lines
constexpr int32_t kFirstCell = 48;  // where half of a wave is coarser
constexpr int32_t kMiddleCell = (kFirstCell + kSpectrumCentre) / 2;

constexpr double kLeastOffset = 0.8 * kByteToHost, kMostOffset = 8.0 * kByteToHost;
constexpr double kLeastHeight = 0.1;  // of an axis that is worth looking at
constexpr int32_t kSegments = 4;
constexpr int32_t kLags = 24;
constexpr double kMostAlike = 0.4;      // lines so far apart, the coarsest left out
constexpr double kMostAlikeNext = 0.1;  // and neighbours; edges, however sharp, reach two lines
constexpr double kFew = 0.05;           // of the tiles, which may have less by chance
constexpr double kMostEven = 2.5;       // times their variance
constexpr size_t kLeastTiles = 8;

// Not-a-number is neither above 0 nor told by anything.
bool IsCutOff(float level) {
  return !(level > 0.0f && level < kHostMax);
}
float InRange(float level) {
  return level > 0.0f ? std::min(level, kHostMax) : 0.0f;
}

// Leaves what of each of the lines is finer than their order; `coarse` is room for as many.
void LeaveFiner(const GaussianKernel& kernel, int32_t lines, float* levels, float* coarse) {
  BlurRow(kernel, levels, lines, coarse);
  for (int32_t i = 0; i < lines; ++i) levels[i] -= coarse[i];
}

// A tile's offsets in one direction: products of what two segments say, `lag` lines apart, and how much of
// the tile tells.
struct TileOffsets {
  std::array<double, kLags + 1> products{};
  bool isTold = false;
};

class TileMeter {
 public:
  explicit TileMeter(int32_t side)
      : side_(side), levels_(static_cast<size_t>(side)), coarse_(levels_), sum_(levels_) {
    for (auto& ofDirection : segments_) {
      for (auto& segment : ofDirection) segment.resize(static_cast<size_t>(side));
    }
  }

  void Measure(const PictureView& tile, int32_t channel, std::array<TileOffsets, kDirections>* offsets) {
    const bool isTold = Load(tile, channel);
    for (const Direction direction : {kRows, kColumns}) {
      (*offsets)[direction] = isTold ? Compare(segments_[direction]) : TileOffsets{};
    }
  }

 private:
  using Segments = std::array<std::vector<float>, kSegments>;

  bool Load(const PictureView& tile, int32_t channel) {
    constexpr int32_t kMostCutOff = 20;  // one of so many samples
    const int32_t segment = side_ / kSegments;
    for (auto& ofDirection : segments_) {
      for (auto& lines : ofDirection) std::fill(lines.begin(), lines.end(), 0.0f);
    }
    int32_t cutOff = 0;
    for (int32_t y = 0; y < side_; ++y) {
      LoadPart(tile, {channel, y, 0, side_}, levels_.data());
      auto& ofColumns = segments_[kColumns][static_cast<size_t>(y / segment)];
      for (int32_t x = 0; x < side_; ++x) {
        const float level = levels_[static_cast<size_t>(x)], inRange = InRange(level);
        cutOff += IsCutOff(level);
        segments_[kRows][static_cast<size_t>(x / segment)][static_cast<size_t>(y)] += inRange;
        ofColumns[static_cast<size_t>(x)] += inRange;
      }
    }
    return cutOff <= side_ * side_ / kMostCutOff;
  }

  // Only what different segments have in common counts, so that grain and texture cancel out.
  TileOffsets Compare(Segments& segments) {
    const GaussianKernel kernel(kCoarsest);
    std::fill(sum_.begin(), sum_.end(), 0.0f);
    for (auto& lines : segments) {
      LeaveFiner(kernel, side_, lines.data(), coarse_.data());
      for (size_t i = 0; i < lines.size(); ++i) {
        lines[i] = lines[i] * static_cast<float>(kSegments) / static_cast<float>(side_);
        sum_[i] += lines[i];
      }
    }
    TileOffsets offsets;
    offsets.isTold = true;
    for (int32_t lag = 0; lag <= kLags; ++lag) {
      double products = 0.0;
      const int32_t first = kernel.reach, last = side_ - kernel.reach - lag;
      for (int32_t i = first; i < last; ++i) {
        const auto a = static_cast<size_t>(i), b = a + static_cast<size_t>(lag);
        products += static_cast<double>(sum_[a]) * sum_[b];
        for (const auto& lines : segments) products -= static_cast<double>(lines[a]) * lines[b];
      }
      offsets.products[static_cast<size_t>(lag)] =
          products / (kSegments * (kSegments - 1) * static_cast<double>(last - first));
    }
    return offsets;
  }

  int32_t side_;
  std::vector<float> levels_, coarse_, sum_;
  std::array<Segments, kDirections> segments_;
};

// Whether tiles of one channel have them. Where an edge of the picture runs along the lines a tile has more.
bool AreOffsets(std::vector<TileOffsets> tiles, double leastOffset) {
  const size_t all = tiles.size();
  std::erase_if(tiles, [](const TileOffsets& tile) { return !tile.isTold; });
  if (tiles.size() < std::max(kLeastTiles, all / 2)) return false;
  const auto valueOf = [&](double share, const auto& value) {
    std::vector<double> values(tiles.size());
    std::transform(tiles.begin(), tiles.end(), values.begin(), value);
    return Percentile(share, std::move(values));
  };
  const size_t told = tiles.size();
  const double least = valueOf(kFew, [](const TileOffsets& tile) { return tile.products[0]; });
  if (least < leastOffset * leastOffset || least > kMostOffset * kMostOffset) return false;
  std::erase_if(tiles, [&](const TileOffsets& tile) { return !(tile.products[0] < kMostEven * least); });
  if (tiles.size() < told / 2) return false;
  for (size_t lag = 1; lag <= kLags; ++lag) {
    const double alike =
        valueOf(0.5, [&](const TileOffsets& tile) { return tile.products[lag] / tile.products[0]; });
    if (std::abs(alike) > kMostAlike || (lag == 1 && alike > kMostAlikeNext)) return false;
  }
  return true;
}

// How far an axis stands above what is beside it: the natural logarithm of the magnitudes' quotient.
struct AxisLift {
  double height, background;
};
AxisLift LiftOf(const Analysis& analysis, Direction direction) {
  constexpr int32_t kBeside[] = {3, 4, 5, 6};  // cells, beyond the axis' skirt
  const ConstImageView spectrum = analysis.rawGray16.view();
  const auto at = [&](int32_t along, int32_t across) {
    const int32_t x = kSpectrumCentre + (direction == kRows ? across : along);
    const int32_t y = kSpectrumCentre + (direction == kRows ? along : across);
    return static_cast<double>(reinterpret_cast<const uint16_t*>(spectrum.Row(y))[x]);
  };
  double axis = 0.0, beside = 0.0;
  for (int32_t along = kFirstCell; along < kSpectrumCentre; ++along) {
    axis += at(along, 0);
    for (const int32_t across : kBeside) beside += (at(along, across) + at(along, -across)) / 2;
  }
  const double unit = analysis.logSpan / (kHostMax * (kSpectrumCentre - kFirstCell));
  beside *= unit / std::size(kBeside);
  return {axis * unit - beside, beside};
}

void AddAxis(Direction direction, const AxisLift& lift, float discRadius, Findings* findings) {
  SpectrumPeak peak = {};
  peak.dx = direction == kColumns ? kMiddleCell : 0;
  peak.dy = direction == kRows ? -kMiddleCell : 0;
  peak.period = static_cast<double>(kSpectrumCells) / kMiddleCell;
  peak.angle = direction == kRows ? 90.0 : 0.0;
  peak.height = peak.isolation = lift.height;
  peak.background = lift.background;
  peak.isLicensed = true;
  peak.verdict = PeakVerdict::kUsed;
  peak.scale = PeakScale::kLines;
  findings->peaks.push_back(peak);
  const ImageView seeds = findings->seeds.view();
  for (int32_t along = -kSpectrumCentre; along < kSpectrumCentre; ++along) {
    if (std::abs(along) < kFirstCell || std::abs(static_cast<float>(along)) < discRadius) continue;
    const int32_t place = kSpectrumCentre + along;
    (direction == kRows ? seeds.Row(place)[kSpectrumCentre] : seeds.Row(kSpectrumCentre)[place]) = 255;
  }
}

void AddLines(const TiledPicture& tiled, const Analysis& analysis, const Settings& settings,
              Parallel& parallel, Findings* findings) {
  const AxisLift lifts[] = {LiftOf(analysis, kRows), LiftOf(analysis, kColumns)};
  if (std::max(lifts[kRows].height, lifts[kColumns].height) < kLeastHeight) return;
  const double leastOffset = kLeastOffset / settings.sensitivity;
  const float discRadius = ProtectedDiscRadius(settings.protectionRadius);
  std::vector<TileMeter> meters(static_cast<size_t>(parallel.threads()), TileMeter(tiled.tileWidth));
  std::vector<std::array<TileOffsets, kDirections>> measured(tiled.tiles.size());
  bool isFound[kDirections] = {};
  for (int32_t channel = 0; channel < tiled.picture.channels; ++channel) {
    ForEachTask(
        parallel, static_cast<int32_t>(tiled.tiles.size()),
        [&](int32_t index, int32_t worker) {
          const auto i = static_cast<size_t>(index);
          meters[static_cast<size_t>(worker)].Measure(TileOf(tiled, i), channel, &measured[i]);
        },
        [](int32_t) { return false; });
    for (const Direction direction : {kRows, kColumns}) {
      if (isFound[direction] || lifts[direction].height < kLeastHeight) continue;
      std::vector<TileOffsets> tiles(measured.size());
      std::transform(measured.begin(), measured.end(), tiles.begin(),
                     [direction](const auto& ofTile) { return ofTile[direction]; });
      isFound[direction] = AreOffsets(std::move(tiles), leastOffset);
    }
  }
  for (const Direction direction : {kRows, kColumns}) {
    if (isFound[direction]) AddAxis(direction, lifts[direction], discRadius, findings);
  }
  findings->seedCells = CountSeeds(findings->seeds.view());
}

constexpr int32_t kBlock = 16;  // pixels of a line whose mean is told from those of others

// What is fine along the lines' order, and the offsets in it.
class LineMeter {
 public:
  // False: no memory.
  bool Prepare(const PictureView& picture, const bool (&isWanted)[kDirections], int32_t threads) {
    picture_ = picture;
    const int32_t sides[] = {picture.height, picture.width};
    for (const Direction direction : {kRows, kColumns}) {
      if (!isWanted[direction]) continue;
      const int32_t lines = sides[direction], blocks = ReducedSide(sides[1 - direction], kBlock);
      for (Plane* const plane : {&fine_[direction], &variance_[direction]}) {
        if (!plane->Create(lines, blocks)) return false;
      }
      for (auto& offsets : offsets_[direction]) offsets.resize(static_cast<size_t>(lines));
    }
    rows_.resize(static_cast<size_t>(threads) * static_cast<size_t>(picture.width));
    scratch_.resize(static_cast<size_t>(threads) * static_cast<size_t>(std::max(sides[0], sides[1])));
    return true;
  }

  // All of a channel's.
  void Measure(int32_t channel, Parallel& parallel) {
    RowsInParallel(parallel, ReducedSide(picture_.height, kBlock),
                   [&](int32_t blocks, int32_t worker) { AddBlocks(channel, blocks, worker); });
    for (const Direction direction : {kRows, kColumns}) {
      if (fine_[direction].height == 0) continue;
      RowsInParallel(parallel, fine_[direction].height,
                     [&](int32_t block, int32_t worker) { LeaveFine(direction, block, worker); });
      Agree(direction, channel, parallel);
    }
  }

  const std::vector<float>& offsets(Direction direction, int32_t channel) const {
    return offsets_[direction][static_cast<size_t>(channel)];
  }

 private:
  void AddBlocks(int32_t channel, int32_t blocks, int32_t worker);
  void LeaveFine(Direction direction, int32_t block, int32_t worker);
  void Agree(Direction direction, int32_t channel, Parallel& parallel);

  PictureView picture_;
  Plane fine_[kDirections];      // by block and line: means, then what is fine of them
  Plane variance_[kDirections];  // of it
  std::vector<float> offsets_[kDirections][kMostChannels];
  std::vector<float> rows_, scratch_;  // a thread's each
};

// Of a variance that tells nothing.
constexpr float kNothingTold = 1e20f;

void LineMeter::AddBlocks(int32_t channel, int32_t blocks, int32_t worker) {
  const int32_t first = blocks * kBlock, last = std::min(first + kBlock, picture_.height);
  float* const levels = rows_.data() + static_cast<size_t>(worker) * static_cast<size_t>(picture_.width);
  Plane &ofRows = fine_[kRows], &ofColumns = fine_[kColumns];
  const bool hasRows = ofRows.height > 0, hasColumns = ofColumns.height > 0;
  float* const sums = hasColumns ? ofColumns.Row(blocks) : nullptr;
  float* const cutOff = hasColumns ? variance_[kColumns].Row(blocks) : nullptr;
  if (hasColumns) {
    std::fill_n(sums, picture_.width, 0.0f);
    std::fill_n(cutOff, picture_.width, 0.0f);
  }
  for (int32_t y = first; y < last; ++y) {
    LoadPart(picture_, {channel, y, 0, picture_.width}, levels);
    for (int32_t x = 0; hasColumns && x < picture_.width; ++x) {
      sums[x] += InRange(levels[x]) / static_cast<float>(last - first);
      if (IsCutOff(levels[x])) cutOff[x] = kNothingTold;
    }
    for (int32_t block = 0; hasRows && block < ofRows.height; ++block) {
      const int32_t left = block * kBlock, right = std::min(left + kBlock, picture_.width);
      float sum = 0.0f;
      bool isCutOff = false;
      for (int32_t x = left; x < right; ++x) {
        sum += InRange(levels[x]);
        isCutOff |= IsCutOff(levels[x]);
      }
      ofRows.Row(block)[y] = sum / static_cast<float>(right - left);
      variance_[kRows].Row(block)[y] = isCutOff ? kNothingTold : 0.0f;
    }
  }
}

void LineMeter::LeaveFine(Direction direction, int32_t block, int32_t worker) {
  constexpr double kNearby = 3.0;  // sigma, lines
  static const GaussianKernel coarse(kCoarsest), nearby(kNearby);
  const int32_t lines = fine_[direction].width;
  float* const fine = fine_[direction].Row(block);
  float* const variance = variance_[direction].Row(block);
  float* const blurred = scratch_.data() + static_cast<size_t>(worker) *
                                               static_cast<size_t>(std::max(picture_.width, picture_.height));
  LeaveFiner(coarse, lines, fine, blurred);
  for (int32_t i = 0; i < lines; ++i) variance[i] += fine[i] * fine[i];
  BlurRow(nearby, variance, lines, blurred);
  std::copy_n(blurred, lines, variance);
}

// What lines' blocks agree on, and what tells how far that can be believed.
struct Agreement {
  explicit Agreement(size_t lines) : offsets(lines), spreads(lines), halves{offsets, offsets} {}

  std::vector<float> offsets;
  std::vector<float> spreads;    // from the first to the third quarter of a line's blocks
  std::vector<float> halves[2];  // what every other block says
};

// For one line at a time.
class BlocksOfLine {
 public:
  explicit BlocksOfLine(size_t blocks) : values_(blocks), deviations_(blocks), sorted_(blocks) {}

  // Where the picture varies little blocks count for more, and those that are far off, where an edge runs
  // along the line, for less.
  void Agree(const Plane& fine, const Plane& variance, int32_t line, Agreement* agreement) {
    constexpr float kLeastVariance = 100.0f;  // rounding to bytes
    constexpr float kFarOff = 1.5f;
    constexpr int32_t kRounds = 3;
    for (size_t i = 0; i < values_.size(); ++i) {
      values_[i] = fine.Row(static_cast<int32_t>(i))[line];
      deviations_[i] = std::sqrt(variance.Row(static_cast<int32_t>(i))[line] + kLeastVariance);
    }
    float agreed = QuarterOf(values_, 2);
    const float usual = kFarOff * QuarterOf(deviations_, 2);
    float sums[2] = {}, weights[2] = {};
    for (int32_t round = 0; round < kRounds; ++round) {
      sums[0] = sums[1] = weights[0] = weights[1] = 0.0f;
      for (size_t i = 0; i < values_.size(); ++i) {
        const float off = std::abs(values_[i] - agreed);
        const float weight = (off > usual ? usual / off : 1.0f) / (deviations_[i] * deviations_[i]);
        sums[i % 2] += weight * values_[i];
        weights[i % 2] += weight;
      }
      agreed = (sums[0] + sums[1]) / (weights[0] + weights[1]);
    }
    const auto place = static_cast<size_t>(line);
    agreement->offsets[place] = agreed;
    agreement->spreads[place] = QuarterOf(values_, 3) - QuarterOf(values_, 1);
    for (size_t i = 0; i < 2; ++i) {
      agreement->halves[i][place] = weights[i] > 0.0f ? sums[i] / weights[i] : 0.0f;
    }
  }

 private:
  float QuarterOf(const std::vector<float>& of, size_t quarter) {
    sorted_ = of;
    const auto place = sorted_.begin() + static_cast<ptrdiff_t>(quarter * (sorted_.size() - 1) / 4);
    std::nth_element(sorted_.begin(), place, sorted_.end());
    return *place;
  }

  std::vector<float> values_, deviations_, sorted_;
};

// The share of all offsets by which one half of the blocks bears out what the other one says.
float ShareBorneOut(const Agreement& agreement) {
  const auto& [first, second] = agreement.halves;
  double products = 0.0, squares = 0.0;
  for (size_t i = 0; i < first.size(); ++i) {
    products += static_cast<double>(first[i]) * second[i];
    squares += (static_cast<double>(first[i]) * first[i] + static_cast<double>(second[i]) * second[i]) / 2;
  }
  const double alike = squares > 0.0 ? std::max(products / squares, 0.0) : 0.0;
  return static_cast<float>(2.0 * alike / (1.0 + alike));
}

// A line that is far off alone, and by as much all along, is a sensor's, too; others are a horizon or a
// frame, and are let be.
void KeepSensors(const Agreement& agreement, float share, std::vector<float>* offsets) {
  constexpr double kMostSigmas = 3.0, kSigmaOfMiddle = 1.4826;
  constexpr float kMostSpread = 0.5f, kMostBeside = 0.5f;
  const std::vector<float>& spreads = agreement.spreads;
  std::vector<float> sizes(spreads.size());
  std::transform(agreement.offsets.begin(), agreement.offsets.end(), sizes.begin(),
                 [](float offset) { return std::abs(offset); });
  const auto most =
      static_cast<float>(kMostSigmas * kSigmaOfMiddle * Percentile(0.5, {sizes.begin(), sizes.end()}));
  for (size_t i = 0; i < sizes.size(); ++i) {
    const float beside = std::max(i > 0 ? sizes[i - 1] : 0.0f, i + 1 < sizes.size() ? sizes[i + 1] : 0.0f);
    const bool isAlone = beside <= kMostBeside * sizes[i] && spreads[i] <= kMostSpread * sizes[i];
    (*offsets)[i] = sizes[i] <= most || isAlone ? share * agreement.offsets[i] : 0.0f;
  }
}

void LineMeter::Agree(Direction direction, int32_t channel, Parallel& parallel) {
  const Plane &fine = fine_[direction], &variance = variance_[direction];
  std::vector<float>& offsets = offsets_[direction][static_cast<size_t>(channel)];
  Agreement agreement(offsets.size());
  std::vector<BlocksOfLine> ofThreads(static_cast<size_t>(parallel.threads()),
                                      BlocksOfLine(static_cast<size_t>(fine.height)));
  RowsInParallel(parallel, fine.width, [&](int32_t line, int32_t worker) {
    ofThreads[static_cast<size_t>(worker)].Agree(fine, variance, line, &agreement);
  });
  KeepSensors(agreement, ShareBorneOut(agreement), &offsets);
}

int32_t TakeOut(const PictureView& from, const PictureView& to, const Findings& findings, Parallel& parallel,
                const Progress& progress) {
  constexpr double kMeasured = 0.7;
  bool isWanted[kDirections] = {};
  for (const SpectrumPeak& peak : findings.peaks) {
    if (peak.isLicensed && peak.scale == PeakScale::kLines) isWanted[peak.dx == 0 ? kRows : kColumns] = true;
  }
  LineMeter meter;
  if (!meter.Prepare(from, isWanted, parallel.threads())) return kOutOfMemory;
  for (int32_t c = 0; c < from.channels; ++c) {
    meter.Measure(c, parallel);
    if (progress.Advance(kMeasured * (c + 1), from.channels)) return kUserCancelled;
  }
  std::vector<float> rows(static_cast<size_t>(parallel.threads()) * static_cast<size_t>(from.width));
  RowsInParallel(parallel, from.height, [&](int32_t y, int32_t worker) {
    float* const levels = rows.data() + static_cast<size_t>(worker) * static_cast<size_t>(from.width);
    for (int32_t c = 0; c < from.channels; ++c) {
      LoadPart(from, {c, y, 0, from.width}, levels);
      const auto& ofColumns = meter.offsets(kColumns, c);
      const float ofRow = isWanted[kRows] ? meter.offsets(kRows, c)[static_cast<size_t>(y)] : 0.0f;
      for (int32_t x = 0; x < from.width; ++x) {
        if (IsCutOff(levels[x])) continue;
        levels[x] -= ofRow + (isWanted[kColumns] ? ofColumns[static_cast<size_t>(x)] : 0.0f);
      }
      StorePart(to, {c, y, 0, to.width}, Rounding::kNearest, levels);
    }
  });
  progress.Unstoppable().Advance(1.0, 1.0);
  return kSuccess;
}

}  // namespace

bool IsOfLines(const Findings& findings) {
  return std::any_of(findings.peaks.begin(), findings.peaks.end(), [](const SpectrumPeak& peak) {
    return peak.isLicensed && peak.scale == PeakScale::kLines;
  });
}

int32_t AddLineOffsets(const TiledPicture& tiled, const Analysis& analysis, const Settings& settings,
                       Parallel& parallel, Findings* findings) {
  constexpr int32_t kLeastSide = 128;
  if (tiled.tiles.empty() || tiled.tileWidth < kLeastSide || tiled.tileHeight != tiled.tileWidth ||
      analysis.logSpan <= 0.0) {
    return kSuccess;
  }
  try {
    AddLines(tiled, analysis, UsableSettings(settings), parallel, findings);
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
  return kSuccess;
}

int32_t TakeLineOffsetsOut(const PictureView& from, const PictureView& to, const Findings& findings,
                           Parallel& parallel, const Progress& progress) {
  try {
    return TakeOut(from, to, findings, parallel, progress);
  } catch (const std::bad_alloc&) {  // only before the first sample changes
    return kOutOfMemory;
  }
}

}  // namespace tessaline
