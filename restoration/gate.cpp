#include "restoration/gate.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <new>
#include <numbers>
#include <vector>

#include "removal/portable_math.h"
#include "removal/spectrum_grid.h"
#include "restoration/gate_holes.h"
#include "restoration/licensed_peaks.h"
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
    // In parts: the shares by which drawn pages of writing keep it and their pictures lose the screen.
    {4.0, false, 0.30f, 0.45f, 4.0, kMostCarriers, 4},
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
constexpr int32_t kBesideCarrier = 18;    // cells
constexpr double kStrongShare = 0.98;     // of the places lie below the strong ones
constexpr double kLeastLeadOnAxis = 0.7;  // natural log of magnitudes: twice as strong
constexpr double kCoarsest = 0.6;         // of the strongest carrier's distance from the zero frequency

// What other peaks, and their mirror images, have at a place `step` beside a carrier and opposite it, as the
// demodulation sees them: shares of the carrier's power.
double PowerOfOthers(const Carrier& carrier, double magnitude, const Carrier& step, double sigma,
                     const std::vector<SpectrumPeak>& used) {
  const double width = 2.0 * std::numbers::pi * sigma / kSpectrumCells;
  const auto wrapped = [](int32_t cells) {
    return ((cells + kSpectrumCentre) & (kSpectrumCells - 1)) - kSpectrumCentre;
  };
  double power = 0.0;
  for (const SpectrumPeak& peak : used) {
    if (peak.dx == carrier.dx && peak.dy == carrier.dy) continue;
    for (const int32_t mirror : {1, -1}) {
      for (const int32_t side : {1, -1}) {
        const double dx = wrapped(mirror * peak.dx - carrier.dx - side * step.dx),
                     dy = wrapped(mirror * peak.dy - carrier.dy - side * step.dy);
        power += PortableExp(2.0 * (MagnitudeOf(peak) - magnitude) - width * width * (dx * dx + dy * dy));
      }
    }
  }
  return power;
}

// From a carrier to a place beside it, where the picture itself is as strong as under it: square to the
// carrier's direction, unless another peak of the pattern lies there, as the next ink's does in coarse
// prints.
Carrier StepBeside(const SpectrumPeak& carrier, double sigma, const std::vector<SpectrumPeak>& used) {
  constexpr double kMostOfOthers = 0.02;
  constexpr double kDistances[] = {1.0, 1.4, 0.8};
  constexpr double kTurns[] = {0.0, 45.0, -45.0, 90.0, 22.5, -22.5, 67.5, -67.5};
  const double length = std::hypot(carrier.dx, carrier.dy);
  const Carrier place{carrier.dx, carrier.dy};
  Carrier best{0, 0};
  double least = 0.0;
  for (const double distance : kDistances) {
    for (const double turn : kTurns) {
      const double cosine = std::cos(turn * std::numbers::pi / 180),
                   sine = std::sin(turn * std::numbers::pi / 180);
      const double cells = distance * kBesideCarrier / length;
      const Carrier step{
          static_cast<int32_t>(std::lround(cells * (-cosine * carrier.dy - sine * carrier.dx))),
          static_cast<int32_t>(std::lround(cells * (cosine * carrier.dx - sine * carrier.dy)))};
      const double others = PowerOfOthers(place, MagnitudeOf(carrier), step, sigma, used);
      if (others < kMostOfOthers) return step;
      if ((best.dx == 0 && best.dy == 0) || others < least) best = step, least = others;
    }
  }
  return best;
}

// By the screens of a page's inks, in their order.
GatePlan PlanByInk(const std::vector<SpectrumPeak>& peaks) {
  GatePlan plan;
  plan.scale = PeakScale::kParts;
  plan.isByInk = true;
  for (const SpectrumPeak& peak : peaks) {
    if (!peak.isLicensed || plan.carriers.size() == kMostCarriers) continue;
    plan.carriers.push_back({peak.dx, peak.dy});
  }
  if (plan.carriers.size() % 2 != 0) plan.carriers.pop_back();  // of a pair that somebody took apart
  return plan;
}

