#include "removal/removal_run.h"

#include <algorithm>
#include <cmath>

#include "buffers/buffer_table.h"
#include "buffers/levels.h"
#include "buffers/pixel_conversion.h"
#include "buffers/result_codes.h"
#include "fft/fft_2d.h"
#include "platform/cpu.h"
#include "platform/message.h"
#include "removal/notch_mask.h"
#include "removal/padding_fill.h"
#include "removal/spectrum_image.h"

namespace tessaline {

namespace {

// One channel of a row of interleaved samples to complex values on the 16-bit scale, and back.
template <typename Sample>
void LoadSamples(const void* row, int32_t channel, int32_t channels, int32_t width, float* plane) {
  constexpr float kScale = sizeof(Sample) == 1 ? kByteToHost : 1.0f;
  const auto* sample = static_cast<const Sample*>(row) + channel;
  for (int32_t x = 0; x < width; ++x, sample += channels) {
    plane[2 * x] = static_cast<float>(*sample) * kScale;
    plane[2 * x + 1] = 0.0f;
  }
}

template <typename Sample>
void StoreSamples(const float* plane, int32_t channel, int32_t channels, int32_t width, void* row) {
  constexpr float kScale = sizeof(Sample) == 1 ? kHostToByte : 1.0f;
  constexpr float kMaximum = sizeof(Sample) == 1 ? kByteMax : kHostMax;
  auto* sample = static_cast<Sample*>(row) + channel;
  for (int32_t x = 0; x < width; ++x, sample += channels) {
    *sample = StoreLevel<Sample>(plane[2 * x] * kScale, kMaximum);
  }
}

struct SourceKind {
  int32_t bytesPerPixel;
  int32_t channels;
  void (*load)(const void* row, int32_t channel, int32_t channels, int32_t width, float* plane);
  void (*store)(const float* plane, int32_t channel, int32_t channels, int32_t width, void* row);
};
constexpr SourceKind kSourceKinds[] = {
    {kGray8, 1, LoadSamples<uint8_t>, StoreSamples<uint8_t>},
    {kGray16, 1, LoadSamples<uint16_t>, StoreSamples<uint16_t>},
    {kRgb8, 3, LoadSamples<uint8_t>, StoreSamples<uint8_t>},
    {kRgb16, 3, LoadSamples<uint16_t>, StoreSamples<uint16_t>},
};

const SourceKind* FindSourceKind(int32_t bytesPerPixel) {
  for (const SourceKind& kind : kSourceKinds) {
    if (kind.bytesPerPixel == bytesPerPixel) return &kind;
  }
  return nullptr;
}

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

// The buffers and facts of one run. Everything is released when it goes out of scope.
struct Run {
  const RemovalContext& context;
  int32_t sourceSlot;
  BufferShape source;
  const SourceKind* kind;
  int32_t transformSize;
  OwnedBuffer magnitudeSums;  // "PSPEC"
  OwnedBuffer gray16;         // "PSPECgray16"
  OwnedBuffer grayFloat;      // "PSPECgrayFP", part of the layout that the dialog is given; nothing writes it
  OwnedBuffer gray8;          // "PSPECgray8"
  OwnedBuffer plane;          // "FFTbuf"
  OwnedBuffer rawGray16;      // only for a caller that inspects or detects
  OwnedBuffer fullMask;       // "BigMASKgray8"

