// Whether a print's dots are far apart, and whether it is worn: its dots differ from one to the next,
// whatever was printed. What the notches leave of either is noise as coarse as the dots.
#pragma once

#include "removal/picture.h"
#include "removal/steps.h"
#include "restoration/axes.h"
#include "restoration/gate.h"
#include "restoration/noise.h"
#include "restoration/taken_channels.h"

namespace tessaline {

bool IsCoarse(const Findings& findings);

// Looked at where the gate is open, after the channels were taken and before the noise is settled.
bool IsWorn(const PictureView& picture, const Findings& findings, const Axes& axes, const Gate& gate,
            const Noise& noise, const TakenChannels& channels);

}  // namespace tessaline
