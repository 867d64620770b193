// The two-dimensional transforms and the masking of spectra, of buffers named by their slots (fft/fft_2d.h).
#pragma once

#include <cstdint>

#include "buffers/run_context.h"

namespace tessaline {

// Spatial data to spectrum (ForwardFft2D) and back (InverseFft2D), in place, of a complex buffer: 8 or 24
// bytes per pixel. With the double kernels neither scales; with the single-precision engine the inverse
// divides.
//
// With showProgress, `context` (may be null) is told and asked on loop indices that have bits 0, 4 and 8 all
// set, so transforms of 256 rows or fewer never report and cannot be cancelled. The range told runs from
// firstStep to lastStep of totalSteps.
//
// Returns 0, also for a slot without a buffer, which has nothing to transform; kUnknownPixelKind, buffer
// unchanged, for any other buffer than a complex one; kOutOfMemory, buffer unchanged; kUserCancelled, buffer
// left part-way.
int32_t ForwardFft2D(int32_t slot, bool showProgress, bool useDoubleKernels, const RunContext* context,
                     int32_t firstStep, int32_t lastStep, int32_t totalSteps);
int32_t InverseFft2D(int32_t slot, bool showProgress, bool useDoubleKernels, const RunContext* context,
                     int32_t firstStep, int32_t lastStep, int32_t totalSteps);

// As MultiplyByMask.
int32_t ApplySpectrumMask(int32_t spectrumSlot, int32_t maskSlot);

}  // namespace tessaline
