// Rows and columns of pixels that have an offset each, as the lines of a sensor that are read out one after
// the other: no repeat, so no peak of the spectrum shows them, but all of an axis is lifted by them.
//
// They are found in tiles, where four segments of a line say the same offset although they say different
// pictures, in nearly all tiles as strongly, and neighbouring lines' offsets have nothing to do with each
// other. They are taken out line by line, by what most of a line agrees on; notches along an axis would take
// every level edge with them.
#pragma once

#include <cstdint>

#include "platform/progress.h"
#include "removal/steps.h"
#include "restoration/picture_tiles.h"

namespace tessaline {

// Adds a peak of PeakScale::kLines, and the cells of its axis, for rows (dx = 0) and for columns (dy = 0)
// whose offsets, coarser than some 10 lines left out, are 0.8 levels of 255 or more (root of the mean square,
// in one channel; divided by the sensitivity). `findings` has no licence. Pictures smaller than a tile have
// no lines. Returns 0 or kOutOfMemory.
int32_t AddLineOffsets(const TiledPicture& tiled, const Analysis& analysis, const Settings& settings,
                       Parallel& parallel, Findings* findings);

// Whether such peaks have the licences.
bool IsOfLines(const Findings& findings);

// Takes the offsets out of the lines that the licensed peaks name, which are measured in `from`; samples at
// either end of their range stay as they are, for they were cut off there. `to` as of Apply, rounded to
// nearest. Returns 0; kOutOfMemory or kUserCancelled with nothing changed.
int32_t TakeLineOffsetsOut(const PictureView& from, const PictureView& to, const Findings& findings,
                           Parallel& parallel, const Progress& progress);

}  // namespace tessaline