  void Enter(RemovalStage stage) const {
    if (context.enterStage != nullptr) context.enterStage(context.user, stage);
  }
};

int32_t CreateSpectrumBuffers(Run& run, FilterParameters* parameters) {
  const int32_t n = run.transformSize;
  int32_t result = run.magnitudeSums.Create("PSPEC", kSpectrumCells, kSpectrumCells, sizeof(double));
  if (result == kSuccess) result = run.gray16.Create("PSPECgray16", kSpectrumCells, kSpectrumCells, kGray16);
  if (result == kSuccess)
    result = run.grayFloat.Create("PSPECgrayFP", kSpectrumCells, kSpectrumCells, kGrayFloat);
  if (result == kSuccess) result = run.gray8.Create("PSPECgray8", kSpectrumCells, kSpectrumCells, kGray8);
  if (result != kSuccess) return result;
  parameters->gray16Slot = run.gray16.slot();
  parameters->gray8Slot = run.gray8.slot();
  return run.plane.Create("FFTbuf", n, n, kGrayComplex);
}

// One channel on the 16-bit scale in the top left of the plane; rows below the image repeat its last row.
// Columns right of the image keep what they hold, which the padding fill's mean level then takes in.
void LoadChannel(const Run& run, int32_t channel) {
  run.Enter(RemovalStage::kLoad);
  for (int32_t y = 0; y < run.transformSize; ++y) {
    auto* const plane = reinterpret_cast<float*>(BufferRow(run.plane.slot(), y));
    const uint8_t* const row = BufferRow(run.sourceSlot, std::min(y, run.source.height - 1));
    run.kind->load(row, channel, run.kind->channels, run.source.width, plane);
  }
  MarkDirty(run.plane.slot());
}

void StoreChannel(const Run& run, int32_t channel) {
  run.Enter(RemovalStage::kStore);
  for (int32_t y = 0; y < run.source.height; ++y) {
    const auto* const plane = reinterpret_cast<const float*>(BufferRow(run.plane.slot(), y));
    run.kind->store(plane, channel, run.kind->channels, run.source.width, BufferRow(run.sourceSlot, y));
  }
  MarkDirty(run.sourceSlot);
}

// What the channels of a pass are worked on with, taken once: a lack of it shows before the first one is
// replaced.
struct PassMemory {
  PaddingMemory padding;
  TransformMemory transforms;

