#include "cli/film_decision.h"

#include <algorithm>
#include <iterator>

#include "buffers/buffer_table.h"
#include "buffers/levels.h"
#include "buffers/result_codes.h"
#include "cli/spectrum_picture.h"
#include "removal/peak_detection.h"

namespace tessaline::cli {

int32_t FilmDecision::Begin() {
  licensed_.clear();
  return gathering_.Create();
}

int32_t FilmDecision::Add(const SpectrumFacts& spectrum, int32_t seedSlot) {
  gathering_.Add(spectrum);
  if (!settings_.isAutomatic) return kSuccess;
  std::vector<SpectrumPeak> peaks;
  const int32_t result = DetectPeaksAutomatically(
      spectrum.rawGray16Slot, spectrum.gray16Slot, spectrum.logSpan, spectrum.transformSize,
      settings_.sensitivity, settings_.protectionRadius, seedSlot, &peaks);
  ClearBuffer(seedSlot);
  std::copy_if(peaks.begin(), peaks.end(), std::back_inserter(licensed_),
               [](const SpectrumPeak& peak) { return peak.isLicensed; });
  return result;
}

int32_t FilmDecision::Make(SeedMap* seeds) {
  OwnedBuffer map;
  int32_t result = map.Create("Film seeds", kSpectrumCells, kSpectrumCells, kGray8);
  SpectrumFacts mean = {};
  if (result == kSuccess) result = gathering_.Mean(&mean);
  if (result != kSuccess) return result;
  if (settings_.isAutomatic) {
    result = DetectPeaksAutomatically(mean.rawGray16Slot, mean.gray16Slot, mean.logSpan, mean.transformSize,
                                      settings_.sensitivity, settings_.protectionRadius, map.slot(), nullptr,
                                      &licensed_);
  } else if (mean.logSpan > 0) {
    // The acceptance is a share of a picture's whole log range, and the mean's is narrower than a frame's.
    const double share = gathering_.meanLogSpan() / mean.logSpan;
    const double threshold = ThresholdOfAcceptance(settings_.acceptance) * share;
    result = DetectPeaks(mean.gray16Slot, static_cast<float>(std::min(threshold, double{kByteMax})),
                         settings_.protectionRadius, map.slot());
  }
  if (result == kSuccess) *seeds = CopyCells(map.slot());
  return result;
}

}  // namespace tessaline::cli
