#include "cli/engine_run.h"

#include <algorithm>
#include <chrono>

#include "buffers/buffer_table.h"
#include "buffers/levels.h"
#include "buffers/result_codes.h"
#include "cli/refusal.h"
#include "cli/spectrum_picture.h"

namespace tessaline::cli {
namespace {

using Clock = std::chrono::steady_clock;

// What the callbacks of one run know.
struct Watch {
  const EngineWishes& wishes;
  const EngineProgress& progress;
  int32_t channels;
  EngineOutcome outcome;
  RemovalStage stage = RemovalStage::kCount;  // kCount: not begun
  Clock::time_point entered;
  bool isSecondPass = false;

  void Enter(RemovalStage next) {
    const Clock::time_point now = Clock::now();
    if (stage != RemovalStage::kCount) {
      outcome.stageSeconds[static_cast<size_t>(stage)] +=
          std::chrono::duration<double>(now - entered).count();
    }
    stage = next;
    entered = now;
  }
};

void OnStage(void* user, RemovalStage stage) {
  static_cast<Watch*>(user)->Enter(stage);
}

int32_t OnDetect(void* user, const SpectrumFacts& spectrum, const FilterParameters& parameters,
                 int32_t seedSlot) {
  Watch* watch = static_cast<Watch*>(user);
  if (watch->wishes.frozenSeeds != nullptr) {
    const uint8_t* row = watch->wishes.frozenSeeds->data();
    for (int32_t y = 0; y < kSpectrumCells; ++y, row += kSpectrumCells) {
      WriteBufferRow(seedSlot, 0, y, kSpectrumCells, row);
    }
    return kSuccess;
  }
  if (watch->wishes.gathersInto != nullptr) return watch->wishes.gathersInto->Add(spectrum, seedSlot);
  return DetectPeaksAutomatically(spectrum.rawGray16Slot, spectrum.gray16Slot, spectrum.logSpan,
                                  spectrum.transformSize, watch->wishes.settings.sensitivity,
                                  parameters.protectionRadius, seedSlot, &watch->outcome.peaks);
}

bool OnFindings(void* user, const RemovalFindings& findings) {
  Watch* watch = static_cast<Watch*>(user);
  EngineOutcome& outcome = watch->outcome;
  outcome.patternFound = findings.seedCells > 0;
  outcome.transformSize = findings.spectrum.transformSize;
  outcome.threshold = findings.threshold;
  outcome.seedCells = findings.seedCells;
  outcome.logSpan = findings.spectrum.logSpan;
  outcome.hasThreshold = !watch->wishes.settings.isAutomatic && watch->wishes.frozenSeeds == nullptr;
  outcome.isAutomatic = watch->wishes.settings.isAutomatic && watch->wishes.frozenSeeds == nullptr;
  if (watch->wishes.collectsNotches) outcome.notches = CollectNotches(findings);
  if (watch->wishes.collectsSeeds) outcome.seeds = CopyCells(findings.seedSlot);
  if (watch->wishes.drawsSpectrum) {
    outcome.spectrumPicture = DrawSpectrum(findings, watch->wishes.settings.protectionRadius,
                                           outcome.isAutomatic ? &outcome.peaks : nullptr);
    outcome.maskPicture = CopyCells(findings.maskSlot);
  }
  watch->isSecondPass = true;
  outcome.samplesChanged = outcome.patternFound && !watch->wishes.onlyLook;
  return !watch->wishes.onlyLook;
}

void OnProgress(void* user, int32_t done, int32_t total) {
  const Watch* watch = static_cast<const Watch*>(user);
  if (!watch->progress || total <= 0) return;
  const double part = static_cast<double>(done) / total;
  // The transforms tell 1/6 + 2/3 of their place in a scale made for three channels: the first pass begins at
  // step 0 of 6, the second at 8 of 16. In transforms, of which each channel needs one and then two:
  const double place = (part - 1.0 / 6) * 3 / 2;
  const double transforms = watch->isSecondPass ? watch->channels + place * 16 - 8 : place * 6;
  watch->progress(transforms / (3.0 * watch->channels), watch->isSecondPass ? "removing" : "looking");
}

}  // namespace

EngineOutcome RunEngine(int32_t slot, const EngineWishes& wishes, const EngineProgress& progress,
                        const std::string& name) {
  const BufferShape shape = ShapeOf(slot);
  Watch watch = {wishes, progress, shape.bytesPerPixel == kRgb8 || shape.bytesPerPixel == kRgb16 ? 3 : 1, {}};
  RemovalContext context;
  context.progress.progressEnabled = static_cast<bool>(progress);
  context.progress.progress = OnProgress;
  context.progress.user = &watch;
  if (wishes.settings.isAutomatic || wishes.frozenSeeds != nullptr || wishes.gathersInto != nullptr) {
    context.detect = OnDetect;
  }
  context.inspect = OnFindings;
  context.enterStage = OnStage;
  context.user = &watch;
  FilterParameters parameters = {};
  parameters.acceptance = wishes.settings.acceptance;
  parameters.notchRadius = wishes.settings.notchRadius;
  parameters.protectionRadius = wishes.settings.protectionRadius;

  const int32_t result = RunRemoval(slot, &parameters, nullptr, true, context);
  watch.Enter(RemovalStage::kCount);  // ends the last stage
  if (result == kOutOfMemory) {
    throw Refusal(ExitStatus::kOutOfMemory, name,
                  "not enough memory for the transform; close other programs or give it a "
                  "smaller picture");
  }
  if (result != kSuccess) {
    throw Refusal(ExitStatus::kUnsupported, name, "the run refused it (code " + std::to_string(result) + ")");
  }
  return watch.outcome;
}

const char* StageName(RemovalStage stage) {
  constexpr const char* kNames[] = {"load", "paddingFill", "forward", "spectrum", "dialog",
                                    "mask", "applyMask",   "inverse", "store"};
  static_assert(std::size(kNames) == static_cast<size_t>(RemovalStage::kCount));
  return kNames[static_cast<size_t>(stage)];
}

}  // namespace tessaline::cli
