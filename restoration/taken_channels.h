// What remains of a picture's channels once the pattern is taken out, kept until all of them are there.
//
// The last channel stays in the plane it was filtered in. The others are kept in the precision that their
// samples deserve: 16 bits for bytes, 1/128 of a level, so that a picture of three such channels needs one
// plane of floats for them; floats otherwise. They are kept as they were filtered; when the last channel
// comes the gate is put to all of them, in rows of blocks, and what is taken out of them is told to the
// noise.
#pragma once

#include <cstdint>
#include <vector>

#include "removal/picture.h"
#include "removal/steps.h"
#include "restoration/gate.h"
#include "restoration/noise.h"
#include "restoration/sample_rows.h"
#include "restoration/tone.h"

namespace tessaline {

class TakenChannels final : public FilteredRows {
 public:
  // In the workspace's memory. False: there is none. May throw std::bad_alloc. `gate` is measured before the
  // first row comes; the light of what is taken out is told to `tone`.
  bool Prepare(const PictureView& picture, const Gate& gate, Tone& tone, Noise& noise, Workspace& workspace);

  void Take(int32_t channel, int32_t y, float* levels) override;

  // Adds what the tone says, as far as the gate is open, when all channels were taken and it is settled.
  void AddTone(Parallel& parallel);

  // What remains of a part of a row, when all channels were taken: the picture's own levels where the gate is
  // closed.
  void Load(const PixelPart& part, const LevelRows& levels) const;

  // Says that a part will be loaded soon.
  void Expect(const PixelPart& part) const;

  // And puts others in their place, at most kMostReplaced of a row.
  static constexpr int32_t kMostReplaced = Noise::kPart;
  void Replace(const PixelPart& part, const LevelRows& levels);

 private:
  void Keep(int32_t channel, int32_t y, const float* filtered);
  void TakeOutRow(const PixelPart& part, const LevelRows& levels, const float* open, const LevelRows& taken);
  void TakeOutBlocks(int32_t firstRow);
  void OpenRow(const PixelPart& part, float* open) const;
  size_t PlaceOf(int32_t channel, int32_t y) const;
  bool IsLast(int32_t channel) const { return channel == picture_.channels - 1; }

  PictureView picture_;
  const Gate* gate_ = nullptr;
  Tone* tone_ = nullptr;
  Noise* noise_ = nullptr;
  int16_t* codes_ = nullptr;  // either these or the others
  float* floats_ = nullptr;
  std::vector<float*> lastRows_;  // of the last channel, samples two floats apart
};

}  // namespace tessaline
