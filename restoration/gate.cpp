#include "restoration/gate.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <numbers>
#include <vector>

#include "removal/portable_math.h"
#include "removal/spectrum_grid.h"
#include "restoration/row_kernels.h"

namespace tessaline {

// How the gate measures a peak of each scale.
struct GateRule {
  double sigma;          // pixels, of the demodulation
  bool knowsUsual;       // less what is usual beside the carrier
  float closed, opened;  // shares of the picture's strong places, between which it opens
  double softening;      // pixels
  int32_t mostCarriers;
  int32_t reductionOfLarge;  // of the planes that large pictures are measured on, others by 4
};

namespace {

constexpr GateRule kRules[] = {
    {12.0, true, 0.04f, 0.12f, 2.0, kMostCarriers, 8},  // fine
    {5.0, false, 0.06f, 0.20f, 4.0, 4, 4},              // near
    {3.0, false, 0.06f, 0.20f, 4.0, 4, 4},              // far
};
// From here on the gate's edges may lie a little off, for speed: of a page with a halftone, a pixel of 500 by
// more than 20 of 255.
constexpr int64_t kLargePicture = int64_t{2048} * 1024;
const GateRule& RuleOf(const GatePlan& plan) {
  return kRules[static_cast<size_t>(plan.scale)];
}

constexpr float kUsualMargin = 1.5f;
// The narrow demodulation, and the shares of the wide wave between which it cuts the gate off: at a straight
// edge it holds all of it, 4 pixels beyond a half, 7 a quarter.
constexpr double kNearSigma = 4.0;  // pixels
constexpr float kLeastNear = 0.3f, kEnoughNear = 0.5f;
constexpr int32_t kBesideCarrier = 18;    // cells, square to the carrier's direction
constexpr double kStrongShare = 0.98;     // of the places lie below the strong ones
constexpr double kLeastLeadOnAxis = 0.7;  // natural log of magnitudes: twice as strong
constexpr double kCoarsest = 0.6;         // of the strongest carrier's distance from the zero frequency

// From a carrier to a place beside it, where the picture itself is as strong as under it.
Carrier StepBeside(const Carrier& carrier) {
  const double length = std::hypot(carrier.dx, carrier.dy);
  return {static_cast<int32_t>(std::lround(-kBesideCarrier * carrier.dy / length)),
          static_cast<int32_t>(std::lround(kBesideCarrier * carrier.dx / length))};
}

// How much farther from the carrier than wanted the Gaussian of the places beside it stands.
double FartherBeside(const GateRule& rule, const Demodulation& demodulation) {
  const double variance = rule.sigma * rule.sigma;
  return variance / (variance - demodulation.windowVariance());
}

// The weights of a cubic through four samples, a quarter of the way from the second to the third. The power
// is smooth enough for it; straight lines between samples 8 pixels apart would show in the gate.
constexpr float kQuarterWay[] = {-7.0f / 128, 105.0f / 128, 35.0f / 128, -5.0f / 128};

// Row y of a plane with blocks of half the side. `mixed`: scratch, a row of `plane`.
void HalveBlocks(const Plane& plane, int32_t y, float* mixed, int32_t width, float* row) {
  const auto blend = [](int32_t place, int32_t count, const auto& at) {
    const int32_t towards = place % 2 == 0 ? -1 : 1;
    float sum = 0.0f;
    for (int32_t i = 0; i < 4; ++i)
      sum += kQuarterWay[i] * at(Reflected(place / 2 + (i - 1) * towards, count));
    return sum;
  };
  for (int32_t x = 0; x < plane.width; ++x) {
    mixed[x] = blend(y, plane.height, [&](int32_t of) { return plane.Row(of)[x]; });
  }
  for (int32_t x = 0; x < width; ++x) {
    row[x] = blend(x, plane.width, [&](int32_t of) { return mixed[of]; });
  }
}

// The value that a share of the values lies below, between two of them in proportion; they are put in another
// order.
float Percentile(double share, size_t count, float* values) {
  const double place = share * static_cast<double>(count - 1);
  const auto lower = static_cast<size_t>(place);
  std::nth_element(values, values + lower, values + count);
  const float below = values[lower];
  const float above = lower + 1 < count ? *std::min_element(values + lower + 1, values + count) : below;
  return below + static_cast<float>(place - static_cast<double>(lower)) * (above - below);
}

}  // namespace

GatePlan PlanGate(const Findings& findings) {
  GatePlan plan;
  const bool hasFine =
      std::any_of(findings.peaks.begin(), findings.peaks.end(),
                  [](const SpectrumPeak& peak) { return peak.isLicensed && peak.scale == PeakScale::kFine; });
  std::vector<const SpectrumPeak*> licensed;
  for (const SpectrumPeak& peak : findings.peaks) {
    if (peak.isLicensed && (peak.scale == PeakScale::kFine) == hasFine) licensed.push_back(&peak);
  }
  // Where tiles gave the licences each of them tells by its own peaks.
  if (licensed.empty() || licensed.front()->scale == PeakScale::kLocal) return plan;
  plan.scale = licensed.front()->scale;
  const auto magnitude = [](const SpectrumPeak* peak) { return peak->height + peak->background; };
  std::stable_sort(licensed.begin(), licensed.end(),
                   [&](const SpectrumPeak* a, const SpectrumPeak* b) { return magnitude(a) > magnitude(b); });
  // Near the axes text and edges repeat too, so peaks off them tell better where a pattern is. Not where its
  // fundamentals lie on the axes: what is off them is weak then, and missing wherever the dots are half
  // grown.
  const auto isOffAxis = [](const SpectrumPeak* peak) { return !IsNearAxis(peak->dx, peak->dy); };
  const auto strongestOff = std::find_if(licensed.begin(), licensed.end(), isOffAxis);
  if (strongestOff != licensed.end() &&
      magnitude(licensed.front()) < magnitude(*strongestOff) + kLeastLeadOnAxis) {
    std::erase_if(licensed, [&](const SpectrumPeak* peak) { return !isOffAxis(peak); });
  }
  // What is much coarser than the strongest is a rosette of several inks; there text is as strong.
  const auto distance = [](const SpectrumPeak* peak) { return std::hypot(peak->dx, peak->dy); };
  for (const SpectrumPeak* const peak : licensed) {
    if (static_cast<int32_t>(plan.carriers.size()) == RuleOf(plan).mostCarriers) break;
    if (distance(peak) < kCoarsest * distance(licensed.front())) continue;
    plan.carriers.push_back({peak->dx, peak->dy});
  }
  return plan;
}

// The demodulation's window is no flat one: together with it a Gaussian of what is left of the variance
// stands nearer to the carrier than where it is put, so that it is put farther away.
Gate::Beside::Beside(const Carrier& step, const Demodulation& demodulation, const GateRule& rule,
                     int32_t reduction)
    : acrossX(step.dx * FartherBeside(rule, demodulation), reduction, demodulation.columns()),
      acrossY(step.dy * FartherBeside(rule, demodulation), reduction, GaussianKernel::kMostReach + 1) {
  const double variance = rule.sigma * rule.sigma - demodulation.windowVariance();
  const double beyond = (FartherBeside(rule, demodulation) - 1.0) * std::hypot(step.dx, step.dy) *
                        (2.0 * std::numbers::pi / kSpectrumCells);
  const double left = demodulation.WindowGain(step) * PortableExp(-0.5 * variance * beyond * beyond);
  gain = static_cast<float>(1.0 / (left * left));
}

// A thread's rows, with borders.
struct Gate::Scratch {
  static constexpr int32_t kRows = 12;
  float* memory;
  int32_t columns;

