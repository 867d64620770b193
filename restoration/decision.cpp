#include "restoration/decision.h"

namespace tessaline {

int32_t DecideWhole(const PictureView* picture, const Analysis& analysis, const Settings& settings,
                    Workspace& workspace, Findings* findings) {
  const int32_t result = Decide(analysis, settings, findings);
  if (result != kSuccess || !findings->isAutomatic) return result;
  if (picture == nullptr) return AddSmearedPeaks(analysis, settings, findings);
  return CompleteFindings(*picture, analysis, settings, workspace, findings);
}

}  // namespace tessaline
