// What a channel's padding owes to the channel before.
//
// The padding fades towards the mean level of the whole plane as it stands when the image has been loaded:
// the image, copies of its last row below, and to the right of both whatever the transform of the channel
// before has left in the plane, zeros at first. Deliberate: pictures made with it exist, and a "cleaned"
// plane would change them. Keep the order spectrum, spectrum, ..., result, result: each channel of both
// passes hands its remainder to the next.
//
// The planes themselves hold no such remainder any more; it is computed from what the transforms know.
#pragma once

#include <cstdint>

#include "fft/real_transform.h"
#include "removal/notch_filter.h"

namespace tessaline {

class PaddingChain {
 public:
  // What right of the image is left by the channel before, summed over all rows. 0: a plane of zeros.
  double remainder = 0.0;

  // The channel's spectrum, centred and unscaled, would stand there: its real parts in columns width .. N
  // - 1. The sum over ky of a spectrum's column is N times the transform of row 0, so no spectrum is needed.
  void LeaveSpectrum(const RealTransform& transform, int32_t width);

  // The channel's filtered samples would stand there. The sums of a plane's columns are the inverse transform
  // of row ky = 0 of its spectrum. `scratch` holds 2 N doubles.
  void LeaveResult(const RealTransform& transform, const NotchFilter& filter, int32_t width, double* scratch);
};

}  // namespace tessaline
