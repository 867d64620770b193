// What the notches left, taken down near what they took.
//
// A screen's sidebands reach beyond its notches, as a faint mesh round every edge. What remains is in
// proportion to what was taken out at the same place, so its variance is known, and a local Wiener filter
// over a few pixels takes it for noise. Where nothing was taken out nothing changes.
#pragma once

#include <cstdint>

#include "removal/picture.h"
#include "restoration/plane.h"

namespace tessaline {

// What a picture's three channels are.
enum class ChannelMeaning : int32_t {
  kRgb,        // their luma and two differences of colour are polished
  kOpponents,  // they are a lightness and two differences (Lab)
};

class Polish {
 public:
  // For pictures of that size. False: no memory.
  bool Prepare(int32_t width, int32_t height, int32_t channels, int32_t threads);

  // Works out the noise: `taken`, a plane for each channel, holds what is taken out, on the scale 0 .. 32768.
  // `amount` scales it, 0 for none.
  void MeasureNoise(const Plane* taken, ChannelMeaning meaning, float amount, Parallel& parallel);

  // Polishes the planes of the channels, into the picture. No sample of the picture is looked at.
  void Store(const Plane* channels, Parallel& parallel, const PictureView& picture);

 private:
  struct Strip;
  void PolishAxis(const Plane* channels, int32_t axis, const Strip& strip) const;

  ChannelMeaning meaning_ = ChannelMeaning::kRgb;
  int32_t channels_ = 0;
  Plane noise_[kMostChannels];  // variance by axis, reduced
  Plane scratch_;               // likewise
  OwnedBlock<float> strips_;    // of every thread
  size_t stripFloats_ = 0;
};

}  // namespace tessaline
