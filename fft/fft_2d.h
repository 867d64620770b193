// Two-dimensional transforms of complex images, in place, and masking of spectra.
//
// A complex image has 8 bytes per pixel (two floats, real part first) or 24 (three such pairs, R, G, B), rows
// at multiples of 8 bytes from each other. A spectrum is centred: the zero frequency stands at column width/2
// of row height/2.
#pragma once

#include <cstdint>

#include "fft/transform_memory.h"
#include "image/image_view.h"
#include "platform/progress.h"

namespace tessaline {

// Spatial data to spectrum and back. In double precision neither scales, so both in turn give width x height
// times the input; in single precision the inverse divides. Lengths that are no power of two have no
// transform along them: their rows or columns stay as they are.
//
// Returns 0; kUnknownPixelKind, image unchanged, for one that is not complex; kOutOfMemory, image unchanged;
// kUserCancelled, image left part-way. `progress` is told height + width + height / 2 steps.
int32_t Transform(const ImageView& image, Direction direction, Precision precision, const Progress& progress);

// Multiplies each complex value by what its mask pixel leaves of it: a full integer mask value (255, 32768,
// or that in all three channels) removes the frequency, 0 keeps it; a float mask is the factor itself.
// Returns 0; kUnequalSizes, nothing changed, when the sizes differ or the mask is not of 1, 2, 3, 4 or 6
// bytes per pixel (or the spectrum not of 8).
int32_t MultiplyByMask(const ImageView& spectrum, const ConstImageView& mask);

// What a viewer that changes masks again and again needs: the inverse in single precision of the spectrum
// times what the mask leaves of it, into another image, with the same bits as a copy, MultiplyByMask and
// Transform one after the other. Only rows firstRow .. firstRow + rows - 1 of the destination are of use
// afterwards; the others hold half-transformed values. The spectrum is left as it is.
//
// Spectrum and destination have 8 bytes per pixel, the mask has 1; all three have the same, even width and
// height, or kUnequalSizes is returned. Otherwise 0; kOutOfMemory, destination unchanged.
int32_t InverseMaskedRows(const ImageView& spectrum, const ConstImageView& mask, const ImageView& destination,
                          int32_t firstRow, int32_t rows);

}  // namespace tessaline