  static size_t RowFloats(int32_t columns) {
    return static_cast<size_t>(columns) + 2 * GaussianKernel::kMostReach;
  }
  float* Row(int32_t i) const {
    return memory + static_cast<size_t>(i) * RowFloats(columns) + GaussianKernel::kMostReach;
  }
};

namespace {

// The rows and weights of a Gaussian down the columns round a row; borders mirror.
struct GaussianDown {
  static constexpr int32_t kMost = 2 * GaussianKernel::kMostReach + 1;
  int32_t terms = 0;
  int32_t distance[kMost];
  float weights[kMost];

  GaussianDown(const GaussianKernel& kernel, int32_t y, int32_t rows) {
    for (int32_t i = -kernel.reach; i <= kernel.reach; ++i, ++terms) {
      distance[terms] = Reflected(y + i, rows) - y;
      weights[terms] = kernel.weights[static_cast<size_t>(std::abs(i))];
    }
  }
  void Weigh(const Plane& plane, int32_t y, const float* by, int32_t columns, float* sums) const {
    const float* rows[kMost];
    for (int32_t i = 0; i < terms; ++i) rows[i] = plane.Row(y + distance[i]);
    ActiveRowKernels().weigh(terms, rows, by, columns, sums);
  }
};

void BlurAlong(const GaussianKernel& kernel, float* row, int32_t columns, float* blurred) {
  constexpr int32_t kMost = GaussianDown::kMost;
  const float* rows[kMost];
  float weights[kMost];
  MirrorBorders(row, columns, kernel.reach);
  for (int32_t i = -kernel.reach; i <= kernel.reach; ++i) {
    rows[i + kernel.reach] = row + i;
    weights[i + kernel.reach] = kernel.weights[static_cast<size_t>(std::abs(i))];
  }
  ActiveRowKernels().weigh(2 * kernel.reach + 1, rows, weights, columns, blurred);
}

}  // namespace

bool Gate::Prepare(const PictureView& picture, const GatePlan& plan, int32_t threads, std::span<float> lent) {
  const int32_t width = picture.width, height = picture.height;
  PlaneMemory memory(lent);
  plan_ = plan;
  if (!open_.Create(ReducedSide(width, kReduction), ReducedSide(height, kReduction))) return false;
  if (plan.carriers.empty()) return true;
  const GateRule& rule = RuleOf(plan);
  reduction_ = int64_t{width} * height >= kLargePicture ? rule.reductionOfLarge : kReduction;
  if (!demodulation_.Prepare(width, height, picture.channels, reduction_, plan.carriers, threads, &memory)) {
    return false;
  }
  for (const Carrier& carrier : plan.carriers) {
    if (rule.knowsUsual) beside_.emplace_back(StepBeside(carrier), demodulation_, rule, reduction_);
  }
  threadFloats_ = std::max(Scratch::kRows * Scratch::RowFloats(demodulation_.columns()),
                           2 * static_cast<size_t>(open_.width) * kReduction);
  memory_ = AllocateBlock<float>(threadFloats_ * static_cast<size_t>(threads));
  const bool hasEdges = plan.isCutAtEdges && rule.knowsUsual;  // a smeared peak's demodulation is narrow
  const int32_t columns = demodulation_.columns(), rows = demodulation_.rows();
  return memory_ && softened_.CreateIn(&memory, open_.width, open_.height) &&
         amplitude_.CreateIn(&memory, open_.width, open_.height) &&
         pattern_.CreateIn(&memory, columns, rows) && usual_.CreateIn(&memory, columns, rows) &&
         (!hasEdges || (near_.CreateIn(&memory, columns, rows) && wide_.CreateIn(&memory, columns, rows)));
}

// Adds a channel's power at the carriers and beside them, where it is greater than the other channels'.
void Gate::AddRow(int32_t y, const Scratch& scratch) {
  const RowKernels& kernels = ActiveRowKernels();
  const GateRule& rule = RuleOf(plan_);
  const int32_t columns = demodulation_.columns();
  const GaussianKernel kernel = GaussianOfRest(rule.sigma, demodulation_.windowVariance(), reduction_);
  const GaussianDown down(kernel, y, demodulation_.rows());
  const GaussianKernel nearKernel = GaussianOfRest(kNearSigma, demodulation_.windowVariance(), reduction_);
  const GaussianDown nearDown(nearKernel, y, demodulation_.rows());
  float* const power[2] = {scratch.Row(0), scratch.Row(1)};
  for (float* const row : power) std::fill_n(row, columns, 0.0f);
  float *const real = scratch.Row(2), *const imaginary = scratch.Row(3);
  float *const blurredReal = scratch.Row(4), *const blurredImaginary = scratch.Row(5);
  const auto addPower = [&](float gain, float* sum) {
    BlurAlong(kernel, real, columns, blurredReal);
    BlurAlong(kernel, imaginary, columns, blurredImaginary);
    kernels.addPower(columns, gain, blurredReal, blurredImaginary, sum);
  };
  for (size_t k = 0; k < plan_.carriers.size(); ++k) {
    const Plane &ofReal = demodulation_.real(static_cast<int32_t>(k)),
                &ofImaginary = demodulation_.imaginary(static_cast<int32_t>(k));
    down.Weigh(ofReal, y, down.weights, columns, real);
    down.Weigh(ofImaginary, y, down.weights, columns, imaginary);
    addPower(1.0f, power[0]);
    if (near_.width > 0) {
      float *const nearReal = scratch.Row(6), *const nearImaginary = scratch.Row(7);
      nearDown.Weigh(ofReal, y, nearDown.weights, columns, real);
      nearDown.Weigh(ofImaginary, y, nearDown.weights, columns, imaginary);
      BlurAlong(nearKernel, real, columns, nearReal);
      BlurAlong(nearKernel, imaginary, columns, nearImaginary);
      float *const near = near_.Row(y), *const wide = wide_.Row(y);
      for (int32_t x = 0; x < columns; ++x) {
        near[x] += nearReal[x] * blurredReal[x] + nearImaginary[x] * blurredImaginary[x];
        wide[x] += blurredReal[x] * blurredReal[x] + blurredImaginary[x] * blurredImaginary[x];
      }
    }
    if (beside_.empty()) continue;
    const Beside& beside = beside_[k];
    float cosines[GaussianDown::kMost], sines[GaussianDown::kMost];
    for (int32_t i = 0; i < down.terms; ++i) {
      const auto turn = static_cast<size_t>(std::abs(down.distance[i]));
      cosines[i] = down.weights[i] * beside.acrossY.cosine[turn];
      sines[i] = down.weights[i] * (down.distance[i] < 0 ? -1.0f : 1.0f) * beside.acrossY.sine[turn];
    }
    float *const cosineReal = scratch.Row(6), *const cosineImaginary = scratch.Row(7),
                 *const sineReal = scratch.Row(8), *const sineImaginary = scratch.Row(9);
    down.Weigh(ofReal, y, cosines, columns, cosineReal);
    down.Weigh(ofImaginary, y, cosines, columns, cosineImaginary);
    down.Weigh(ofReal, y, sines, columns, sineReal);
    down.Weigh(ofImaginary, y, sines, columns, sineImaginary);
    for (const float side : {1.0f, -1.0f}) {
      kernels.turnBeside(columns, side, beside.acrossX.cosine.data(), beside.acrossX.sine.data(),
                         {cosineReal, cosineImaginary, sineReal, sineImaginary}, real, imaginary);
      addPower(beside.gain, power[1]);
    }
  }
  for (int32_t x = 0; x < columns; ++x) {
    pattern_.Row(y)[x] = std::max(pattern_.Row(y)[x], power[0][x]);
    usual_.Row(y)[x] = std::max(usual_.Row(y)[x], power[1][x]);
  }
}

// The square of the pattern's amplitude, less what is usual, as reduced as the gate is.
void Gate::TakeUsualOff() {
  const int32_t width = pattern_.width, height = pattern_.height;
  Plane& square = pattern_;
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      const float usual = 0.5f * usual_.Row(y)[x];  // two places beside each carrier
      square.Row(y)[x] -= kUsualMargin * kUsualMargin * usual;
    }
  }
  const int32_t times = reduction_ / kReduction;
  for (int32_t y = 0; y < amplitude_.height; ++y) {
    float* const row = amplitude_.Row(y);
    if (times == 1) {
      std::copy_n(square.Row(y), width, row);
    } else {
      HalveBlocks(square, y, usual_.Row(0), amplitude_.width, row);  // of no more use
    }
    for (int32_t x = 0; x < amplitude_.width; ++x) {
      row[x] = row[x] > 0.0f ? std::sqrt(row[x]) : 0.0f;  // not-a-number too
    }
  }
}

