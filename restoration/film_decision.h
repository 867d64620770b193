// One decision for all frames of a film, gathered over several of them.
//
// A single frame is a poor judge of a faint pattern: grain and what moves through the view lift a peak above
// its limit in one frame and not in the next. So the frames' spectra are averaged before deciding, and a peak
// that had a licence in one of them keeps it where the mean bears it out (see DetectPeaksAutomatically).
// The rest is as for one picture (restoration/decision.h).
#pragma once

#include <cstdint>
#include <vector>

#include "removal/spectrum_gathering.h"
#include "removal/steps.h"
#include "restoration/picture_tiles.h"

namespace tessaline {

using SeedMap = std::vector<uint8_t>;  // 512 x 512 cells, 255 pattern

// The bytes of a 512 x 512 grid.
inline std::vector<uint8_t> CellsOf(const Image& grid) {
  const uint8_t* const cells = grid.view().data;
  return {cells, cells + size_t{kSpectrumCells} * kSpectrumCells};
}

// What was decided before, for pictures that are not looked at.
struct KeptDecision {
  SeedMap seeds;
  std::vector<SpectrumPeak> peaks;  // automatic: by whose licences each picture's gate is measured
};

// The decision as the findings of a picture that was not looked at. Returns 0 or kOutOfMemory.
int32_t FindingsOf(const KeptDecision& decision, Findings* findings);

// As many frames as even out grain and scenery.
constexpr size_t kDecidingFrames = 8;

class FilmDecision {
 public:
  explicit FilmDecision(const Settings& settings) : settings_(settings) {}

  // Begins anew. Returns 0 or kOutOfMemory.
  int32_t Begin();
  // One frame and its analysis. Returns 0 or kOutOfMemory.
  int32_t Add(const PictureView& frame, const Analysis& analysis, Parallel& parallel);
  // The decision of all frames added, point-symmetric; empty cells throughout where nothing is found. Returns
  // 0 or kOutOfMemory. More frames may be added afterwards.
  int32_t Make(Workspace& workspace, KeptDecision* decision);

 private:
  Settings settings_;
  SpectrumGathering gathering_;
  PictureTiles tiles_;                  // of all frames: whether anybody could see the pattern
  std::vector<SpectrumPeak> licensed_;  // in any of the frames
};

}  // namespace tessaline
