// One film on its way through the filter: frames come one by one and leave at once, cleaned in place.
//
// Nobody shows the frames to come, so a steady decision, which takes eight, cannot be had for the first
// seven: they are cleaned by what the frames up to them decide together, which changes little from one to the
// next.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "frei0r/parameters.h"
#include "platform/parallel.h"
#include "restoration/film_decision.h"

namespace tessaline::frei0r {

// May be used by several threads; they wait for one another.
class VideoFilter {
 public:
  // Of frames 1 .. kLargestSide pixels both ways.
  VideoFilter(int32_t width, int32_t height);

  int32_t width() const { return width_; }
  int32_t height() const { return height_; }

  // Cleans a frame of red, green, blue and alpha bytes in place; alpha stays. `time`, in whatever unit, tells
  // a frame from one that the host asks for again. Where nothing is found, or memory or threads cannot be
  // had, the frame stays as it is.
  void Clean(double time, uint8_t* rgba) noexcept;

  // As ParameterValues; count from the next frame on. A steady decision is kept as long as they ask for no
  // other.
  void SetNumber(int number, double value);
  double Number(int number) const;
  void SetText(const char* text);
  const char* Text() const;  // valid until it is set again

 private:
  void TakeWishes();
  void ForgetDecision(const Wishes& wishes);

  // These return 0 or a code of the engine, then with the frame untouched.
  int32_t CleanFrame(const PictureView& frame, double time);
  int32_t CleanByItself(const PictureView& frame);
  int32_t Look(const PictureView& frame);
  int32_t Gather(const PictureView& frame, const Analysis& analysis);
  int32_t DecideAlone(const PictureView& frame, const Analysis& analysis);
  int32_t TakeOut(const PictureView& frame, const Findings& findings, const Mask& mask,
                  const PaddingChain& chain);

  const int32_t width_, height_;
  mutable std::mutex turn_;
  std::unique_ptr<Parallel> pool_;  // null: one thread works alone
  Workspace workspace_;
  ParameterValues values_;
  Wishes wishes_;
  int64_t frame_ = 0;  // number of the one at hand

  // The steady decision.
  FilmDecision gathering_;
  size_t gathered_ = 0;      // frames in it
  double lastTime_ = 0.0;    // of the last of them
  bool isGathered_ = false;  // no more are taken in
  bool isDecided_ = false;   // frames need not be looked at
  Findings kept_;            // so far; without cells where nothing is found
  Mask mask_;                // of kept_
  bool isShaped_ = false;    // mask_ is of kept_ and of these wishes
};

}  // namespace tessaline::frei0r
