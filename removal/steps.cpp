#include "removal/steps.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "image/pixel_kind.h"
#include "removal/notch_mask.h"
#include "removal/peak_detection.h"

namespace tessaline {

namespace {

// Transform size by the longer side; the first row that the side exceeds counts.
struct SizeThreshold {
  int32_t longerThan;
  int32_t transformSize;
};
constexpr SizeThreshold kSizeThresholds[] = {
    {15584, 32768},  // cannot be reached with the limit of 7500
    {7592, 16384},   // nor this one
    {3700, 8192},   {1748, 4096}, {774, 2048},
};
constexpr int32_t kSmallestTransform = 1024;

}  // namespace

bool IsUsable(const PictureView& picture) {
  return picture.width >= 1 && picture.height >= 1 && picture.width <= kLargestSide &&
         picture.height <= kLargestSide && picture.channels >= 1 && picture.channels <= kMostChannels;
}

bool HasSameShape(const PictureView& a, const PictureView& b) {
  return a.width == b.width && a.height == b.height && a.format == b.format && a.channels == b.channels;
}

int32_t CountSeeds(const ConstImageView& seeds) {
  int32_t cells = 0;
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    const uint8_t* const row = seeds.Row(y);
    cells += static_cast<int32_t>(std::count(row, row + kSpectrumCells, uint8_t{255}));
  }
  return cells;
}

int32_t TransformSizeFor(int32_t side) {
  for (const SizeThreshold& threshold : kSizeThresholds) {
    if (side > threshold.longerThan) return threshold.transformSize;
  }
  return kSmallestTransform;
}

bool Workspace::Prepare(int32_t transformSize) {
  if (transformSize == size_) return true;
  Release();
  const auto n = static_cast<size_t>(transformSize);
  const int32_t workers = parallel_.threads();
  samples_ = AllocateBlock<float>(n * n);
  scratch_ = AllocateBlock<double>(2 * n);
  rowSums_ = AllocateBlock<double>(n);
  if (!samples_ || !scratch_ || !rowSums_ || !fill_.Prepare(transformSize, workers) ||
      !transform_.Prepare(transformSize, workers) ||
      !magnitudes_.Prepare(transformSize, transform_.strips(), workers) ||
      !filter_.Prepare(transformSize, workers)) {
    Release();
    return false;
  }
  plane_ = {samples_.get(), transformSize};
  size_ = transformSize;
  return true;
}

void Workspace::Release() {
  size_ = 0;
  plane_ = {};
  samples_.reset();
  scratch_.reset();
  rowSums_.reset();
  fill_ = {};
  transform_ = {};
  magnitudes_ = {};
  filter_ = {};
  kept_.reset();
  keptBytes_ = 0;
}

void* Workspace::KeptMemory(size_t bytes) {
  if (!kept_ || bytes > keptBytes_) {
    kept_.reset();
    kept_ = AllocateBlock<uint8_t>(bytes);
    keptBytes_ = kept_ ? bytes : 0;
  }
  return kept_.get();
}

ConstantRows Workspace::LoadPlane(const PictureView& picture, int32_t channel, double remainder,
                                  float* mean) {
  ForEachRow(parallel_, picture.height,
             [&](int32_t y) { rowSums_[y] = LoadLevels(picture, channel, y, plane_.Row(y)); });
  double total = remainder;
  for (int32_t y = 0; y < picture.height; ++y) total += rowSums_[y];
  const int32_t rowsBelow = size_ - picture.height;
  total += rowsBelow * rowSums_[picture.height - 1];  // they count as copies of the last row
  *mean = static_cast<float>(total / (double(size_) * size_));
  return fill_.Fill(plane_, size_ - picture.width, rowsBelow, *mean, parallel_);
}

int32_t AddSpectrum(const PictureView& picture, Workspace& workspace, const Progress& progress,
                    Analysis* analysis, DecisionKind decision) {
  if (!IsUsable(picture)) return kUnknownPixelKind;
  const int32_t n = TransformSizeFor(picture);
  if (analysis->transformSize == 0) {
    if (!analysis->sums.Create(kSpectrumCells, kSpectrumCells, sizeof(double)) ||
        (decision == DecisionKind::kAny &&
         !analysis->powers.Create(kSpectrumCells, kSpectrumCells, sizeof(double)))) {
      return kOutOfMemory;
    }
    analysis->transformSize = n;
  }
  if (analysis->transformSize != n) return kUnequalSizes;
  if (!workspace.Prepare(n)) return kOutOfMemory;
  analysis->chain = {};
  for (int32_t channel = 0; channel < picture.channels; ++channel) {
    const Progress part =
        progress.Part(double(channel) / picture.channels, (channel + 1.0) / picture.channels);
    const ConstantRows constant =
        workspace.LoadPlane(picture, channel, analysis->chain.remainder, &analysis->meanLevels[channel]);
    workspace.magnitudes_.Begin(analysis->sums.view(), analysis->powers.view());
    if (workspace.transform_.Examine(workspace.plane_, constant, workspace.magnitudes_, workspace.parallel_,
                                     part)) {
      return kUserCancelled;
    }
    workspace.magnitudes_.End(workspace.parallel_);
    analysis->chain.LeaveSpectrum(workspace.transform_, picture.width);
  }
  return kSuccess;
}

