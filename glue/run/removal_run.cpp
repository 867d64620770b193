#include "glue/run/removal_run.h"

#include <new>

#include "buffers/buffer_conversion.h"
#include "buffers/buffer_table.h"
#include "buffers/host_progress.h"
#include "image/pixel_kind.h"
#include "platform/message.h"

namespace tessaline {

namespace {

// The transforms of the two passes in the steps that hosts are told.
std::vector<TransformSteps> FirstPassSteps(int32_t channels) {
  constexpr int32_t kTotalSteps = 6;
  std::vector<TransformSteps> steps;
  steps.reserve(static_cast<size_t>(channels));
  for (int32_t c = 0; c < channels; ++c) steps.push_back({Direction::kForward, c, c + 1, kTotalSteps});
  return steps;
}

std::vector<TransformSteps> SecondPassSteps(int32_t channels) {
  constexpr int32_t kTotalSteps = 16;
  constexpr int32_t kFirstStep = 8;
  std::vector<TransformSteps> steps;
  for (int32_t c = 0; c < channels; ++c) {
    const int32_t step = kFirstStep + 2 * c;
    steps.push_back({Direction::kForward, step, step + 1, kTotalSteps});
    steps.push_back({Direction::kInverse, step + 1, step + 2, kTotalSteps});
  }
  return steps;
}

Settings SettingsOf(const FilterParameters& parameters) {
  Settings settings;
  settings.acceptance = parameters.acceptance;
  settings.notchRadius = parameters.notchRadius;
  settings.protectionRadius = parameters.protectionRadius;
  return UsableSettings(settings);
}

void MakeUsable(FilterParameters* parameters) {
  const Settings usable = SettingsOf(*parameters);
  parameters->acceptance = usable.acceptance;
  parameters->notchRadius = usable.notchRadius;
  parameters->protectionRadius = usable.protectionRadius;
}

// The spectrum images that the dialog is given, in slots.
struct SpectrumBuffers {
  OwnedBuffer gray16;  // "PSPECgray16": with its peaks enhanced
  OwnedBuffer gray8;   // "PSPECgray8": display copy, made before the enhancement

  int32_t Create(const Analysis& analysis, FilterParameters* parameters) {
    int32_t result = gray16.Create("PSPECgray16", kSpectrumCells, kSpectrumCells, kGray16);
    if (result == kSuccess) result = gray8.Create("PSPECgray8", kSpectrumCells, kSpectrumCells, kGray8);
    if (result != kSuccess) return result;
    CopyImage(analysis.rawGray16.view(), ViewOf(gray16.slot()));
    result = ConvertBuffer(gray16.slot(), gray8.slot());
    CopyImage(analysis.gray16.view(), ViewOf(gray16.slot()));
    parameters->gray16Slot = gray16.slot();
    parameters->gray8Slot = gray8.slot();
    return result;
  }
};

int32_t Run(int32_t sourceSlot, FilterParameters* parameters, ParameterList* list, bool suppressDialog,
            const RunDoor& door) {
  const PictureView picture = PictureOf(ViewOf(sourceSlot));
  const int32_t n = TransformSizeFor(picture);
  Workspace workspace;
  Analysis analysis;
  HostProgress firstPass(&door.progress, n, n, FirstPassSteps(picture.channels));
  int32_t result = Analyse(picture, workspace, firstPass.progress(), &analysis);
  if (result != kSuccess) return result;

  SpectrumBuffers spectrum;
  result = spectrum.Create(analysis, parameters);
  if (result != kSuccess) return result;
  if (!suppressDialog && door.openDialog != nullptr) {
    workspace.Release();  // a dialog may stay open for long
    const int32_t answer = door.openDialog(door.user, sourceSlot, parameters);
    if (answer != kSuccess) return answer == kOutOfMemory ? kOutOfMemory : kUserCancelled;
    MakeUsable(parameters);
    if (list != nullptr) StoreParameters(*parameters, list);
  }

  Findings findings;
  result = Decide(analysis, SettingsOf(*parameters), &findings);
  if (result != kSuccess || findings.seedCells == 0) return result;
  Mask mask;
  result = Shape(findings, SettingsOf(*parameters), &mask);
  if (result != kSuccess) return result;
  ApplyOptions options;
  options.chain = analysis.chain;
  HostProgress secondPass(&door.progress, n, n, SecondPassSteps(picture.channels));
  result = Apply(picture, picture, mask, workspace, options, secondPass.progress().Unstoppable());
  if (result == kSuccess) MarkDirty(sourceSlot);
  return result;
}

}  // namespace

bool RefuseTooLarge(int32_t width, int32_t height) {
  if (height <= kLargestSide && width <= kLargestSide) return false;
  ShowMessage(
      "Tessaline is limited to 7500x7500 pixels\n for the image or selection.\n Try using either a smaller "
      "image or a selection.",
      "Ombrant Vistrel");
  return true;
}

int32_t RunRemoval(int32_t sourceSlot, FilterParameters* parameters, ParameterList* list, bool suppressDialog,
                   const RunDoor& door) {
  const BufferShape source = ShapeOf(sourceSlot);
  if (RefuseTooLarge(source.width, source.height)) return kUserCancelled;
  if (!IsPictureKind(source.bytesPerPixel) || parameters == nullptr) return kUnknownPixelKind;
  MakeUsable(parameters);
  try {
    return Run(sourceSlot, parameters, list, suppressDialog, door);
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
}

}  // namespace tessaline
