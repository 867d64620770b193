#include "restoration/gate.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "fft/unit_roots.h"
#include "removal/spectrum_grid.h"

namespace tessaline {

namespace {

// How the gate measures a peak of each scale.
struct GateRule {
  double sigma;          // pixels, of the demodulation
  bool knowsUsual;       // less what is usual beside the carrier
  float closed, opened;  // shares of the picture's strong places, between which it opens
  double softening;      // pixels
  int32_t mostCarriers;
};
constexpr GateRule kRules[] = {
    {12.0, true, 0.04f, 0.12f, 2.0, 8},  // fine
    {5.0, false, 0.06f, 0.20f, 4.0, 4},  // near
    {3.0, false, 0.06f, 0.20f, 4.0, 4},  // far
};
const GateRule& RuleOf(const GatePlan& plan) {
  return kRules[static_cast<size_t>(plan.scale)];
}

constexpr float kUsualMargin = 1.5f;
constexpr int32_t kBesideCarrier = 18;  // cells, square to the carrier's direction
constexpr double kStrongShare = 0.98;   // of the places lie below the strong ones

// The phase of a carrier along one axis, for 512 pixels; it repeats.
struct PhaseTable {
  std::array<float, kSpectrumCells> cosine, sine;

  explicit PhaseTable(int32_t cells) {
    for (int32_t place = 0; place < kSpectrumCells; ++place) {
      const UnitRootValue root = UnitRoot(kSpectrumCells, int64_t{cells & (kSpectrumCells - 1)} * place);
      cosine[place] = static_cast<float>(root.cosine);
      sine[place] = static_cast<float>(root.sine);
    }
  }
};

// A portion of a row as it is multiplied by a carrier.
struct ComplexRow {
  float* real;
  float* imaginary;
};

// Two rows of the channel times exp(-2 pi i (dx x + dy y) / 512), added.
void DemodulateRows(const Plane& channel, const PhaseTable& phaseX, const PhaseTable& phaseY, int32_t firstY,
                    const ComplexRow& product) {
  constexpr int32_t kWrap = kSpectrumCells - 1;
  const int32_t lastY = std::min(firstY + 1, channel.height - 1);
  const float* const first = channel.Row(firstY);
  const float* const last = channel.Row(lastY);
  const float share = lastY == firstY ? 0.5f : 1.0f;  // a row alone counts twice, and half as much
  const float firstCosine = share * phaseY.cosine[firstY & kWrap];
  const float firstSine = share * phaseY.sine[firstY & kWrap];
  const float lastCosine = share * phaseY.cosine[lastY & kWrap];
  const float lastSine = share * phaseY.sine[lastY & kWrap];
  for (int32_t begin = 0; begin < channel.width; begin += kSpectrumCells) {
    const int32_t count = std::min(kSpectrumCells, channel.width - begin);
    for (int32_t i = 0; i < count; ++i) {
      const int32_t x = begin + i;
      const float real = first[x] * firstCosine + last[x] * lastCosine;
      const float imaginary = -(first[x] * firstSine + last[x] * lastSine);
      product.real[x] = real * phaseX.cosine[i] + imaginary * phaseX.sine[i];
      product.imaginary[x] = imaginary * phaseX.cosine[i] - real * phaseX.sine[i];
    }
  }
}

// A quarter of the samples: means of two, then a binomial of four of those, which keeps the other lines of a
// screen from folding onto this one. (A mean of four alone lets a tenth of them through.)
double QuarterVariance() {
  constexpr double kOfPairs = 0.25, kOfBinomial = 4 * 0.75;
  return kOfPairs + kOfBinomial;
}
float Binomial(float a, float b, float c, float d) {
  return 0.125f * (a + d) + 0.375f * (b + c);
}
void QuarterRow(float* row, int32_t width, float* quarter) {
  const int32_t halfWidth = (width + 1) / 2;
  for (int32_t x = 0; x < width / 2; ++x) row[x] = 0.5f * (row[2 * x] + row[2 * x + 1]);
  if (width % 2 != 0) row[halfWidth - 1] = row[width - 1];
  const auto half = [&](int32_t x) { return row[Reflected(x, halfWidth)]; };
  const auto atBorder = [&](int32_t x) {
    return Binomial(half(2 * x - 1), half(2 * x), half(2 * x + 1), half(2 * x + 2));
  };
  const int32_t last = ReducedSide(width) - 1;
  quarter[0] = atBorder(0);
  for (int32_t x = 1; x < last; ++x) {
    quarter[x] = Binomial(row[2 * x - 1], row[2 * x], row[2 * x + 1], row[2 * x + 2]);
  }
  quarter[last] = atBorder(last);
}
// Of a plane that has half the rows, into one that has a quarter.
void QuarterColumns(const Plane& halved, Parallel& parallel, Plane* quartered) {
  RowsInParallel(parallel, quartered->height, [&](int32_t y, int32_t) {
    const auto half = [&](int32_t row) { return halved.Row(Reflected(row, halved.height)); };
    const float *const a = half(2 * y - 1), *const b = half(2 * y), *const c = half(2 * y + 1),
                       *const d = half(2 * y + 2);
    float* const row = quartered->Row(y);
    for (int32_t x = 0; x < quartered->width; ++x) row[x] = 0.5f * Binomial(a[x], b[x], c[x], d[x]);
  });
}

// The places to either side of a carrier, where the picture itself is as strong as under it.
std::array<Carrier, 2> BesideCarrier(const Carrier& carrier) {
  const double length = std::hypot(carrier.dx, carrier.dy);
  const auto stepX = static_cast<int32_t>(std::lround(-kBesideCarrier * carrier.dy / length));
  const auto stepY = static_cast<int32_t>(std::lround(kBesideCarrier * carrier.dx / length));
  return {Carrier{carrier.dx + stepX, carrier.dy + stepY}, Carrier{carrier.dx - stepX, carrier.dy - stepY}};
}

float SmoothStep(float share) {
  const float t = std::clamp(share, 0.0f, 1.0f);
  return t * t * (3.0f - 2.0f * t);
}

void KeepGreater(const Plane& other, Plane* plane) {
  const size_t count = static_cast<size_t>(plane->width) * static_cast<size_t>(plane->height);
  for (size_t i = 0; i < count; ++i) plane->samples[i] = std::max(plane->samples[i], other.samples[i]);
}

void Clear(Plane* plane) {
  std::fill_n(plane->samples.get(), static_cast<size_t>(plane->width) * static_cast<size_t>(plane->height),
              0.0f);
}

// The value that a share of the samples lies below, between two of them in proportion. `sorted` is
// overwritten.
float Percentile(const Plane& plane, double share, Plane* sorted) {
  const size_t count = static_cast<size_t>(plane.width) * static_cast<size_t>(plane.height);
  float* const values = sorted->samples.get();
  std::copy_n(plane.samples.get(), count, values);
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
  if (licensed.empty()) return plan;
  plan.scale = licensed.front()->scale;
  const auto isOffAxis = [](const SpectrumPeak* peak) { return !IsNearAxis(peak->dx, peak->dy); };
  if (std::any_of(licensed.begin(), licensed.end(), isOffAxis)) {
    std::erase_if(licensed, [&](const SpectrumPeak* peak) { return !isOffAxis(peak); });
  }
  std::stable_sort(licensed.begin(), licensed.end(), [](const SpectrumPeak* a, const SpectrumPeak* b) {
    return a->height + a->background > b->height + b->background;
  });
  plan.count = std::min(static_cast<int32_t>(licensed.size()), RuleOf(plan).mostCarriers);
  for (int32_t i = 0; i < plan.count; ++i) plan.carriers[i] = {licensed[i]->dx, licensed[i]->dy};
  return plan;
}

bool Gate::Prepare(int32_t width, int32_t height) {
  width_ = width;
  for (Plane* const plane :
       {&open_, &pattern_, &usual_, &ofPattern_, &ofUsual_, &real_, &imaginary_, &scratch_}) {
    if (!plane->Create(ReducedSide(width), ReducedSide(height))) return false;
  }
  return halfReal_.Create(ReducedSide(width), (height + 1) / 2) &&
         halfImaginary_.Create(ReducedSide(width), (height + 1) / 2);
}

void Gate::OpenEverywhere() {
  std::fill_n(open_.samples.get(), static_cast<size_t>(open_.width) * static_cast<size_t>(open_.height),
              1.0f);
}

// Less its Gaussian blur: a channel's mean would leak into every carrier at the borders.
void Gate::TakeHighPass(double sigma, Parallel& parallel, float* const* rows, Plane* channel) {
  ReducePlane(*channel, parallel, &real_);
  Blur(GaussianOfRest(sigma, kVarianceOfBlocks + kVarianceOfEnlarging), parallel, &real_, &scratch_);
  RowsInParallel(parallel, channel->height, [&](int32_t y, int32_t worker) {
    EnlargeRow(real_, y, channel->width, rows[worker]);
    for (int32_t x = 0; x < channel->width; ++x) channel->Row(y)[x] -= rows[worker][x];
  });
}

// Adds the square of the amplitude at a carrier.
void Gate::AddPower(const Carrier& carrier, double sigma, const Plane& channel, Parallel& parallel,
                    float* const* rows, Plane* power) {
  const PhaseTable phaseX(carrier.dx), phaseY(carrier.dy);
  RowsInParallel(parallel, halfReal_.height, [&](int32_t y, int32_t worker) {
    const ComplexRow product{rows[worker], rows[worker] + channel.width};
    DemodulateRows(channel, phaseX, phaseY, 2 * y, product);
    QuarterRow(product.real, channel.width, halfReal_.Row(y));
    QuarterRow(product.imaginary, channel.width, halfImaginary_.Row(y));
  });
  QuarterColumns(halfReal_, parallel, &real_);
  QuarterColumns(halfImaginary_, parallel, &imaginary_);
  const GaussianKernel kernel = GaussianOfRest(sigma, QuarterVariance());
  Blur(kernel, parallel, &real_, &scratch_);
  Blur(kernel, parallel, &imaginary_, &scratch_);
  RowsInParallel(parallel, power->height, [&](int32_t y, int32_t) {
    const float* const real = real_.Row(y);
    const float* const imaginary = imaginary_.Row(y);
    float* const sum = power->Row(y);
    for (int32_t x = 0; x < power->width; ++x) {
      sum[x] += 4.0f * (real[x] * real[x] + imaginary[x] * imaginary[x]);
    }
  });
}

void Gate::AddChannel(const GatePlan& plan, const Plane& channel, Parallel& parallel, float* const* rows) {
  const GateRule& rule = RuleOf(plan);
  Clear(&ofPattern_);
  Clear(&ofUsual_);
  for (int32_t i = 0; i < plan.count; ++i) {
    AddPower(plan.carriers[i], rule.sigma, channel, parallel, rows, &ofPattern_);
    if (!rule.knowsUsual) continue;
    for (const Carrier& beside : BesideCarrier(plan.carriers[i])) {
      AddPower(beside, rule.sigma, channel, parallel, rows, &ofUsual_);
    }
  }
  KeepGreater(ofPattern_, &pattern_);
  KeepGreater(ofUsual_, &usual_);
}

void Gate::OpenWherePattern(const GatePlan& plan, Parallel& parallel, float* const* rows) {
  const GateRule& rule = RuleOf(plan);
  const size_t count = static_cast<size_t>(open_.width) * static_cast<size_t>(open_.height);
  Plane& amplitude = pattern_;  // takes the place of its square
  for (size_t i = 0; i < count; ++i) {
    const float usual = 0.5f * usual_.samples[i];  // two places beside each carrier
    amplitude.samples[i] =
        std::sqrt(std::max(pattern_.samples[i] - kUsualMargin * kUsualMargin * usual, 0.0f));
  }
  const float strong = Percentile(amplitude, kStrongShare, &scratch_);
  const float closed = rule.closed * strong, span = (rule.opened - rule.closed) * strong;
  // The step is steeper than a block: it is taken at every pixel, and the blocks' means are kept.
  RowsInParallel(parallel, open_.height, [&](int32_t blockY, int32_t worker) {
    float* const sums = open_.Row(blockY);
    std::fill_n(sums, open_.width, 0.0f);
    for (int32_t y = blockY * kReduction; y < (blockY + 1) * kReduction; ++y) {
      EnlargeRow(amplitude, y, open_.width * kReduction, rows[worker]);
      for (int32_t x = 0; span > 0.0f && x < open_.width * kReduction; ++x) {
        sums[x / kReduction] += SmoothStep((rows[worker][x] - closed) / span) / (kReduction * kReduction);
      }
    }
  });
  Blur(GaussianOfRest(rule.softening, kVarianceOfBlocks + kVarianceOfEnlarging), parallel, &open_, &scratch_);
}

void Gate::Measure(const PictureView& picture, const GatePlan& plan, Parallel& parallel, Plane* channel,
                   float* const* rows) {
  Clear(&pattern_);
  Clear(&usual_);
  for (int32_t c = 0; c < picture.channels; ++c) {
    RowsInParallel(parallel, picture.height, [&](int32_t y, int32_t worker) {
      LoadLevels(picture, c, y, rows[worker]);
      for (int32_t x = 0; x < picture.width; ++x) channel->Row(y)[x] = rows[worker][2 * x];
    });
    TakeHighPass(RuleOf(plan).sigma, parallel, rows, channel);
    AddChannel(plan, *channel, parallel, rows);
  }
  OpenWherePattern(plan, parallel, rows);
}

}  // namespace tessaline