int32_t FinishAnalysis(Analysis* analysis) {
  if (!analysis->rawGray16.Create(kSpectrumCells, kSpectrumCells, kGray16) ||
      !analysis->gray16.Create(kSpectrumCells, kSpectrumCells, kGray16)) {
    return kOutOfMemory;
  }
  analysis->logSpan = ScaleSpectrumByLog(analysis->sums.view(), analysis->rawGray16.view());
  CopyImage(analysis->rawGray16.view(), analysis->gray16.view());
  return EnhanceSpectrum(analysis->gray16.view(), kPeakKernel);
}

int32_t Analyse(const PictureView& picture, Workspace& workspace, const Progress& progress,
                Analysis* analysis, DecisionKind decision) {
  *analysis = {};
  const int32_t result = AddSpectrum(picture, workspace, progress, analysis, decision);
  return result == kSuccess ? FinishAnalysis(analysis) : result;
}

namespace {

template <typename Value>
Value UsableValue(Value value, const SettingRange& range) {
  if (std::isnan(value)) return Value{range.standard};
  return std::clamp(value, Value{range.minimum}, Value{range.maximum});
}

}  // namespace

Settings UsableSettings(const Settings& settings) {
  return {settings.isAutomatic, UsableValue(settings.acceptance, kAcceptanceRange),
          UsableValue(settings.sensitivity, kSensitivityRange),
          UsableValue(settings.notchRadius, kNotchRadiusRange),
          UsableValue(settings.protectionRadius, kProtectionRadiusRange)};
}

int32_t Decide(const Analysis& analysis, const Settings& wanted, Findings* findings,
               const std::vector<SpectrumPeak>* licensedBefore) {
  const Settings settings = UsableSettings(wanted);
  *findings = {};
  if (!findings->seeds.Create(kSpectrumCells, kSpectrumCells, kGray8)) return kOutOfMemory;
  const float threshold = ThresholdOfAcceptance(settings.acceptance);
  findings->threshold = HostThreshold(threshold);
  findings->isAutomatic = settings.isAutomatic;
  const int32_t result =
      settings.isAutomatic
          ? DetectPeaksAutomatically(analysis.rawGray16.view(), analysis.gray16.view(), analysis.logSpan,
                                     analysis.transformSize, settings.sensitivity, settings.protectionRadius,
                                     findings->seeds.view(), &findings->peaks, licensedBefore, true)
          : DetectPeaks(analysis.gray16.view(), threshold, settings.protectionRadius, findings->seeds.view());
  if (result == kSuccess) findings->seedCells = CountSeeds(findings->seeds.view());
  return result;
}

int32_t Shape(const Findings& findings, const Settings& wanted, Mask* mask) {
  const Settings settings = UsableSettings(wanted);
  if (!mask->cells.Create(kSpectrumCells, kSpectrumCells, kGray8)) return kOutOfMemory;
  CopyImage(findings.seeds.view(), mask->cells.view());
  return ShapeNotches(mask->cells.view(), settings.protectionRadius, settings.notchRadius);
}

namespace {

class StoredRows final : public FilteredRows {
 public:
  StoredRows(const PictureView& picture, Rounding rounding) : picture_(picture), rounding_(rounding) {}
  void Take(int32_t channel, int32_t y, float* levels) override {
    StoreLevels(picture_, channel, y, rounding_, levels);
  }

 private:
  const PictureView& picture_;
  Rounding rounding_;
};

// One channel's rows on the way to those who take all channels'.
class ChannelRows final : public FinishedRows {
 public:
  ChannelRows(FilteredRows& rows, int32_t channel) : rows_(rows), channel_(channel) {}
  void Take(int32_t y, float* levels) override { rows_.Take(channel_, y, levels); }

 private:
  FilteredRows& rows_;
  int32_t channel_;
};

}  // namespace

int32_t Apply(const PictureView& from, const PictureView& to, const Mask& mask, Workspace& workspace,
              const ApplyOptions& options, const Progress& progress) {
  if (!IsUsable(from)) return kUnknownPixelKind;
  if (!HasSameShape(from, to)) return kUnequalSizes;
  StoredRows rows(to, options.rounding);
  return Filter(from, mask, workspace, options, progress, rows);
}

int32_t Filter(const PictureView& from, const Mask& mask, Workspace& workspace, const ApplyOptions& options,
               const Progress& progress, FilteredRows& rows) {
  if (!IsUsable(from)) return kUnknownPixelKind;
  if (!IsSpectrumGrid(mask.cells.view(), kGray8)) return kUnequalSizes;
  if (!workspace.Prepare(TransformSizeFor(from))) return kOutOfMemory;
  if (progress.Advance(0.0, 1.0)) return kUserCancelled;
  workspace.filter_.Begin(mask.cells.view());
  PaddingChain chain = options.chain;
  for (int32_t channel = 0; channel < from.channels; ++channel) {
    const Progress part = progress.Part(double(channel) / from.channels, (channel + 1.0) / from.channels);
    float mean = 0.0f;
    const ConstantRows constant = workspace.LoadPlane(from, channel, chain.remainder, &mean);
    if (options.meanLevels != nullptr) options.meanLevels[channel] = mean;
    ChannelRows channelRows(rows, channel);
    workspace.transform_.Filter(workspace.plane_, constant, workspace.filter_, from.height, channelRows,
                                workspace.parallel_, part);
    chain.LeaveResult(workspace.transform_, workspace.filter_, from.width, workspace.scratch_.get());
  }
  return kSuccess;
}

}  // namespace tessaline
