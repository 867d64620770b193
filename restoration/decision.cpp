#include "restoration/decision.h"

#include <algorithm>
#include <new>

#include "restoration/line_offsets.h"

namespace tessaline {

namespace {

bool HasLicence(const Findings& findings) {
  return std::any_of(findings.peaks.begin(), findings.peaks.end(),
                     [](const SpectrumPeak& peak) { return peak.isLicensed; });
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
  if (!HasLicence(*findings)) {
    result = AddLocalPeaks(tiled, settings, workspace.parallel(), findings);
    if (result != kSuccess) return result;
  }
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