// How much farther from the carrier than wanted the Gaussian of the places beside it stands.
double FartherBeside(const GateRule& rule, const Demodulation& demodulation) {
  const double variance = rule.sigma * rule.sigma;
  return variance / (variance - demodulation.windowVariance());
}

// The weights of a cubic through four samples, a quarter of the way from the second to the third. The power
// is smooth enough for it; straight lines between samples 8 pixels apart would show in the gate.
constexpr Cubic kQuarterWay = {-7.0f / 128, 105.0f / 128, 35.0f / 128, -5.0f / 128};

// Row y of a plane with blocks of half the side, two for each of `plane`. `mixed`: scratch, a row of it with
// two places to either side.
void HalveBlocks(const Plane& plane, int32_t y, float* mixed, float* row) {
  const RowKernels& kernels = ActiveRowKernels();
  const int32_t towards = y % 2 == 0 ? -1 : 1;
  const float* rows[4];
  for (int32_t i = 0; i < 4; ++i) rows[i] = plane.Row(Reflected(y / 2 + (i - 1) * towards, plane.height));
  kernels.blendRows(plane.width, rows, kQuarterWay, mixed);
  MirrorBorders(mixed, plane.width, 2);
  kernels.doubleRow(plane.width, mixed, kQuarterWay, row);
}

// The value that a share of the values lies below, between two of them in proportion. `scratch` has as many.
float Percentile(double share, std::span<const float> values, float* scratch) {
  const double place = share * static_cast<double>(values.size() - 1);
  const auto lower = static_cast<size_t>(place);
  // Some of the values tell where to look: what lies clearly below is only counted.
  constexpr size_t kOneOf = 64;
  constexpr double kClearly = 0.01;
  size_t looked = 0;
  for (size_t i = 0; i < values.size(); i += kOneOf) scratch[looked++] = values[i];
  const auto least = static_cast<size_t>((share - kClearly) * static_cast<double>(looked - 1));
  std::nth_element(scratch, scratch + least, scratch + looked);
  const float floor = scratch[least];
  size_t count = 0;
  for (const float value : values) {
    scratch[count] = value;
    count += value >= floor ? 1 : 0;
  }
  size_t below = values.size() - count;
  if (below > lower) {  // they told wrong
    std::copy(values.begin(), values.end(), scratch);
    count = values.size(), below = 0;
  }
  float* const end = scratch + count;
  float* const found = scratch + (lower - below);
  std::nth_element(scratch, found, end);
  const float next = found + 1 < end ? *std::min_element(found + 1, end) : *found;
  return *found + static_cast<float>(place - static_cast<double>(lower)) * (next - *found);
}

}  // namespace

