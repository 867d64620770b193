#include "cli/engine_run.h"

#include <chrono>

#include "cli/refusal.h"
#include "removal/spectrum_picture.h"
#include "restoration/decision.h"

namespace tessaline::cli {
namespace {

// Of a picture whose samples stay as they are. Where nothing was found the gate is closed.
int32_t DrawGateOnly(const PictureView& picture, const Findings& findings, Workspace& workspace,
                     const RestorationSettings& settings, Image* gate) {
  if (findings.seedCells > 0) return MeasureGate(picture, findings, workspace, settings, gate);
  return gate->Create(picture.width, picture.height, 1) ? kSuccess : kOutOfMemory;
}

}  // namespace

bool EngineStretch::Report(void* stretch, double part) {
  const auto& told = *static_cast<EngineStretch*>(stretch);
  if (told.progress) told.progress(told.begin + (told.end - told.begin) * part, told.doing);
  return false;
}

void DemandStep(int32_t result, const std::string& name) {
  if (result == kOutOfMemory) {
    throw Refusal(ExitStatus::kOutOfMemory, name,
                  "not enough memory for the transform; close other programs or give it a "
                  "smaller picture");
  }
  if (result != kSuccess) {
    throw Refusal(ExitStatus::kUnsupported, name, "the run refused it (code " + std::to_string(result) + ")");
  }
}

void DescribeDecision(const Analysis& analysis, const Findings& findings, const Mask& mask,
                      const EngineWishes& wishes, EngineOutcome* outcome) {
  const bool isFrozen = wishes.frozen != nullptr;
  outcome->patternFound = findings.seedCells > 0;
  outcome->threshold = findings.threshold;
  outcome->seedCells = findings.seedCells;
  outcome->logSpan = analysis.logSpan;
  outcome->hasThreshold = !wishes.settings.isAutomatic && !isFrozen;
  outcome->isAutomatic = findings.isAutomatic;
  outcome->isOfLight = CurveOf(wishes.restoration, findings) != nullptr;
  if (wishes.collectsNotches && !isFrozen) outcome->notches = CollectNotches(analysis, findings);
  if (wishes.collectsSeeds) outcome->seeds = CellsOf(findings.seeds);
  if (wishes.drawsSpectrum && !isFrozen) {
    outcome->spectrumPicture = DrawSpectrum(analysis, findings, mask, wishes.settings.protectionRadius);
    outcome->maskPicture = CellsOf(mask.cells);
  }
  if (!isFrozen) outcome->peaks = findings.peaks;
  outcome->samplesChanged = outcome->patternFound && !wishes.onlyLook;
}

EngineOutcome RunEngine(const PictureView& picture, Workspace& workspace, const EngineWishes& wishes,
                        const EngineProgress& progress, const std::string& name) {
  // Looking costs about as much as removing.
  const bool isFrozen = wishes.frozen != nullptr;
  const double looked = isFrozen ? 0.0 : 0.5;
  EngineOutcome outcome;
  outcome.transformSize = TransformSizeFor(picture);
  StepClock clock;
  Analysis analysis;
  Findings findings;
  if (isFrozen) {
    DemandStep(FindingsOf(*wishes.frozen, &findings), name);
  } else {
    EngineStretch looking{progress, "looking", 0.0, looked};
    const bool isByNumber = !wishes.settings.isAutomatic && wishes.gathersInto == nullptr;
    DemandStep(Analyse(picture, workspace, looking.OfStep(), &analysis,
                       isByNumber ? DecisionKind::kByNumber : DecisionKind::kAny),
               name);
    outcome.seconds.analyse = clock.Lap();
    if (wishes.gathersInto != nullptr) {
      DemandStep(wishes.gathersInto->Add(picture, analysis, workspace.parallel()), name);
      outcome.logSpan = analysis.logSpan;
      return outcome;
    }
    DemandStep(DecideWhole(picture, analysis, wishes.settings, workspace, &findings), name);
    outcome.seconds.decide = clock.Lap();
  }
  Mask mask;
  DemandStep(Shape(findings, wishes.settings, &mask), name);
  outcome.seconds.shape = clock.Lap();

  DescribeDecision(analysis, findings, mask, wishes, &outcome);
  Image* const gate = wishes.drawsGate ? &outcome.gatePicture : nullptr;
  if (gate != nullptr && !outcome.samplesChanged) {
    DemandStep(DrawGateOnly(picture, findings, workspace, wishes.restoration, gate), name);
  }
  if (!outcome.samplesChanged) return outcome;

  clock.Lap();
  ApplyOptions options;
  options.chain = analysis.chain;
  EngineStretch removing{progress, "removing", looked, 1.0};
  const Progress progressOfStep = removing.OfStep();
  DemandStep(wishes.settings.isAutomatic ? Restore(picture, picture, findings, mask, workspace, options,
                                                   wishes.restoration, progressOfStep, gate)
                                         : Apply(picture, picture, mask, workspace, options, progressOfStep),
             name);
  outcome.seconds.apply = clock.Lap();
  return outcome;
}

}  // namespace tessaline::cli
