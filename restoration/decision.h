// What the automatic run decides beyond the peaks of the spectrum's cells.
//
//   CheckLicences      a regular peak that nobody could see is not worth touching a picture for, and sheets
//                      of digits have no screen
//   AddSmearedPeaks    a warped or curled page spreads a peak over tens of cells, below any one cell's height
#pragma once

#include <cstdint>
#include <vector>

#include "image/pixel_kind.h"
#include "removal/steps.h"
#include "restoration/picture_tiles.h"

namespace tessaline {

// What decisions on one analysis and its tiles have in common whatever the settings are: kept, it spares the
// next one most of its time. They are the same with it and without.
struct KeptMeasures {
  struct Strength {
    int32_t dx, dy;    // of the peak
    double amplitude;  // in the strong places
  };
  std::vector<Strength> strengths;
  // All that stand out in the spectrum smoothed as for a near and for a far smear, without their licences.
  std::vector<SpectrumPeak> smeared[2];
  bool isSmeared[2] = {};      // whether they were looked for
  std::vector<double> narrow;  // the spectrum smoothed least, by cell; may be empty
};

// The one decision that every door makes: Decide, and where that is automatic the two parts below. `picture`
// is the one that was analysed. Returns 0 or kOutOfMemory.
int32_t DecideWhole(const PictureView& picture, const Analysis& analysis, const Settings& settings,
                    Workspace& workspace, Findings* findings);

// The same where the picture is gone or there were several: `tiles` are of all that were analysed. With one
// picture it is the same decision. `licensedBefore` as of Decide.
int32_t DecideWhole(const PictureTiles& tiles, const Analysis& analysis, const Settings& settings,
                    Workspace& workspace, Findings* findings,
                    const std::vector<SpectrumPeak>* licensedBefore = nullptr);

// Likewise, and with what earlier decisions on the same left in `kept`.
int32_t DecideWhole(const TiledPicture& tiled, const Analysis& analysis, const Settings& settings,
                    Workspace& workspace, Findings* findings, KeptMeasures* kept);

// The parts of it. `kept` as of DecideWhole, or null.

// Amplitudes are told up to this one only: enough of a print to be one of dots, whatever more it has.
constexpr double kMostAmplitude = 16.0 * kByteToHost;

// Takes all licences and seeds back when none of the three strongest licensed peaks has an amplitude of 2
// levels of 255 in the strong places: the tiles of which 98 % lie below those. So it does where more than a
// dozen peaks off the axes are stronger than every licensed one, as in a sheet of digits.
int32_t CheckLicences(const TiledPicture& tiled, Parallel& parallel, Findings* findings,
                      KeptMeasures* kept = nullptr);

// Adds the peaks that a smoothed spectrum shows, and their cells.
int32_t AddSmearedPeaks(const Analysis& analysis, const Settings& settings, Findings* findings,
                        KeptMeasures* kept = nullptr);

// Of findings without a licence, adds two peaks square to each other where most of the picture's tiles show a
// screen of about one ruling each, or those of every ink where that is so in parts of a page; and the cells
// of all that stands out in the tiles: for LocalNotches.
enum class LocalWish { kAny, kParts };  // either, or in parts of a page alone
int32_t AddLocalPeaks(const TiledPicture& tiled, const Settings& settings, Parallel& parallel,
                      Findings* findings, LocalWish wish = LocalWish::kAny);

// Measures the strongest licensed peak, whatever its scale.
int32_t MeasureStrength(const TiledPicture& tiled, Parallel& parallel, Findings* findings,
                        KeptMeasures* kept = nullptr);

}  // namespace tessaline