void Gate::OpenWherePattern(Parallel& parallel) {
  const GateRule& rule = RuleOf(plan_);
  float strong = plan_.strong;
  if (strong == 0.0f) {
    const size_t count = static_cast<size_t>(amplitude_.width) * static_cast<size_t>(amplitude_.height);
    std::copy_n(amplitude_.samples.get(), count, softened_.samples.get());
    strong = Percentile(kStrongShare, count, softened_.samples.get());
  }
  const float closed = rule.closed * strong, span = (rule.opened - rule.closed) * strong;
  // The step is steeper than a block: it is taken at every pixel, and the blocks' means are kept.
  RowsInParallel(parallel, open_.height, [&](int32_t blockY, int32_t worker) {
    const int32_t pixels = open_.width * kReduction;
    float* const row = memory_.get() + static_cast<size_t>(worker) * threadFloats_;
    float* const steps = row + pixels;
    std::fill_n(steps, pixels, 0.0f);
    for (int32_t y = blockY * kReduction; span > 0.0f && y < (blockY + 1) * kReduction; ++y) {
      EnlargeRow(amplitude_, kReduction, y, 0, open_.width, row);
      ActiveRowKernels().addSteps(pixels, row, closed, 1.0f / span, steps);
    }
    for (int32_t x = 0; x < open_.width; ++x) {
      float sum = 0.0f;
      for (int32_t i = 0; i < kReduction; ++i) sum += steps[kReduction * x + i];
      open_.Row(blockY)[x] = sum / (kReduction * kReduction);
    }
  });
  const double done = VarianceOfBlocks(kReduction) + VarianceOfEnlarging(kReduction);
  Blur(GaussianOfRest(rule.softening, done, kReduction), parallel, open_.width, &open_, &softened_);
}