  int32_t Take(const Run& run, bool useDoubleKernels) {
    const int32_t result = padding.Take(run.transformSize);
    return result == kSuccess ? transforms.Take(ShapeOf(run.plane.slot()), useDoubleKernels) : result;
  }
};

int32_t PadPlane(const Run& run, PaddingMemory* memory) {
  run.Enter(RemovalStage::kPaddingFill);
  return FillPadding(run.plane.slot(), run.transformSize - run.source.width,
                     run.transformSize - run.source.height, memory);
}

// First pass: the summed spectrum of all channels.
int32_t SumSpectra(Run& run) {
  constexpr int32_t kTotalSteps = 6;
  ClearBuffer(run.magnitudeSums.slot());
  PassMemory memory;  // given back before the dialog, which may stay open for long
  int32_t result = memory.Take(run, true);
  if (result != kSuccess) return result;
  for (int32_t channel = 0; channel < run.kind->channels; ++channel) {
    LoadChannel(run, channel);
    result = PadPlane(run, &memory.padding);
    if (result != kSuccess) return result;
    run.Enter(RemovalStage::kForward);
    result = ForwardFft2D(run.plane.slot(), true, true, &run.context.progress, channel, channel + 1,
                          kTotalSteps, &memory.transforms);
    if (result != kSuccess) return result;
    run.Enter(RemovalStage::kSpectrum);
    AccumulateMagnitudes(run.plane.slot(), run.magnitudeSums.slot());
  }
  return kSuccess;
}

// The 16-bit spectrum image with its peaks enhanced and its 8-bit display copy (made before the enhancement).
int32_t MakeSpectrumImages(Run& run, double* logSpan) {
  *logSpan = ScaleSpectrumByLog(run.magnitudeSums.slot(), run.gray16.slot());
  int32_t result = ConvertBuffer(run.gray16.slot(), run.gray8.slot());
  if (result == kSuccess && (run.context.inspect != nullptr || run.context.detect != nullptr)) {
    result = run.rawGray16.Create("PSPECgray16 before", kSpectrumCells, kSpectrumCells, kGray16);
    if (result == kSuccess) result = ConvertBuffer(run.gray16.slot(), run.rawGray16.slot());
  }
  return result == kSuccess ? EnhanceSpectrum(run.gray16.slot(), kPeakKernel) : result;
}

int32_t CountSeeds(int32_t seedSlot) {
  int32_t cells = 0;
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    const uint8_t* const row = BufferRow(seedSlot, y);
    cells += static_cast<int32_t>(std::count(row, row + kSpectrumCells, uint8_t{255}));
  }
  return cells;
}

// Fills the seed map by the caller's detector or by the acceptance.
int32_t DetectSeeds(const Run& run, const SpectrumFacts& facts, const FilterParameters& parameters,
                    int32_t seedSlot) {
  if (run.context.detect != nullptr) return run.context.detect(run.context.user, facts, parameters, seedSlot);
  return DetectPeaks(facts.gray16Slot, ThresholdOfAcceptance(parameters.acceptance),
                     parameters.protectionRadius, seedSlot);
}

// Builds the full-size mask and shows the findings; *goOn tells whether the second pass is wanted. It is not
// where no cell is marked: it would remove nothing, yet its rounding would move samples by a level.
int32_t MakeMask(Run& run, const FilterParameters& parameters, double logSpan, bool* goOn) {
  run.Enter(RemovalStage::kMask);
  int32_t result = run.fullMask.Create("BigMASKgray8", run.transformSize, run.transformSize, kGray8);
  OwnedBuffer seeds, gridMask;
  if (result == kSuccess) result = seeds.Create("Seed map", kSpectrumCells, kSpectrumCells, kGray8);
  if (result == kSuccess) result = gridMask.Create("Temp Mask", kSpectrumCells, kSpectrumCells, kGray8);
  if (result != kSuccess) return result;

  const SpectrumFacts facts{run.transformSize, run.rawGray16.slot(), run.gray16.slot(), logSpan};
  result = DetectSeeds(run, facts, parameters, seeds.slot());
  if (result == kSuccess) result = ConvertBuffer(seeds.slot(), gridMask.slot());
  if (result == kSuccess) {
    result = BuildMaskFromSeeds(parameters.protectionRadius, parameters.notchRadius, gridMask.slot(),
                                run.fullMask.slot());
  }
  if (result != kSuccess) return result;
  const int32_t seedCells = CountSeeds(seeds.slot());
  *goOn = seedCells > 0;
  if (run.context.inspect == nullptr) return kSuccess;
  const RemovalFindings findings{facts, seeds.slot(), gridMask.slot(), seedCells,
                                 HostThreshold(ThresholdOfAcceptance(parameters.acceptance))};
  *goOn = run.context.inspect(run.context.user, findings) && *goOn;
  return kSuccess;
}

// The abort check of the second pass: asked, but never obeyed. The caller's flag is looked at before every
// call, as it may be switched off on the way.
struct UnstoppableContext {
  const RunContext* wanted;
  RunContext context;

