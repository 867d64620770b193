// Whether tones are kept as the levels that they are coded in, or as the light that those stand for (tone.h).
//
// Dots of ink average in the light that paper and ink give back, so what filters the levels of a scan darkens
// every screened tone, by 2 to 5 levels of 255 in coarse screens. But noise that was added to the levels, and
// screens that were drawn in levels, average there, and filtering light would make them lighter. The picture
// alone does not tell which it is.
#pragma once

#include "removal/steps.h"

namespace tessaline {

enum class Light {
  kAuto,    // linear for a dot screen where the file says how its levels are coded, else coded
  kCoded,   // levels as they are
  kLinear,  // by the picture's curve, that of sRGB where it has none
};

struct LightWish {
  Light light = Light::kAuto;
  const ToneCurve* curve = nullptr;  // by which the picture says that it is coded; null: it does not say
};

// Whether the findings are a print's: two licensed peaks of one ruling, square to each other, in a pattern of
// at least 12 levels of 255, as it is between ink and paper, or in two directions, as several inks are. Noise
// repeats in one direction, weaves are fainter.
bool IsDotScreen(const Findings& findings);
// The same of whatever amplitude.
bool IsSquareLattice(const Findings& findings);

// The curve to keep light by; null: the levels as they are.
const ToneCurve* LightFor(const LightWish& wish, const Findings& findings);

}  // namespace tessaline
