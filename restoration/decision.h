// What the automatic run decides beyond the peaks of the spectrum's cells.
//
//   CheckLicences      a regular peak that nobody could see is not worth touching a picture for
//   AddSmearedPeaks    a warped or curled page spreads a peak over tens of cells, below any one cell's height
#pragma once

#include <cstdint>

#include "removal/steps.h"

namespace tessaline {

// After an automatic Decide of the same picture; makes `findings` what is to be shaped and restored. Returns
// 0 or kOutOfMemory.
int32_t CompleteFindings(const PictureView& picture, const Analysis& analysis, const Settings& settings,
                         Workspace& workspace, Findings* findings);

// Decide and, where automatic, CompleteFindings: the one decision that every door makes. `picture` is the one
// that was analysed; null where it is not at hand, and then the licences are not checked. Returns 0 or
// kOutOfMemory.
int32_t DecideWhole(const PictureView* picture, const Analysis& analysis, const Settings& settings,
                    Workspace& workspace, Findings* findings);

// The two parts of it.

// Takes all licences and seeds back when none of the three strongest licensed peaks has an amplitude of 2
// levels of 255 in the picture's strong places: in tiles of 128 x 128, of which 98 % lie below those.
int32_t CheckLicences(const PictureView& picture, Parallel& parallel, Findings* findings);

// Adds the peaks that a smoothed spectrum shows, and their cells.
int32_t AddSmearedPeaks(const Analysis& analysis, const Settings& settings, Findings* findings);

}  // namespace tessaline