  explicit UnstoppableContext(const RunContext* original) : wanted(original) {
    context.progressEnabled = true;
    context.user = this;
    context.progress = [](void* user, int32_t done, int32_t total) {
      const RunContext& caller = *static_cast<UnstoppableContext*>(user)->wanted;
      if (caller.progressEnabled && caller.progress != nullptr) caller.progress(caller.user, done, total);
    };
    context.abortCheck = [](void* user) {
      const RunContext& caller = *static_cast<UnstoppableContext*>(user)->wanted;
      if (caller.progressEnabled && caller.abortCheck != nullptr) caller.abortCheck(caller.user);
      return false;
    };
  }
};

// Second pass: every channel's spectrum through the mask, and the result over the source.
int32_t RemoveFromChannels(Run& run) {
  constexpr int32_t kTotalSteps = 16;
  constexpr int32_t kFirstStep = 8;
  const UnstoppableContext unstoppable(&run.context.progress);
  PassMemory memory;
  int32_t result = memory.Take(run, false);
  if (result != kSuccess) return result;
  for (int32_t channel = 0; channel < run.kind->channels; ++channel) {
    const int32_t step = kFirstStep + 2 * channel;
    LoadChannel(run, channel);
    result = PadPlane(run, &memory.padding);
    if (result != kSuccess) return result;
    run.Enter(RemovalStage::kForward);
    result = ForwardFft2D(run.plane.slot(), true, false, &unstoppable.context, step, step + 1, kTotalSteps,
                          &memory.transforms);
    if (result != kSuccess) return result;
    run.Enter(RemovalStage::kApplyMask);
    ApplySpectrumMask(run.plane.slot(), run.fullMask.slot());
    run.Enter(RemovalStage::kInverse);
    result = InverseFft2D(run.plane.slot(), true, false, &unstoppable.context, step + 1, step + 2,
                          kTotalSteps, &memory.transforms);
    if (result != kSuccess) return result;
    StoreChannel(run, channel);
  }
  return kSuccess;
}

float UsableValue(float value, const ParameterRange& range) {
  return std::isnan(value) ? range.standard : std::clamp(value, range.minimum, range.maximum);
}

// The one check of the three values before detection and mask, which turn them into whole numbers. Doors
// check what is typed and scripted; what a damaged preferences file holds comes here as it is.
void MakeUsable(FilterParameters* parameters) {
  parameters->acceptance = UsableValue(parameters->acceptance, kAcceptanceRange);
  parameters->notchRadius = UsableValue(parameters->notchRadius, kNotchRadiusRange);
  parameters->protectionRadius = UsableValue(parameters->protectionRadius, kProtectionRadiusRange);
}

}  // namespace

bool CanRemoveFrom(int32_t bytesPerPixel) {
  return FindSourceKind(bytesPerPixel) != nullptr;
}

bool RefuseTooLarge(int32_t width, int32_t height) {
  if (height <= kLargestSide && width <= kLargestSide) return false;
  ShowMessage(
      "Tessaline is limited to 7500x7500 pixels\n for the image or selection.\n Try using either a smaller "
      "image or a selection.",
      "Ombrant Vistrel");
  return true;
}

int32_t TransformSizeFor(int32_t side) {
  for (const SizeThreshold& threshold : kSizeThresholds) {
    if (side > threshold.longerThan) return threshold.transformSize;
  }
  return kSmallestTransform;
}

int32_t RunRemoval(int32_t sourceSlot, FilterParameters* parameters, ParameterList* list, bool suppressDialog,
                   const RemovalContext& context) {
  const BufferShape source = ShapeOf(sourceSlot);
  if (RefuseTooLarge(source.width, source.height)) return kUserCancelled;
  const SourceKind* const kind = FindSourceKind(source.bytesPerPixel);
  if (kind == nullptr || parameters == nullptr) return kUnknownPixelKind;
  MakeUsable(parameters);

  Run run{context, sourceSlot, source, kind, TransformSizeFor(std::max(source.width, source.height))};
  int32_t result = CreateSpectrumBuffers(run, parameters);
  if (result == kSuccess) result = SumSpectra(run);
  double logSpan = 0.0;
  if (result == kSuccess) result = MakeSpectrumImages(run, &logSpan);
  if (result != kSuccess) return result;

  if (!suppressDialog && context.openDialog != nullptr) {
    run.Enter(RemovalStage::kDialog);
    if (context.openDialog(context.user, sourceSlot, parameters) != 0) return kUserCancelled;
    MakeUsable(parameters);
    if (list != nullptr) StoreParameters(*parameters, list);
  }
  run.magnitudeSums.Release();
  run.gray8.Release();

  bool goOn = false;
  result = MakeMask(run, *parameters, logSpan, &goOn);
  return result == kSuccess && goOn ? RemoveFromChannels(run) : result;
}

}  // namespace tessaline
