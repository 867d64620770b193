// The last step of the automatic run, in place of Apply: takes out what the mask says, but only where the
// pattern is, and polishes what the notches left.
//
//   Gate     where the picture repeats at the frequencies of the licensed peaks    (gate.h)
//   Polish   what remains is noise of a known variance near what was taken out     (polish.h)
//
// All of it stays in floating point until the samples are stored, rounded to nearest.
#pragma once

#include <cstdint>

#include "removal/steps.h"
#include "restoration/axes.h"
#include "restoration/light.h"

namespace tessaline {

constexpr SettingRange kPolishRange = {0.0f, 2.0f, 1.0f};

struct RestorationSettings {
  bool everywhere = false;  // the gate stays open: a pattern over the whole picture
  float polish = kPolishRange.standard;
  ChannelMeaning meaning = ChannelMeaning::kRgb;
  LightWish light;
  // Of a picture that is a part of a larger one, the amplitude of that one's strong places (MeasureStrong); 0
  // where it is the whole. A part is not taken for worn, for the next one might not be.
  float strong = 0.0f;
};

// The curve of the light that the notches work on; null: they work on levels, as always on opponents and
// where lines have offsets (line_offsets.h), which have no notches either.
const ToneCurve* CurveOf(const RestorationSettings& settings, const Findings& findings);

// As Apply, of which the options' rounding is not looked at. `gate`, if given, receives how far the gate was
// open: the picture's size, bytes, 255 where the pattern was taken out entirely. Returns what Apply returns.
int32_t Restore(const PictureView& from, const PictureView& to, const Findings& findings, const Mask& mask,
                Workspace& workspace, const ApplyOptions& options, const RestorationSettings& settings,
                const Progress& progress, Image* gate = nullptr);

// The gate alone, for who only looks.
int32_t MeasureGate(const PictureView& picture, const Findings& findings, Workspace& workspace,
                    const RestorationSettings& settings, Image* gate);

}  // namespace tessaline
