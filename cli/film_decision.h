// One decision for all frames of a film, gathered over several of them.
//
// A single frame is a poor judge of a faint pattern: grain and what moves through the view lift a peak above
// its limit in one frame and not in the next. So the frames' spectra are averaged before deciding, and a peak
// that had a licence in one of them keeps it where the mean bears it out (see DetectPeaksAutomatically).
#pragma once

#include <cstdint>
#include <vector>

#include "cli/options.h"
#include "removal/automatic_detection.h"
#include "removal/spectrum_gathering.h"

namespace tessaline::cli {

using SeedMap = std::vector<uint8_t>;  // 512 x 512 cells, 255 pattern

class FilmDecision {
 public:
  explicit FilmDecision(const RemovalSettings& settings) : settings_(settings) {}

  // Begins anew. Returns 0 or kOutOfMemory.
  int32_t Begin();
  // During a run's detect call; the seed map stays empty, for nothing is decided yet. Returns 0, or a result
  // that ends the run.
  int32_t Add(const SpectrumFacts& spectrum, int32_t seedSlot);
  // The decision of all frames added, point-symmetric; empty cells throughout where nothing is found. Returns
  // 0 or kOutOfMemory.
  int32_t Make(SeedMap* seeds);

 private:
  RemovalSettings settings_;
  SpectrumGathering gathering_;
  std::vector<SpectrumPeak> licensed_;  // in any of the frames
};

}  // namespace tessaline::cli
