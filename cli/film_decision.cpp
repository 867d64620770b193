#include "cli/film_decision.h"

#include <algorithm>

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
  std::erase_if(peaks, [](const SpectrumPeak& peak) { return !peak.isLicensed; });
  licensed_.push_back(std::move(peaks));
  return result;
}

std::vector<SpectrumPeak> FilmDecision::OftenLicensed() const {
  constexpr size_t kOneIn = 4;  // frames; a peak that only chance has lifted does not come back so often
  std::vector<SpectrumPeak> often;
  for (const auto& frame : licensed_) {
    for (const SpectrumPeak& peak : frame) {
      size_t frames = 0;
      for (const auto& other : licensed_) {
        frames += std::any_of(other.begin(), other.end(),
                              [&](const SpectrumPeak& same) { return IsSamePeak(peak, same); });
      }
      if (kOneIn * frames >= licensed_.size()) often.push_back(peak);
    }
  }
  return often;
}

int32_t FilmDecision::Make(SeedMap* seeds) {
  OwnedBuffer map;
  int32_t result = map.Create("Film seeds", kSpectrumCells, kSpectrumCells, kGray8);
  SpectrumFacts mean = {};
  if (result == kSuccess) result = gathering_.Mean(&mean);
  if (result != kSuccess) return result;
  if (settings_.isAutomatic) {
    const std::vector<SpectrumPeak> often = OftenLicensed();
    result = DetectPeaksAutomatically(mean.rawGray16Slot, mean.gray16Slot, mean.logSpan, mean.transformSize,
                                      settings_.sensitivity, settings_.protectionRadius, map.slot(), nullptr,
                                      &often);
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
