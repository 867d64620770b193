// The steps for pictures of any size in memory: those that a transform holds as a whole as ever, larger ones
// in tiles.
#pragma once

#include <cstdint>

#include "removal/steps.h"
#include "restoration/picture_tiles.h"
#include "restoration/restoration.h"

namespace tessaline {

constexpr int32_t kLargestTiledSide = 1000000;  // pixels

// Larger than what is transformed as a whole.
inline bool IsDoneInTiles(const PictureView& picture) {
  return picture.width > kLargestSide || picture.height > kLargestSide;
}

// Analyse. `looked`, if given, receives tiles for DecideWhole (restoration/decision.h).
int32_t AnalyseAnySize(const PictureView& picture, Workspace& workspace, const Progress& progress,
                       Analysis* analysis, PictureTiles* looked = nullptr);

// Restore where the findings are automatic, else Apply. A picture in tiles has a second one's memory for its
// result until all of it is done, so that whatever happens `to` is either untouched or finished.
int32_t TakeOutAnySize(const PictureView& from, const PictureView& to, const Findings& findings,
                       const Mask& mask, Workspace& workspace, const ApplyOptions& options,
                       const RestorationSettings& restoration, const Progress& progress);

}  // namespace tessaline
