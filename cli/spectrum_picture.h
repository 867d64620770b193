// Pictures of what a run saw and what it takes out.
#pragma once

#include <cstdint>
#include <vector>

#include "removal/automatic_detection.h"
#include "removal/removal_run.h"

namespace tessaline::cli {

// 512 x 512 RGB pixels: the log spectrum in grey, what is taken out in red (the stronger the more), the
// protected disc in blue with a bright rim. Peaks that the picture itself decided on are marked on both
// sides: licensed ones by a yellow circle, those left out for a reason by a square and its letter, T for text
// lines (cyan), B for compression blocks (green), W for windows and tiles (violet). To be called while the
// findings' slots are valid.
std::vector<uint8_t> DrawSpectrum(const RemovalFindings& findings, float protectionRadius,
                                  const std::vector<SpectrumPeak>& peaks);

// The 512 x 512 bytes of a findings' seed map or mask.
std::vector<uint8_t> CopyCells(int32_t slot);

}  // namespace tessaline::cli
