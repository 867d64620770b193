// What a screen's dots are like, by what the notches leave of them: noise as coarse as the dots where these
// lie far apart, differ from one to the next as a worn print's do, or wander as on a warped page.
#pragma once

#include "removal/picture.h"
#include "removal/steps.h"
#include "restoration/axes.h"
#include "restoration/gate.h"
#include "restoration/taken_channels.h"

namespace tessaline {

// Looked at where the gate is open, after the channels were taken. Of a part of a picture only the findings,
// which all parts share. May throw std::bad_alloc.
DotsLeft DotsOf(const PictureView& picture, bool isWhole, const Findings& findings, const Axes& axes,
                const Gate& gate, const TakenChannels& channels);

}  // namespace tessaline