// Closes it where the wave comes from beside, at the middle of every block.
void Gate::CutAtEdges() {
  const int32_t times = reduction_ / kReduction;
  float* const memory = memory_.get();  // a thread's, who has others of no use
  for (int32_t y = 0; y < open_.height; ++y) {
    const float *near = near_.Row(y / times), *wide = wide_.Row(y / times);
    if (times > 1) {
      float *const mixed = memory, *const nearRow = mixed + open_.width,
                   *const wideRow = nearRow + open_.width;
      HalveBlocks(near_, y, mixed, open_.width, nearRow);
      HalveBlocks(wide_, y, mixed, open_.width, wideRow);
      near = nearRow, wide = wideRow;
    }
    for (int32_t x = 0; x < open_.width; ++x) {
      const float above = near[x] - kLeastNear * wide[x], span = (kEnoughNear - kLeastNear) * wide[x];
      const float part = above >= span ? 1.0f : above > 0.0f ? above / span : 0.0f;
      open_.Row(y)[x] *= part * part * (3.0f - 2.0f * part);
    }
  }
}

bool Gate::Measure(const PictureView& picture, Parallel& parallel, const Progress& progress) {
  if (plan_.carriers.empty()) {
    std::fill_n(open_.samples.get(), static_cast<size_t>(open_.width) * static_cast<size_t>(open_.height),
                1.0f);
    return false;
  }
  if (MeasureAmplitude(picture, parallel, progress)) return true;
  OpenWherePattern(parallel);
  if (near_.width > 0) CutAtEdges();
  near_ = {};
  wide_ = {};
  demodulation_ = {};
  beside_ = {};
  pattern_ = {};
  usual_ = {};
  amplitude_ = {};
  softened_ = {};
  memory_.reset();
  return false;
}

