// What a picture's file says about how its levels are coded.
#pragma once

#include <optional>
#include <vector>

#include "cli/picture_file.h"
#include "removal/tone_curve.h"

namespace tessaline::cli {

// The light of a page's levels: along the greys of its ICC profile; else by what PNG says of sRGB or of a
// gamma; else that of sRGB where EXIF names it. Nothing where the file does not say, says it in a way that
// cannot be read, or is Lab.
std::optional<ToneCurve> LightCurveOf(const PictureFile& input, int page);

// The parts of that: from a profile, for pictures of so many colours, and where light is the level to a
// power.
std::optional<ToneCurve> LightCurveOfProfile(const std::vector<uint8_t>& profile, int colours);
std::optional<ToneCurve> LightCurveOfPower(double power);

}  // namespace tessaline::cli
