// An acceptance found from the picture itself: instead of one threshold for the whole spectrum, every peak is
// measured against its own surroundings.
//
// A peak's height h is the natural log of its magnitude over the usual magnitude nearby, a scale that does
// not depend on the picture's range. Two levels decide. A licence needs a high, isolated peak that nothing
// else explains (lines of text, JPEG blocks, windows, edges). Once one peak has a licence, lower ones that
// stand out are used too, because the harmonics and side bands of a screen are weak. Without a licence
// nothing is removed. docs/automatic.md tells the rule at length; the named functions of the implementation
// follow it step by step.
#pragma once

#include <cstdint>
#include <vector>

#include "image/image_view.h"

namespace tessaline {

// Why a peak is left out.
enum class PeakVerdict : int32_t {
  kUsed,
  kTextLines,    // one of evenly spaced harmonics of something longer than the protected period
  kBlocks,       // at the frequencies of 8 x 8 blocks
  kSkirt,        // leakage of a higher peak close by
  kNotIsolated,  // stands out, but something beside it is higher and no licensed peak is near
  kNoLicence,    // would have been used, but no peak of the picture has a licence
  kTooFaint,     // would have a licence, but nobody could see it (restoration/decision.h)
  kOffLattice,   // near an axis, without a licence, and no sum of licensed peaks
};

// How far a peak is spread.
enum class PeakScale : int32_t {
  kFine,   // over a few cells: the page is flat
  kNear,   // smeared over tens of cells, as a warped or curled page does
  kFar,    // more so
  kParts,  // over each other: only the spectra of small tiles show it, in parts of the picture
  kLocal,  // likewise, all over the picture
  kLines,  // no peak, all of an axis: rows (dx = 0) or columns (dy = 0) of pixels have an offset each
};

// One peak of the upper half of the spectrum; its partner at (-dx, -dy) belongs to it.
struct SpectrumPeak {
  int32_t dx, dy;  // cells from the zero frequency; dy <= 0
  double period;   // image pixels
  double angle;   // degrees, 0 <= angle < 180, counter-clockwise from the x axis: the direction of the repeat
  double height;  // h
  double isolation;   // natural log of the peak over the highest cell 4 to 12 cells away
  double background;  // natural log over the spectrum minimum: what is usual nearby
  bool isGrid;        // a product of two axis-parallel repeats (windows, tiles): never licensed
  bool isLicensed;
  PeakVerdict verdict;
  PeakScale scale = PeakScale::kFine;
};

// Makes the seed map (512 x 512 bytes, 255 pattern, 0 keep) from the log spectrum before (`rawGray16`)
// and after
// (`gray16`) the peak enhancement, both 512 x 512, 16-bit, 0..32768. `logSpan` is the natural log range
// that 32768 stands for, `transformSize` the side of the transform that the spectrum was summed from,
// `protectionRadius` in image pixels. The map is exactly point-symmetric (cell x, y with cell (512 - x) mod
// 512, (512 - y) mod 512) and holds nothing inside the protected disc.
//
// `peaks`, when not null, receives every peak that stands out, highest first (then by row and column).
// `licensedBefore`, when not null, are peaks that had a licence in other pictures with the same pattern: at
// their places half of what a licence asks for beyond the weak level keeps it, so that a peak on the edge
// does not come and go. `keepsToLattice`: of the peaks near an axis that have no licence only
// those are used that are sums of two or three licensed ones. Returns 0; kUnequalSizes when an image has
// another shape; kOutOfMemory; the map is unchanged on an error.
int32_t DetectPeaksAutomatically(const ConstImageView& rawGray16, const ConstImageView& gray16,
                                 double logSpan, int32_t transformSize, double sensitivity,
                                 float protectionRadius, const ImageView& seeds,
                                 std::vector<SpectrumPeak>* peaks,
                                 const std::vector<SpectrumPeak>* licensedBefore = nullptr,
                                 bool keepsToLattice = false);

// The verdict in a word or two, as reports and interfaces say it: "used", "text lines", "blocks", "windows"
// (a grid that is left out, whatever for), "skirt", "not isolated", "no licence".
const char* VerdictWords(const SpectrumPeak& peak);

// Whether a place lies within 3.4 degrees of an axis, or 3 cells: there the picture's edges and lines of text
// have their spectrum too.
bool IsNearAxis(int32_t dx, int32_t dy);

// Whether two peaks are the same repeat, as near as two pictures tell: at most 2 cells apart.
bool IsSamePeak(const SpectrumPeak& a, const SpectrumPeak& b);

}  // namespace tessaline
