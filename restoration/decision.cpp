#include "restoration/decision.h"

#include <algorithm>
#include <new>
#include <utility>

#include "restoration/line_offsets.h"

namespace tessaline {

namespace {

bool HasLicence(const Findings& findings) {
  return std::any_of(findings.peaks.begin(), findings.peaks.end(),
                     [](const SpectrumPeak& peak) { return peak.isLicensed; });
}

// What smeared peaks take is taken everywhere, writing too: where tiles show the screen in parts of the page
// they tell in place of those.
int32_t PreferParts(const TiledPicture& tiled, const Analysis& analysis, const Settings& settings,
                    Parallel& parallel, Findings* findings) {
  Findings inParts;
  int32_t result = Decide(analysis, settings, &inParts);
  if (result == kSuccess) result = AddLocalPeaks(tiled, settings, parallel, &inParts, LocalWish::kParts);
  if (result == kSuccess && HasLicence(inParts)) *findings = std::move(inParts);
  return result;
}

int32_t DecideOnTiles(const TiledPicture& tiled, const Analysis& analysis, const Settings& settings,
                      Workspace& workspace, Findings* findings,
                      const std::vector<SpectrumPeak>* licensedBefore, KeptMeasures* kept = nullptr) {
  int32_t result = Decide(analysis, settings, findings, licensedBefore);
  if (result != kSuccess || !findings->isAutomatic) return result;
  const bool hadLicence = HasLicence(*findings);
  result = CheckLicences(tiled, workspace.parallel(), findings, kept);
  if (result != kSuccess) return result;
  if (hadLicence && !HasLicence(*findings)) {
    // Coarse inks that a warped page has spread look like a sheet of digits in the whole; tiles tell.
    result = AddLocalPeaks(tiled, settings, workspace.parallel(), findings);
    return result != kSuccess || !HasLicence(*findings)
               ? result
               : MeasureStrength(tiled, workspace.parallel(), findings, kept);
  }
  result = AddSmearedPeaks(analysis, settings, findings, kept);
  if (result != kSuccess || hadLicence) return result;
  result = HasLicence(*findings) ? PreferParts(tiled, analysis, settings, workspace.parallel(), findings)
                                 : AddLocalPeaks(tiled, settings, workspace.parallel(), findings);
  if (result != kSuccess) return result;
  if (!HasLicence(*findings))
    return AddLineOffsets(tiled, analysis, settings, workspace.parallel(), findings);
  return MeasureStrength(tiled, workspace.parallel(), findings, kept);
}

}  // namespace

int32_t DecideWhole(const PictureView& picture, const Analysis& analysis, const Settings& settings,
                    Workspace& workspace, Findings* findings) {
  if (!settings.isAutomatic) return Decide(analysis, settings, findings);
  try {
    return DecideOnTiles(TilesOf(picture), analysis, settings, workspace, findings, nullptr);
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
}

int32_t DecideWhole(const PictureTiles& tiles, const Analysis& analysis, const Settings& settings,
                    Workspace& workspace, Findings* findings,
                    const std::vector<SpectrumPeak>* licensedBefore) {
  try {
    return DecideOnTiles(tiles.view(), analysis, settings, workspace, findings, licensedBefore);
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
}

int32_t DecideWhole(const TiledPicture& tiled, const Analysis& analysis, const Settings& settings,
                    Workspace& workspace, Findings* findings, KeptMeasures* kept) {
  try {
    return DecideOnTiles(tiled, analysis, settings, workspace, findings, nullptr, kept);
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
}

}  // namespace tessaline
