#include "restoration/film_decision.h"

#include <algorithm>
#include <iterator>

#include "removal/peak_detection.h"
#include "restoration/decision.h"

namespace tessaline {

int32_t FindingsOf(const KeptDecision& decision, Findings* findings) {
  *findings = {};
  findings->peaks = decision.peaks;
  if (!findings->seeds.Create(kSpectrumCells, kSpectrumCells, 1)) return kOutOfMemory;
  std::copy(decision.seeds.begin(), decision.seeds.end(), findings->seeds.view().data);
  findings->seedCells = CountSeeds(findings->seeds.view());
  return kSuccess;
}

int32_t FilmDecision::Begin() {
  licensed_.clear();
  tiles_ = {};
  return gathering_.Create();
}

int32_t FilmDecision::Add(const PictureView& frame, const Analysis& analysis, Parallel& parallel) {
  gathering_.Add(analysis);
  if (!settings_.isAutomatic) return kSuccess;
  Findings findings;
  int32_t result = Decide(analysis, settings_, &findings);
  if (result == kSuccess) result = tiles_.Add(frame, parallel);
  std::copy_if(findings.peaks.begin(), findings.peaks.end(), std::back_inserter(licensed_),
               [](const SpectrumPeak& peak) { return peak.isLicensed; });
  return result;
}

int32_t FilmDecision::Make(Workspace& workspace, KeptDecision* decision) {
  Analysis mean;
  Findings findings;
  Settings settings = settings_;
  int32_t result = gathering_.Mean(&mean);
  if (result != kSuccess) return result;
  if (!settings.isAutomatic && mean.logSpan > 0) {
    // The acceptance is a share of a picture's whole log range, and the mean's is narrower than a frame's.
    const double share = gathering_.meanLogSpan() / mean.logSpan;
    const double threshold = ThresholdOfAcceptance(settings.acceptance) * share;
    settings.acceptance = AcceptanceOfThreshold(static_cast<float>(threshold));
  }
  result = settings.isAutomatic ? DecideWhole(tiles_, mean, settings, workspace, &findings, &licensed_)
                                : Decide(mean, settings, &findings);
  if (result == kSuccess) *decision = {CellsOf(findings.seeds), std::move(findings.peaks)};
  return result;
}

}  // namespace tessaline
