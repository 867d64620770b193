// Where in a picture its pattern is: elsewhere nothing is to be taken out, and text beside a halftone stays
// sample for sample as it is.
//
// The picture is demodulated at the frequencies of its licensed peaks; what comes out is the pattern's
// amplitude at every place, and where it is a small part of what it reaches elsewhere, the gate is closed.
#pragma once

#include <array>
#include <cstdint>

#include "removal/picture.h"
#include "removal/steps.h"
#include "restoration/plane.h"

namespace tessaline {

// A place in the spectrum, in cells from the zero frequency.
struct Carrier {
  int32_t dx, dy;
};

// What the gate is measured by.
struct GatePlan {
  static constexpr int32_t kMostCarriers = 8;

  std::array<Carrier, kMostCarriers> carriers{};
  int32_t count = 0;  // 0: nothing to measure by, the gate is open everywhere
  PeakScale scale = PeakScale::kFine;
};
// The licensed peaks of greatest magnitude.
GatePlan PlanGate(const Findings& findings);

class Gate {
 public:
  // For pictures of that size. False: no memory.
  bool Prepare(int32_t width, int32_t height);

  // Open throughout.
  void OpenEverywhere();
  // Measures the picture. `channel` has its size; it is overwritten, as are `rows`, one for each thread, of
  // two samples a pixel.
  void Measure(const PictureView& picture, const GatePlan& plan, Parallel& parallel, Plane* channel,
               float* const* rows);

  // How far it is open along row y: 0, as before, to 1, without what the notches take.
  void Row(int32_t y, float* open) const { EnlargeRow(open_, y, width_, open); }

 private:
  void TakeHighPass(double sigma, Parallel& parallel, float* const* rows, Plane* channel);
  void AddPower(const Carrier& carrier, double sigma, const Plane& channel, Parallel& parallel,
                float* const* rows, Plane* power);
  void AddChannel(const GatePlan& plan, const Plane& channel, Parallel& parallel, float* const* rows);
  void OpenWherePattern(const GatePlan& plan, Parallel& parallel, float* const* rows);

  int32_t width_ = 0;
  // Reduced, all of them.
  Plane open_;
  Plane pattern_, usual_;      // greatest power of the channels at the carriers, and beside them
  Plane ofPattern_, ofUsual_;  // of one channel
  Plane real_, imaginary_, scratch_;
  Plane halfReal_, halfImaginary_;  // of twice as many rows
};

}  // namespace tessaline
