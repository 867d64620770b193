// Pictures of what a run saw and what it takes out.
#pragma once

#include <cstdint>
#include <vector>

#include "removal/steps.h"

namespace tessaline {

// RGB pixels in rows of 512: the 512 x 512 log spectrum in grey, what is taken out in red (the stronger the
// more), the protected disc in blue with a bright rim; below it a legend strip. Peaks of automatic findings
// are marked on both sides: licensed ones by a yellow circle, a larger one for smeared peaks, those left out
// by a square with the letter of the reason, T for text lines, B for compression blocks, W for windows and
// tiles, S for the skirt of a higher peak, I for what is not isolated, N where no peak has a licence, F where
// they are too faint to be seen, L for what is off the lattice of the licensed ones. Throws std::bad_alloc.
std::vector<uint8_t> DrawSpectrum(const Analysis& analysis, const Findings& findings, const Mask& mask,
                                  float protectionRadius);

}  // namespace tessaline
