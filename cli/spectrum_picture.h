// Pictures of what a run saw and what it takes out.
#pragma once

#include <cstdint>
#include <vector>

#include "removal/removal_run.h"

namespace tessaline::cli {

// 512 x 512 RGB pixels: the log spectrum in grey, what is taken out in red (the stronger the more), the
// protected disc in blue with a bright rim. To be called while the findings' slots are valid.
std::vector<uint8_t> DrawSpectrum(const RemovalFindings& findings, float protectionRadius);

// 512 x 512 bytes: the notch mask, 255 where a frequency is taken out whole.
std::vector<uint8_t> CopyMask(const RemovalFindings& findings);

}  // namespace tessaline::cli
