// Two-dimensional transforms of buffers, in place, and masking of spectra.
//
// A complex buffer has 8 bytes per pixel (two floats, real part first) or 24 (three such pairs, R, G, B). A
// spectrum is centred: the zero frequency stands at column width/2 of row height/2.
#pragma once

#include <cstdint>

#include "fft/run_context.h"
#include "fft/transform_memory.h"

namespace tessaline {

// Spatial data to spectrum (ForwardFft2D) and back (InverseFft2D). With the double kernels neither scales, so
// both in turn give width x height times the input; with the single-precision engine the inverse divides.
//
// With showProgress, `context` (may be null) is told and asked on loop indices that have bits 0, 4 and 8 all
// set, so transforms of 256 rows or fewer never report and cannot be cancelled. The range told runs from
// firstStep to lastStep of totalSteps.
//
// `memory`: taken before for this shape and engine, so that the call cannot run short of it; null: taken for
// the call.
//
// Returns 0, also for a slot without a buffer, which has nothing to transform; kUnknownPixelKind, buffer
// unchanged, for any other buffer than a complex one; kUnequalSizes, buffer unchanged, for memory of another
// shape or engine; kOutOfMemory, buffer unchanged; kUserCancelled, buffer left part-way.
int32_t ForwardFft2D(int32_t slot, bool showProgress, bool useDoubleKernels, const RunContext* context,
                     int32_t firstStep, int32_t lastStep, int32_t totalSteps,
                     TransformMemory* memory = nullptr);
int32_t InverseFft2D(int32_t slot, bool showProgress, bool useDoubleKernels, const RunContext* context,
                     int32_t firstStep, int32_t lastStep, int32_t totalSteps,
                     TransformMemory* memory = nullptr);

// Multiplies each complex value by what its mask pixel leaves of it: a full integer mask value (255, 32768,
// or that in all three channels) removes the frequency, 0 keeps it; a float mask is the factor itself.
// Returns 0; kUnequalSizes, nothing changed, when the sizes differ or the mask is not of 1, 2, 3, 4 or 6
// bytes per pixel (or the spectrum not of 8).
int32_t ApplySpectrumMask(int32_t spectrumSlot, int32_t maskSlot);

// What a viewer that changes masks again and again needs: InverseFft2D with the single-precision engine of
// the spectrum times what the mask leaves of it, into another buffer, with the same bits as a copy,
// ApplySpectrumMask and InverseFft2D one after the other. Only rows firstRow .. firstRow + rows - 1 of the
// destination are of use afterwards; the others hold half-transformed values. The spectrum is left as it is.
//
// Spectrum and destination have 8 bytes per pixel, the mask has 1; all three have the same, even width and
// height, or kUnequalSizes is returned. Otherwise 0; kOutOfMemory, destination unchanged.
int32_t InverseMaskedRows(int32_t spectrumSlot, int32_t maskSlot, int32_t destinationSlot, int32_t firstRow,
                          int32_t rows);

}  // namespace tessaline
