// Pictures of what a run saw and what it takes out.
#pragma once

#include <cstdint>
#include <vector>

#include "removal/automatic_detection.h"
#include "removal/removal_run.h"

namespace tessaline::cli {

// RGB pixels in rows of 512: the 512 x 512 log spectrum in grey, what is taken out in red (the stronger the
// more), the protected disc in blue with a bright rim; below it a legend strip. `peaks`, where the picture
// itself decided (otherwise null), are marked on both sides: licensed ones by a yellow circle, those left out
// by a square with the letter of the reason, T for text lines, B for compression blocks, W for windows and
// tiles, S for the skirt of a higher peak, I for what is not isolated, N where no peak has a licence. To be
// called while the findings' slots are valid.
std::vector<uint8_t> DrawSpectrum(const RemovalFindings& findings, float protectionRadius,
                                  const std::vector<SpectrumPeak>* peaks);

// The 512 x 512 bytes of a findings' seed map or mask.
std::vector<uint8_t> CopyCells(int32_t slot);

}  // namespace tessaline::cli
