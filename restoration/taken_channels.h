// What is taken out of a picture's channels, kept until all of them are there; then what remains of them.
//
// The last channel stays in the plane it was filtered in. The others are kept in the precision that their
// samples deserve: 16 bits for bytes, 1/128 of a level, so that a picture of three such channels needs one
// plane of floats for them; floats otherwise.
#pragma once

#include <cstdint>
#include <vector>

#include "removal/picture.h"
#include "removal/steps.h"
#include "restoration/gate.h"

namespace tessaline {

class TakenChannels final : public FilteredRows {
 public:
  // False: no memory. May throw std::bad_alloc. `gate` is measured before the first row comes; with `light`
  // the rows that come are linear light.
  bool Prepare(const PictureView& picture, const Gate& gate, const ToneCurve* light);

  void Take(int32_t channel, int32_t y, float* levels) override;

  // What is kept of a part of a row: first what is taken out, 0 where the gate is closed; what remains once
  // it is put in that one's place.
  enum class Kept { kTaken, kRest };
  void Load(Kept what, const RowPart& part, float* levels) const;
  void Keep(Kept what, const RowPart& part, const float* levels);

 private:
  size_t PlaceOf(const RowPart& part) const;
  bool IsLast(int32_t channel) const { return channel == picture_.channels - 1; }

  PictureView picture_;
  const Gate* gate_ = nullptr;
  const ToneCurve* light_ = nullptr;
  OwnedBlock<int16_t> codes_;
  OwnedBlock<float> floats_;
  std::vector<float*> lastRows_;  // of the last channel, samples two floats apart
};

}  // namespace tessaline
