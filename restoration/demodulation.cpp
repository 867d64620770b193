#include "restoration/demodulation.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

#include "fft/unit_roots.h"
#include "removal/spectrum_grid.h"

namespace tessaline {

namespace {

constexpr int32_t kBandsAtOnce = 16;  // blocks' rows of a task, which share the rows between them
// Of so many rows of blocks so many tell in which channel a carrier is strongest.
constexpr int32_t kBandsToChoose = 24, kBandsChosen = 1;
// There a part tells where another channel has so much of the power of the carrier's strongest part, and so
// many times that of the channel it is strongest in as a whole.
constexpr double kStrongPart = 0.05, kMuchStronger = 4.0;

UnitRootValue RootOf(int32_t circle, int64_t place) {
  return UnitRoot(circle, place & (circle - 1));
}

// Boxes, one over the other: what would fold onto a carrier, or onto the places beside it, lies at their
// zeros.
constexpr int32_t kMostBoxes = 3;
constexpr int32_t kBoxes[][kMostBoxes] = {{5, 4, 1}, {11, 8, 7}};

// The window's value at t + 1/2 from the middle.
double WindowAt(int32_t window, int32_t t) {
  constexpr int32_t kMostSide = 2 * CarrierWindow::kMost;
  std::array<int32_t, kMostSide> values{1};
  int32_t total = 1;
  for (const int32_t box : kBoxes[window]) {
    std::array<int32_t, kMostSide> wider{};
    for (int32_t i = 0; i < kMostSide; ++i) {
      for (int32_t j = i; j < std::min(i + box, kMostSide); ++j) wider[j] += values[i];
    }
    values = wider;
    total *= box;
  }
  return static_cast<double>(values[kReductionWindows[window].side() / 2 + t]) / total;
}
// Half a sample off the middle is an odd number of steps on a circle of twice the cells.
UnitRootValue RootFromMiddle(int32_t cells, int32_t t) {
  return RootOf(2 * kSpectrumCells, int64_t{cells} * (2 * t + 1));
}

void FillWindow(int32_t cells, int32_t window, float* cosine, float* sine) {
  for (int32_t t = 0; t < kReductionWindows[window].side() / 2; ++t) {
    const UnitRootValue root = RootFromMiddle(cells, t);
    cosine[t] = static_cast<float>(WindowAt(window, t) * root.cosine);
    sine[t] = static_cast<float>(WindowAt(window, t) * root.sine);
  }
}

double GainAlong(int32_t window, int32_t cells) {
  double gain = 0.0;
  for (int32_t t = 0; t < kReductionWindows[window].side() / 2; ++t) {
    gain += 2.0 * WindowAt(window, t) * RootFromMiddle(cells, t).cosine;
  }
  return gain;
}

}  // namespace

Wave::Wave(double cells, int32_t hop, int32_t count) {
  constexpr int32_t kCircle = 8192;
  constexpr int32_t kRootsPerCell = kCircle / kSpectrumCells;
  const auto step = std::llround(cells * hop * kRootsPerCell);
  for (int32_t i = 0; i < count; ++i) {
    const UnitRootValue root = RootOf(kCircle, step * i);
    cosine.push_back(static_cast<float>(root.cosine));
    sine.push_back(static_cast<float>(root.sine));
  }
}

Demodulation::AlongAxis::AlongAxis(int32_t cells, int32_t window, int32_t side, int32_t places) {
  const int32_t hop = kReductionWindows[window].hop, half = kReductionWindows[window].side() / 2;
  std::vector<double> weights(static_cast<size_t>(half));
  for (int32_t t = 0; t < half; ++t) weights[static_cast<size_t>(t)] = WindowAt(window, t);
  for (int32_t place = 0; place < places; ++place) {
    double sumReal = 0.0, sumImaginary = 0.0, inside = 0.0;
    for (int32_t t = -half; t < half; ++t) {
      const int32_t pixel = hop * place + hop / 2 + t, distance = t < 0 ? -1 - t : t;
      if (pixel < 0 || pixel >= side) continue;
      const UnitRootValue root = RootFromMiddle(cells, distance);
      const double weight = weights[static_cast<size_t>(distance)];
      inside += weight;
      sumReal += weight * root.cosine;
      sumImaginary -= (t < 0 ? -weight : weight) * root.sine;
    }
    real.push_back(static_cast<float>(sumReal));
    imaginary.push_back(static_cast<float>(sumImaginary));
    share.push_back(static_cast<float>(1.0 / inside));
  }
}

bool Demodulation::Prepare(int32_t width, int32_t height, int32_t channels, int32_t hop,
                           const std::vector<Carrier>& carriers, int32_t threads, PlaneMemory* lent) {
  window_ = hop == kReductionWindows[1].hop;
  hop_ = hop;
  width_ = width;
  height_ = height;
  windowSide_ = kReductionWindows[window_].side();
  columns_ = ReducedSide(width, hop);
  rows_ = ReducedSide(height, hop);
  chunks_ = (columns_ + kDemodulated - 1) / kDemodulated;
  windowFloats_ = static_cast<size_t>(windowSide_) * hop * kDemodulatedReach;
  threadFloats_ = static_cast<size_t>(channels) * (windowFloats_ + hop * kDemodulatedReach);
  memory_ = AllocateBlock<float>(threadFloats_ * static_cast<size_t>(threads));
  if (!memory_) return false;
  const int32_t planeColumns = chunks_ * kDemodulated;
  for (const Carrier& place : carriers) {
    CarrierWindow& window = windows_.emplace_back();
    FillWindow(place.dx, window_, window.cosineX, window.sineX);
    FillWindow(place.dy, window_, window.cosineY, window.sineY);
    tables_.push_back({Wave(place.dx, hop, columns_), Wave(place.dy, hop, rows_),
                       AlongAxis(place.dx, window_, width, columns_),
                       AlongAxis(place.dy, window_, height, rows_)});
    if (!real_.emplace_back().CreateIn(lent, planeColumns, rows_) ||
        !imaginary_.emplace_back().CreateIn(lent, planeColumns, rows_)) {
      return false;
    }
  }
  for (int32_t c = 0; c < channels; ++c) {
    if (!slow_[c].CreateIn(lent, planeColumns, rows_)) return false;
  }
  return scratch_.CreateIn(lent, planeColumns, rows_);
}

double Demodulation::windowVariance() const {
  double variance = 0.0;
  for (const int32_t box : kBoxes[window_]) variance += (box * box - 1) / 12.0;
  return variance;
}

double Demodulation::WindowGain(const Carrier& distance) const {
  return GainAlong(window_, distance.dx) * GainAlong(window_, distance.dy);
}

void Demodulation::Distribute(const CarrierChannels& channels) {
  looked_.clear();
  for (int32_t c = 0; c < kMostChannels; ++c) {
    ChannelCarriers looked{c, {}, {}};
    for (size_t k = 0; k < channels.size(); ++k) {
      if (channels[k] != c) continue;
      looked.carriers.push_back(static_cast<int32_t>(k));
      looked.windows.push_back(windows_[k]);
    }
    if (!looked.carriers.empty()) looked_.push_back(std::move(looked));
  }
}

// A row of the channels looked at, from the first window of a chunk on; all zeros beyond the picture. Its
// place in the memory of each: a row of levels after the windows.
void Demodulation::LoadRow(const PictureView& picture, int32_t y, int32_t firstColumn, float* memory) const {
  const int32_t count = hop_ * kDemodulatedReach;
  const int32_t begin = hop_ * firstColumn - (windowSide_ - hop_) / 2;  // pixels
  const int32_t first = std::max(begin, 0), end = std::min(begin + count, width_);
  LevelRows levels = {};
  for (size_t i = 0; i < looked_.size(); ++i) {
    float* const row = Window(memory, looked_.size()) + i * static_cast<size_t>(count);
    std::fill(row, row + (first - begin), 0.0f);
    std::fill(row + (end - begin), row + count, 0.0f);
    levels[looked_[i].channel] = row + (first - begin);
  }
  float unwanted[CarrierWindow::kMost * kDemodulatedReach];
  for (float*& row : levels) row = row != nullptr ? row : unwanted;
  LoadChannels(picture, {y, first, end - first}, levels);
}

// A part of the planes, without the phases of their places, and of the sums of the slow changes' blocks.
// `memory`: a thread's.
void Demodulation::MeasurePart(const PictureView& picture, const Part& part, float* memory) {
  const RowKernels& kernels = ActiveRowKernels();
  const int32_t margin = (windowSide_ - hop_) / 2, phases = hop_ * kDemodulatedReach;
  const auto slot = [&](size_t i, int32_t place) {
    return Window(memory, i) + (place % windowSide_) * phases;
  };
  for (const ChannelCarriers& looked : looked_) {
    for (int32_t band = part.firstRow; band < part.endRow; ++band) {
      std::fill_n(slow_[looked.channel].Row(band) + part.firstColumn, kDemodulated, 0.0f);
    }
  }
  int32_t loaded = hop_ * part.firstRow;  // places count from the first window's begin
  for (int32_t band = part.firstRow; band < part.endRow; ++band) {
    for (; loaded < hop_ * band + windowSide_; ++loaded) {
      const int32_t y = loaded - margin;
      const bool isInside = y >= 0 && y < height_;
      if (isInside) LoadRow(picture, y, part.firstColumn, memory);
      for (size_t i = 0; i < looked_.size(); ++i) {
        if (!isInside) {
          std::fill_n(slot(i, loaded), phases, 0.0f);
          continue;
        }
        const float* const levels = Window(memory, looked_.size()) + i * static_cast<size_t>(phases);
        kernels.distribute[window_](levels, slot(i, loaded));
        const int32_t row = y / hop_;
        if (row >= part.firstRow && row < part.endRow) {
          kernels.addBlocks[window_](kDemodulated, levels + margin,
                                     slow_[looked_[i].channel].Row(row) + part.firstColumn);
        }
      }
    }
    for (size_t i = 0; i < looked_.size(); ++i) {
      const ChannelCarriers& looked = looked_[i];
      std::array<const float*, 2 * CarrierWindow::kMost> rows;
      for (int32_t r = 0; r < windowSide_; ++r) rows[r] = slot(i, hop_ * band + r);
      std::array<float*, kMostCarriers> real, imaginary;
      for (size_t k = 0; k < looked.carriers.size(); ++k) {
        real[k] = real_[looked.carriers[k]].Row(band) + part.firstColumn;
        imaginary[k] = imaginary_[looked.carriers[k]].Row(band) + part.firstColumn;
      }
      kernels.demodulate[window_](rows.data(), looked.windows.data(),
                                  static_cast<int32_t>(looked.carriers.size()), real.data(),
                                  imaginary.data());
    }
  }
}

std::vector<CarrierChannels> Demodulation::ChannelsToMeasure(const PictureView& picture, Parallel& parallel) {
  using Powers = double[kMostCarriers][kMostChannels];
  const size_t carriers = windows_.size();
  const int32_t parts = (rows_ + kBandsToChoose - 1) / kBandsToChoose * chunks_;
  const auto powers = std::make_unique<Powers[]>(static_cast<size_t>(parts));
  std::vector<CarrierChannels> each;
  for (int32_t channel = 0; channel < picture.channels; ++channel) {
    each.emplace_back(carriers, channel);
    Distribute(each.back());
    ForEachTask(
        parallel, parts,
        [&](int32_t index, int32_t worker) {
          const int32_t first = std::min(index / chunks_ * kBandsToChoose + kBandsToChoose / 2, rows_ - 1);
          const Part part{first, std::min(first + kBandsChosen, rows_), index % chunks_ * kDemodulated};
          MeasurePart(picture, part, memory_.get() + static_cast<size_t>(worker) * threadFloats_);
          const int32_t columns = std::min(kDemodulated, columns_ - part.firstColumn);
          for (size_t k = 0; k < carriers; ++k) {
            double& power = powers[static_cast<size_t>(index)][k][channel];
            for (int32_t y = part.firstRow; y < part.endRow; ++y) {
              power += ActiveRowKernels().sumSquares(columns, real_[k].Row(y) + part.firstColumn) +
                       ActiveRowKernels().sumSquares(columns, imaginary_[k].Row(y) + part.firstColumn);
            }
          }
        },
        [](int32_t) { return false; });
  }
  CarrierChannels strongest;
  for (size_t k = 0; k < carriers; ++k) {
    double sums[kMostChannels] = {}, greatest = 0.0;
    for (int32_t part = 0; part < parts; ++part) {
      for (int32_t c = 0; c < picture.channels; ++c) {
        sums[c] += powers[static_cast<size_t>(part)][k][c];
        greatest = std::max(greatest, powers[static_cast<size_t>(part)][k][c]);
      }
    }
    const auto channel = std::max_element(sums, sums + picture.channels) - sums;
    strongest.push_back(static_cast<int32_t>(channel));
    for (int32_t part = 0; part < parts; ++part) {
      const double(&power)[kMostChannels] = powers[static_cast<size_t>(part)][k];
      const double most = *std::max_element(power, power + picture.channels);
      if (most > kStrongPart * greatest && most > kMuchStronger * power[channel]) return each;
    }
  }
  return {strongest};
}

// Means of the sums, smooth.
void Demodulation::SmoothSlow(int32_t channel, double sigma, Parallel& parallel) {
  Plane& slow = slow_[channel];
  RowsInParallel(parallel, rows_, [&](int32_t y, int32_t) {
    float* const row = slow.Row(y);
    const int32_t rows = std::min(hop_, height_ - hop_ * y);
    const float share = 1.0f / static_cast<float>(rows * hop_);
    for (int32_t x = 0; x < columns_; ++x) row[x] *= share;
    const int32_t inLast = width_ - hop_ * (columns_ - 1);
    row[columns_ - 1] *= static_cast<float>(hop_) / static_cast<float>(inLast);
  });
  Blur(GaussianOfRest(sigma, VarianceOfBlocks(hop_), hop_), parallel, columns_, &slow, &scratch_);
}

// Takes the channel's slow changes out of a carrier's row, and gives it the phases of its places.
void Demodulation::SettleRow(int32_t carrier, int32_t channel, int32_t y) {
  const CarrierTables& tables = tables_[carrier];
  float* const real = real_[carrier].Row(y);
  float* const imaginary = imaginary_[carrier].Row(y);
  const ConstantAnswer answer{tables.x.real.data(), tables.x.imaginary.data(), tables.x.share.data(),
                              tables.y.real[y],     tables.y.imaginary[y],     tables.y.share[y]};
  ActiveRowKernels().settle(columns_, answer, slow_[channel].Row(y), tables.waveY.cosine[y],
                            tables.waveY.sine[y], real, imaginary);
  ActiveRowKernels().turn(columns_, tables.waveX.cosine.data(), tables.waveX.sine.data(), real, imaginary,
                          real, imaginary);
}

bool Demodulation::Measure(const PictureView& picture, const CarrierChannels& channels, double sigma,
                           Parallel& parallel, const Progress& progress) {
  Distribute(channels);
  const int32_t tasks = (rows_ + kBandsAtOnce - 1) / kBandsAtOnce * chunks_;
  const bool isStopped = ForEachTask(
      parallel, tasks,
      [&](int32_t task, int32_t worker) {
        const int32_t first = task / chunks_ * kBandsAtOnce;
        MeasurePart(picture, {first, std::min(first + kBandsAtOnce, rows_), task % chunks_ * kDemodulated},
                    memory_.get() + static_cast<size_t>(worker) * threadFloats_);
      },
      [&](int32_t finished) { return progress.Advance(finished, tasks); });
  if (isStopped) return true;
  for (const ChannelCarriers& looked : looked_) {
    SmoothSlow(looked.channel, sigma, parallel);
    RowsInParallel(parallel, rows_, [&](int32_t row, int32_t) {
      for (const int32_t carrier : looked.carriers) SettleRow(carrier, looked.channel, row);
    });
  }
  return false;
}

}  // namespace tessaline