bool Gate::IsOpen(int32_t x, int32_t y, int32_t columns, int32_t rows) const {
  constexpr float kWide = 0.999f;
  const int32_t left = std::max(x / kReduction - 1, 0), top = std::max(y / kReduction - 1, 0);
  const int32_t right = std::min(ReducedSide(x + columns, kReduction) + 1, open_.width);
  const int32_t bottom = std::min(ReducedSide(y + rows, kReduction) + 1, open_.height);
  for (int32_t row = top; row < bottom; ++row) {
    const float* const open = open_.Row(row);
    if (std::any_of(open + left, open + right, [](float part) { return part < kWide; })) return false;
  }
  return true;
}

// In a large picture each carrier is looked for where it is strongest; that is a channel's own ink as a rule.
bool Gate::MeasureAmplitude(const PictureView& picture, Parallel& parallel, const Progress& progress) {
  std::vector<CarrierChannels> looked;
  if (reduction_ > kReduction && picture.channels > 1) {
    looked.push_back(demodulation_.StrongestChannels(picture, parallel));
  } else {
    for (int32_t c = 0; c < picture.channels; ++c) looked.emplace_back(plan_.carriers.size(), c);
  }
  for (Plane* const plane : {&pattern_, &usual_, &near_, &wide_}) {
    std::fill_n(plane->Row(0), static_cast<size_t>(plane->width) * static_cast<size_t>(plane->height), 0.0f);
  }
  for (size_t i = 0; i < looked.size(); ++i) {
    const auto count = static_cast<double>(looked.size()), done = static_cast<double>(i);
    const Progress part = progress.Part(done / count, (done + 1.0) / count);
    if (demodulation_.Measure(picture, looked[i], RuleOf(plan_).sigma, parallel, part)) return true;
    RowsInParallel(parallel, demodulation_.rows(), [&](int32_t y, int32_t worker) {
      Scratch scratch{memory_.get() + static_cast<size_t>(worker) * threadFloats_, demodulation_.columns()};
      AddRow(y, scratch);
    });
  }
  TakeUsualOff();
  return false;
}

void Gate::AddAmplitudes(const PictureView& picture, std::vector<float>* amplitudes) {
  MeasureAmplitude(picture, SerialWork(), {});
  for (int32_t y = 0; y < amplitude_.height; ++y) {
    amplitudes->insert(amplitudes->end(), amplitude_.Row(y), amplitude_.Row(y) + amplitude_.width);
  }
}

float MeasureStrong(const TiledPicture& tiled, const Findings& findings) {
  const GatePlan plan = PlanGate(findings);
  std::vector<float> amplitudes;
  for (size_t i = 0; i < tiled.tiles.size() && !plan.carriers.empty(); ++i) {
    Gate gate;
    const PictureView tile = TileOf(tiled, i);
    if (!gate.Prepare(tile, plan, 1)) throw std::bad_alloc();
    gate.AddAmplitudes(tile, &amplitudes);
  }
  return amplitudes.empty() ? 0.0f : Percentile(kStrongShare, amplitudes.size(), amplitudes.data());
}

}  // namespace tessaline
