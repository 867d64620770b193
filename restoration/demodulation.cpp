#include "restoration/demodulation.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "fft/unit_roots.h"
#include "removal/spectrum_grid.h"

namespace tessaline {

namespace {

constexpr int32_t kBandsAtOnce = 16;  // blocks' rows of a task, which share the rows between them

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
  const auto step = std::llround(cells * hop * (kCircle / kSpectrumCells));
  for (int32_t i = 0; i < count; ++i) {
    const UnitRootValue root = RootOf(kCircle, step * i);
    cosine.push_back(static_cast<float>(root.cosine));
    sine.push_back(static_cast<float>(root.sine));
  }
}

Demodulation::AlongAxis::AlongAxis(int32_t cells, int32_t window, int32_t side, int32_t places) {
  const int32_t hop = kReductionWindows[window].hop, half = kReductionWindows[window].side() / 2;
  std::vector<double> weights;
  for (int32_t t = 0; t < half; ++t) weights.push_back(WindowAt(window, t));
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

bool Demodulation::Prepare(int32_t width, int32_t height, int32_t hop, const std::vector<Carrier>& carriers,
                           int32_t threads) {
  window_ = hop == kReductionWindows[1].hop;
  hop_ = hop;
  windowSide_ = kReductionWindows[window_].side();
  columns_ = (width + hop - 1) / hop;
  rows_ = (height + hop - 1) / hop;
  chunks_ = (columns_ + kDemodulated - 1) / kDemodulated;
  phaseFloats_ = ptrdiff_t{chunks_} * kDemodulated + kDemodulatedReach - kDemodulated;
  threadFloats_ = (windowSide_ + 1) * hop * phaseFloats_;
  memory_ = AllocateBlock<float>(static_cast<size_t>(threadFloats_ * threads));
  if (!memory_) return false;
  std::vector<Carrier> places = carriers;
  places.push_back({0, 0});
  for (const Carrier& place : places) {
    CarrierWindow& window = windows_.emplace_back();
    FillWindow(place.dx, window_, window.cosineX, window.sineX);
    FillWindow(place.dy, window_, window.cosineY, window.sineY);
    tables_.push_back({Wave(place.dx, hop, columns_), Wave(place.dy, hop, rows_),
                       AlongAxis(place.dx, window_, width, columns_),
                       AlongAxis(place.dy, window_, height, rows_)});
    if (!real_.emplace_back().Create(chunks_ * kDemodulated, rows_) ||
        !imaginary_.emplace_back().Create(chunks_ * kDemodulated, rows_)) {
      return false;
    }
  }
  return true;
}

double Demodulation::windowVariance() const {
  double variance = 0.0;
  for (const int32_t box : kBoxes[window_]) variance += (box * box - 1) / 12.0;
  return variance;
}

double Demodulation::WindowGain(const Carrier& distance) const {
  return GainAlong(window_, distance.dx) * GainAlong(window_, distance.dy);
}

// A row by phases: sample hop i + p from the begin of the first window on is value i of phase p. All zeros
// beyond the picture.
void Demodulation::LoadRow(const PictureView& picture, int32_t channel, int32_t y, float* levels,
                           float* phases) const {
  if (y < 0 || y >= picture.height) {
    std::fill_n(phases, hop_ * phaseFloats_, 0.0f);
    return;
  }
  LoadPart(picture, {channel, y, 0, picture.width}, levels + (windowSide_ - hop_) / 2);
  const auto distribute = [&](auto hop) {
    for (ptrdiff_t i = 0; i < phaseFloats_; ++i) {
      for (int32_t p = 0; p < hop; ++p) phases[p * phaseFloats_ + i] = levels[hop * i + p];
    }
  };
  if (hop_ == 4) {
    distribute(std::integral_constant<int32_t, 4>{});
  } else {
    distribute(std::integral_constant<int32_t, 8>{});
  }
}

// Rows first .. last - 1 of the planes, without the phases of their places. `memory`: a thread's.
void Demodulation::MeasureBands(const PictureView& picture, int32_t channel, int32_t first, int32_t last,
                                float* memory) {
  const RowKernels& kernels = ActiveRowKernels();
  const auto carriers = static_cast<int32_t>(windows_.size());
  float* const levels = memory + windowSide_ * hop_ * phaseFloats_;
  const auto slot = [&](int32_t place) { return memory + (place % windowSide_) * hop_ * phaseFloats_; };
  int32_t loaded = hop_ * first;  // places count from the first window's begin
  for (int32_t band = first; band < last; ++band) {
    for (; loaded < hop_ * band + windowSide_; ++loaded) {
      LoadRow(picture, channel, loaded - (windowSide_ - hop_) / 2, levels, slot(loaded));
    }
    for (int32_t chunk = 0; chunk < chunks_; ++chunk) {
      const int32_t begin = chunk * kDemodulated;
      std::array<const float*, 2 * CarrierWindow::kMost> rows;
      for (int32_t i = 0; i < windowSide_; ++i) rows[i] = slot(hop_ * band + i) + begin;
      std::array<float*, kMostCarriers + 1> real, imaginary;
      for (int32_t k = 0; k < carriers; ++k) {
        real[k] = real_[k].Row(band) + begin;
        imaginary[k] = imaginary_[k].Row(band) + begin;
      }
      kernels.demodulate[window_](rows.data(), phaseFloats_, windows_.data(), carriers, real.data(),
                                  imaginary.data());
    }
  }
}

// Takes the channel's slow changes out of a carrier's row, and gives it the phases of its places.
void Demodulation::SettleRow(int32_t carrier, int32_t y) {
  const CarrierTables& tables = tables_[carrier];
  const float constantReal = tables.y.real[y], constantImaginary = tables.y.imaginary[y],
              share = tables.y.share[y], cosine = tables.waveY.cosine[y], sine = tables.waveY.sine[y];
  const float* const slow = real_.back().Row(y);
  float* const real = real_[carrier].Row(y);
  float* const imaginary = imaginary_[carrier].Row(y);
  for (int32_t x = 0; x < columns_; ++x) {
    const float a = tables.x.real[x], b = tables.x.imaginary[x], inside = share * tables.x.share[x];
    const float re = (real[x] - slow[x] * (a * constantReal - b * constantImaginary)) * inside;
    const float im = (imaginary[x] - slow[x] * (a * constantImaginary + b * constantReal)) * inside;
    real[x] = re * cosine + im * sine;
    imaginary[x] = im * cosine - re * sine;
  }
  ActiveRowKernels().turn(columns_, tables.waveX.cosine.data(), tables.waveX.sine.data(), real, imaginary,
                          real, imaginary);
}

bool Demodulation::Measure(const PictureView& picture, int32_t channel, double sigma, Parallel& parallel,
                           const Progress& progress) {
  const int32_t tasks = (rows_ + kBandsAtOnce - 1) / kBandsAtOnce;
  const bool isStopped = ForEachTask(
      parallel, tasks,
      [&](int32_t task, int32_t worker) {
        MeasureBands(picture, channel, task * kBandsAtOnce, std::min((task + 1) * kBandsAtOnce, rows_),
                     memory_.get() + worker * threadFloats_);
      },
      [&](int32_t finished) { return progress.Advance(finished, tasks); });
  if (isStopped) return true;
  Plane& slow = real_.back();
  const AlongAxis &x = tables_.back().x, &y = tables_.back().y;
  for (int32_t row = 0; row < rows_; ++row) {
    for (int32_t i = 0; i < columns_; ++i) slow.Row(row)[i] *= x.share[i] * y.share[row];
  }
  Blur(GaussianOfRest(sigma, windowVariance(), hop_), parallel, columns_, &slow, &imaginary_.back());
  RowsInParallel(parallel, rows_, [&](int32_t row, int32_t) {
    for (int32_t k = 0; k + 1 < static_cast<int32_t>(windows_.size()); ++k) SettleRow(k, row);
  });
  return false;
}

}  // namespace tessaline