GatePlan PlanGate(const Findings& findings) {
  GatePlan plan;
  std::vector<SpectrumPeak> licensed = LicensedByMagnitude(findings);
  const auto isFine = [](const SpectrumPeak& peak) { return peak.scale == PeakScale::kFine; };
  const bool hasFine = std::any_of(licensed.begin(), licensed.end(), isFine);
  std::erase_if(licensed, [&](const SpectrumPeak& peak) { return isFine(peak) != hasFine; });
  if (licensed.empty()) return plan;
  // Where tiles gave the licences each of them tells by its own peaks, and lines go all the way.
  const PeakScale scale = licensed.front().scale;
  if (scale == PeakScale::kLocal || scale == PeakScale::kLines) return plan;
  if (scale == PeakScale::kParts) return PlanByInk(findings.peaks);
  plan.scale = scale;
  // Near the axes text and edges repeat too, so peaks off them tell better where a pattern is. Not where its
  // fundamentals lie on the axes: what is off them is weak then, and missing wherever the dots are half
  // grown.
  const auto isOffAxis = [](const SpectrumPeak& peak) { return !IsNearAxis(peak.dx, peak.dy); };
  const auto strongestOff = std::find_if(licensed.begin(), licensed.end(), isOffAxis);
  if (strongestOff != licensed.end() &&
      MagnitudeOf(licensed.front()) < MagnitudeOf(*strongestOff) + kLeastLeadOnAxis) {
    std::erase_if(licensed, [&](const SpectrumPeak& peak) { return !isOffAxis(peak); });
  }
  // What is much coarser than the strongest is a rosette of several inks; there text is as strong.
  const auto distance = [](const SpectrumPeak& peak) { return std::hypot(peak.dx, peak.dy); };
  std::vector<SpectrumPeak> used = findings.peaks;
  // One ink of four, as far apart as a JPEG's blocks, is left to them.
  std::erase_if(used, [](const SpectrumPeak& peak) {
    return peak.verdict != PeakVerdict::kUsed && peak.verdict != PeakVerdict::kBlocks;
  });
  for (const SpectrumPeak& peak : licensed) {
    if (static_cast<int32_t>(plan.carriers.size()) == RuleOf(plan).mostCarriers) break;
    if (distance(peak) < kCoarsest * distance(licensed.front())) continue;
    plan.carriers.push_back({peak.dx, peak.dy});
    if (RuleOf(plan).knowsUsual) plan.beside.push_back(StepBeside(peak, RuleOf(plan).sigma, used));
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

Gate::Scratch Gate::ScratchOf(int32_t worker) {
  return {memory_.get() + static_cast<size_t>(worker) * threadFloats_, demodulation_.columns()};
}

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

// Of a row of blocks, where the step is 0 or 1 at every pixel, because the block and its neighbours are all
// clearly below it or above.
class PlainSteps {
 public:
  static constexpr float kUnknown = -1.0f;

  PlainSteps(const Plane& amplitude, int32_t y, float closed, float opened)
      : last_(amplitude.width - 1), below_(closed * (1.0f - kRounding)), above_(opened * (1.0f + kRounding)) {
    for (int32_t i = 0; i < 3; ++i) rows_[i] = amplitude.Row(std::clamp(y - 1 + i, 0, amplitude.height - 1));
  }
  float At(int32_t x) const {
    const float middle = rows_[1][x];
    const bool isAbove = middle > above_;
    if (!isAbove && !(middle < below_)) return kUnknown;
    for (const float* const row : rows_) {
      for (const int32_t at : {std::max(x - 1, 0), x, std::min(x + 1, last_)}) {
        if (isAbove ? !(row[at] > above_) : !(row[at] < below_)) return kUnknown;
      }
    }
    return isAbove ? 1.0f : 0.0f;
  }

 private:
  static constexpr float kRounding = 1e-4f;  // more than that of what lies between two blocks
  const float* rows_[3];
  int32_t last_;
  float below_, above_;
};

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
  kernels_ = {GaussianOfRest(rule.sigma, demodulation_.windowVariance(), reduction_),
              GaussianOfRest(kNearSigma, demodulation_.windowVariance(), reduction_)};
  if (plan.isByInk && picture.channels > 1) colouredInks_.resize(plan.carriers.size() / 2 - 1);
  for (ColouredInk& ink : colouredInks_) {
    if (!ink.most.CreateIn(&memory, demodulation_.columns(), demodulation_.rows()) ||
        !ink.least.CreateIn(&memory, demodulation_.columns(), demodulation_.rows())) {
      return false;
    }
  }
  for (const Carrier& step : plan.beside) beside_.emplace_back(step, demodulation_, rule, reduction_);
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
  const int32_t columns = demodulation_.columns();
  const GaussianDown down(kernels_.wide, y, demodulation_.rows());
  const GaussianDown nearDown(kernels_.near, y, demodulation_.rows());
  float* const power[2] = {scratch.Row(0), scratch.Row(1)};
  for (float* const row : power) std::fill_n(row, columns, 0.0f);
  float *const real = scratch.Row(2), *const imaginary = scratch.Row(3);
  float *const blurredReal = scratch.Row(4), *const blurredImaginary = scratch.Row(5);
  const auto addPower = [&](float gain, float* sum) {
    BlurAlong(kernels_.wide, real, columns, blurredReal);
    BlurAlong(kernels_.wide, imaginary, columns, blurredImaginary);
    kernels.addPower(columns, gain, blurredReal, blurredImaginary, sum);
  };
  for (size_t k = 0; k < plan_.carriers.size(); ++k) {
    const Plane &ofReal = demodulation_.real(static_cast<int32_t>(k)),
                &ofImaginary = demodulation_.imaginary(static_cast<int32_t>(k));
    down.Weigh(ofReal, y, down.weights, columns, real);
    down.Weigh(ofImaginary, y, down.weights, columns, imaginary);
    addPower(1.0f, power[0]);
    if (near_.width > 0) {
      ComplexRow narrow{ofReal.Row(y), ofImaginary.Row(y)};
      if (kernels_.near.reach > 0) {  // else the window has blurred as much already
        float *const nearReal = scratch.Row(6), *const nearImaginary = scratch.Row(7);
        nearDown.Weigh(ofReal, y, nearDown.weights, columns, real);
        nearDown.Weigh(ofImaginary, y, nearDown.weights, columns, imaginary);
        BlurAlong(kernels_.near, real, columns, nearReal);
        BlurAlong(kernels_.near, imaginary, columns, nearImaginary);
        narrow = {nearReal, nearImaginary};
      }
      kernels.addNear(columns, narrow, {blurredReal, blurredImaginary}, near_.Row(y), wide_.Row(y));
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

// Adds a channel's power of every ink, which has both of its directions where it is printed. Strokes of
// writing have one.
void Gate::AddInks(int32_t y, const Scratch& scratch) {
  const int32_t columns = demodulation_.columns();
  const GaussianDown down(kernels_.wide, y, demodulation_.rows());
  const auto powerOf = [&](size_t carrier, float* power) {
    float *const real = scratch.Row(2), *const imaginary = scratch.Row(3);
    float *const blurredReal = scratch.Row(4), *const blurredImaginary = scratch.Row(5);
    down.Weigh(demodulation_.real(static_cast<int32_t>(carrier)), y, down.weights, columns, real);
    down.Weigh(demodulation_.imaginary(static_cast<int32_t>(carrier)), y, down.weights, columns, imaginary);
    BlurAlong(kernels_.wide, real, columns, blurredReal);
    BlurAlong(kernels_.wide, imaginary, columns, blurredImaginary);
    std::fill_n(power, columns, 0.0f);
    ActiveRowKernels().addPower(columns, 1.0f, blurredReal, blurredImaginary, power);
  };
  float *const along = scratch.Row(0), *const across = scratch.Row(1);
  float* const pattern = pattern_.Row(y);
  for (size_t ink = 0; ink <= colouredInks_.size(); ++ink) {
    powerOf(2 * ink, along);
    powerOf(2 * ink + 1, across);
    for (int32_t x = 0; x < columns; ++x) {
      const float power = 2.0f * std::sqrt(along[x] * across[x]);
      if (ink == 0) {
        pattern[x] = std::max(pattern[x], power);
      } else {
        ColouredInk& of = colouredInks_[ink - 1];
        of.most.Row(y)[x] = std::max(of.most.Row(y)[x], power);
        of.least.Row(y)[x] = std::min(of.least.Row(y)[x], power);
      }
    }
  }
}

// When every channel was added.
void Gate::AddColouredInks(Parallel& parallel) {
  RowsInParallel(parallel, pattern_.height, [&](int32_t y, int32_t) {
    float* const pattern = pattern_.Row(y);
    for (const ColouredInk& ink : colouredInks_) {
      for (int32_t x = 0; x < pattern_.width; ++x) {
        pattern[x] = std::max(pattern[x], ink.most.Row(y)[x] - ink.least.Row(y)[x]);
      }
    }
  });
}

// The square of the pattern's amplitude, less what is usual, as reduced as the gate is.
void Gate::TakeUsualOff(Parallel& parallel) {
  const int32_t width = pattern_.width;
  Plane& square = pattern_;
  RowsInParallel(parallel, pattern_.height, [&](int32_t y, int32_t) {
    float* const row = square.Row(y);
    const float* const usualRow = usual_.Row(y);
    for (int32_t x = 0; x < width; ++x) {
      const float usual = 0.5f * usualRow[x];  // two places beside each carrier
      row[x] -= kUsualMargin * kUsualMargin * usual;
    }
  });
  const bool isHalved = reduction_ > kReduction;
  RowsInParallel(parallel, amplitude_.height, [&](int32_t y, int32_t worker) {
    const Scratch scratch = ScratchOf(worker);
    const float* squares = square.Row(isHalved ? 0 : y);
    if (isHalved) {
      HalveBlocks(square, y, scratch.Row(0), scratch.Row(1));
      squares = scratch.Row(1);
    }
    float* const row = amplitude_.Row(y);
    for (int32_t x = 0; x < amplitude_.width; ++x) {
      row[x] = squares[x] > 0.0f ? std::sqrt(squares[x]) : 0.0f;  // not-a-number too
    }
  });
}

void Gate::OpenWherePattern(Parallel& parallel) {
  const GateRule& rule = RuleOf(plan_);
  float strong = plan_.strong;
  if (strong == 0.0f) {
    const size_t count = static_cast<size_t>(amplitude_.width) * static_cast<size_t>(amplitude_.height);
    strong = Percentile(kStrongShare, {amplitude_.samples.get(), count}, softened_.samples.get());
  }
  const float closed = rule.closed * strong, span = (rule.opened - rule.closed) * strong;
  // The step is steeper than a block: where it is not plain from the neighbours it is taken at every pixel,
  // and the blocks' means are kept.
  RowsInParallel(parallel, open_.height, [&](int32_t blockY, int32_t worker) {
    float* const row = memory_.get() + static_cast<size_t>(worker) * threadFloats_;
    float* const steps = row + open_.width * kReduction;
    float* const open = open_.Row(blockY);
    if (!(span > 0.0f)) {  // no pattern
      std::fill_n(open, open_.width, 0.0f);
      return;
    }
    const PlainSteps plain(amplitude_, blockY, closed, closed + span);
    for (int32_t first = 0, end = 0; first < open_.width; first = end) {
      const float step = plain.At(first);
      for (end = first; end < open_.width && plain.At(end) == step; ++end) open[end] = step;
      if (step != PlainSteps::kUnknown) continue;
      const int32_t blocks = end - first, pixels = blocks * kReduction;
      std::fill_n(steps, pixels, 0.0f);
      for (int32_t y = blockY * kReduction; y < (blockY + 1) * kReduction; ++y) {
        EnlargeRow(amplitude_, kReduction, y, first, blocks, row);
        ActiveRowKernels().addSteps(pixels, row, closed, 1.0f / span, steps);
      }
      for (int32_t x = 0; x < blocks; ++x) {
        float sum = 0.0f;
        for (int32_t i = 0; i < kReduction; ++i) sum += steps[kReduction * x + i];
        open[first + x] = sum / (kReduction * kReduction);
      }
    }
  });
  const double done = VarianceOfBlocks(kReduction) + VarianceOfEnlarging(kReduction);
  Blur(GaussianOfRest(rule.softening, done, kReduction), parallel, open_.width, &open_, &softened_);
}

// Closes it where the wave comes from beside, at the middle of every block.
void Gate::CutAtEdges(Parallel& parallel) {
  const bool isHalved = reduction_ > kReduction;
  RowsInParallel(parallel, open_.height, [&](int32_t y, int32_t worker) {
    const Scratch scratch = ScratchOf(worker);
    const float *near = near_.Row(isHalved ? 0 : y), *wide = wide_.Row(isHalved ? 0 : y);
    if (isHalved) {
      float *const nearRow = scratch.Row(1), *const wideRow = scratch.Row(3);  // of two rows each
      HalveBlocks(near_, y, scratch.Row(0), nearRow);
      HalveBlocks(wide_, y, scratch.Row(0), wideRow);
      near = nearRow, wide = wideRow;
    }
    float* const open = open_.Row(y);
    for (int32_t x = 0; x < open_.width; ++x) {
      const float above = near[x] - kLeastNear * wide[x], span = (kEnoughNear - kLeastNear) * wide[x];
      if (above >= span) continue;
      const float part = above > 0.0f ? above / span : 0.0f;
      open[x] *= part * part * (3.0f - 2.0f * part);
    }
  });
}

bool Gate::Measure(const PictureView& picture, Parallel& parallel, const Progress& progress) {
  if (plan_.carriers.empty()) {
    std::fill_n(open_.samples.get(), static_cast<size_t>(open_.width) * static_cast<size_t>(open_.height),
                1.0f);
    return false;
  }
  if (MeasureAmplitude(picture, parallel, progress)) return true;
  OpenWherePattern(parallel);
  if (near_.width > 0) CutAtEdges(parallel);
  if (plan_.isCutAtEdges) {
    const bool isPart = plan_.strong > 0.0f;
    OpenHoles(isPart, &open_, &softened_);
    CloseIslands(isPart, &open_, &softened_);
  }
  near_ = {};
  wide_ = {};
  demodulation_ = {};
  beside_ = {};
  pattern_ = {};
  colouredInks_.clear();
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
    int32_t closed = 0;  // counted, not looked for: in whole vectors
    for (int32_t block = left; block < right; ++block) closed += open[block] < kWide ? 1 : 0;
    if (closed > 0) return false;
  }
  return true;
}

// In a large picture each carrier is looked for in one channel where that tells; a channel's own ink as a
// rule.
bool Gate::MeasureAmplitude(const PictureView& picture, Parallel& parallel, const Progress& progress) {
  std::vector<CarrierChannels> looked;
  if (reduction_ > kReduction && picture.channels > 1) {
    looked = demodulation_.ChannelsToMeasure(picture, parallel);
  } else {
    for (int32_t c = 0; c < picture.channels; ++c) looked.emplace_back(plan_.carriers.size(), c);
  }
  for (Plane* const plane : {&pattern_, &usual_, &near_, &wide_}) {
    std::fill_n(plane->Row(0), static_cast<size_t>(plane->width) * static_cast<size_t>(plane->height), 0.0f);
  }
  for (ColouredInk& ink : colouredInks_) {
    const size_t count = static_cast<size_t>(ink.most.width) * static_cast<size_t>(ink.most.height);
    std::fill_n(ink.most.Row(0), count, 0.0f);
    std::fill_n(ink.least.Row(0), count, FLT_MAX);
  }
  for (size_t i = 0; i < looked.size(); ++i) {
    const auto count = static_cast<double>(looked.size()), done = static_cast<double>(i);
    const Progress part = progress.Part(done / count, (done + 1.0) / count);
    if (demodulation_.Measure(picture, looked[i], RuleOf(plan_).sigma, parallel, part)) return true;
    RowsInParallel(parallel, demodulation_.rows(),
                   [&, add = plan_.isByInk ? &Gate::AddInks : &Gate::AddRow](int32_t y, int32_t worker) {
                     (this->*add)(y, ScratchOf(worker));
                   });
  }
  AddColouredInks(parallel);
  TakeUsualOff(parallel);
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
  std::vector<float> scratch(amplitudes.size());
  return amplitudes.empty() ? 0.0f : Percentile(kStrongShare, amplitudes, scratch.data());
}

}  // namespace tessaline
