// The two views of the power spectrum in the preview dialog: flat and as a surface.
//
// Both show the same three things: the spectrum by its levels, what the mask removes in the highlight colour,
// and the protected disc in the colour that stands against it. No window is needed; the dialog copies the
// view buffer to the screen.
#pragma once

#include <cstdint>

#include "removal/spectrum_surface.h"

namespace tessaline {

// Where the views come from and go to: slots of the buffer table, and the protection that the disc shows.
struct SpectrumSource {
  int32_t displaySpectrumSlot;  // "PSPECgray8", normally 512 x 512 bytes; also 16-bit, float and RGB kinds
  int32_t maskSlot;             // "TempMask", normally 512 x 512 bytes, 255 = removed; also 16-bit and float
  int32_t viewSlot;             // "PSPEC", 3 bytes per pixel, the size of the spectrum area
  float protectionRadius;       // image pixels, 1..128; 0, less, or no number: no disc
};

// Both fill every pixel of the view. `scale` is the view's pixels per spectrum cell; view width / 512 makes a
// 512 x 512 spectrum as wide as the view. Return 0; kInvalidSlotOrFile when a slot holds no buffer;
// kUnknownPixelKind for a spectrum, mask or view of a kind not named above; kUnequalSizes when the scale is
// not a positive finite number; kOutOfMemory. The view is unchanged on an error.

// The spectrum from above. Its top left corner is the view's; where it does not reach the view is black.
int32_t PaintFlatSpectrum(const SpectrumSource& source, float scale, HighlightColor highlight);

// The spectrum as a surface seen from the front and above, its lower edge nearest: height and shade by level,
// peaks as spikes, noise calmed. Stands in the middle of the view, as wide as the flat view would be but
// never wider or higher than the view.
int32_t PaintSpectrum3D(const SpectrumSource& source, float scale, HighlightColor highlight);

}  // namespace tessaline
