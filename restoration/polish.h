// What the notches left, taken down near what they took.
//
// A screen's sidebands reach beyond its notches, as a faint mesh round every edge. What remains is in
// proportion to what was taken out at the same place, so its variance is known, and a local Wiener filter
// over a few pixels takes it for noise. Where nothing was taken out nothing changes.
#pragma once

#include <cstdint>

#include "platform/progress.h"
#include "removal/picture.h"
#include "restoration/plane.h"
#include "restoration/taken_channels.h"

namespace tessaline {

// What a picture's three channels are.
enum class ChannelMeaning : int32_t {
  kRgb,        // their luma and two differences of colour are polished
  kOpponents,  // they are a lightness and two differences (Lab)
};

class Polish {
 public:
  // For such pictures. False: no memory.
  bool Prepare(const PictureView& picture, ChannelMeaning meaning, int32_t threads);

  // Works out the noise from what is taken out of the picture. `amount` scales it, 0 for none. True: stopped.
  bool MeasureNoise(const PictureView& picture, float amount, const TakenChannels& channels,
                    Parallel& parallel, const Progress& progress);

  // Polishes what remains, into the picture, of which no sample is looked at.
  void Store(const TakenChannels& channels, Parallel& parallel, const PictureView& picture,
             const Progress& progress) const;

 private:
  static constexpr int32_t kReduction = 8;
  struct Tile;

  void MeasureBlocks(const PictureView& picture, int32_t blockY, const TakenChannels& channels);
  bool IsAnyNoise(const Tile& tile) const;
  void StorePlainly(const Tile& tile) const;
  void StoreTile(const Tile& tile) const;
  void LoadRow(const Tile& tile, int32_t y) const;
  void MeasureGains(const Tile& tile, int32_t axis, int32_t y) const;
  void StoreRow(const Tile& tile, int32_t y) const;
  const float* WeightsOf(int32_t axis) const;

  bool isMixed_ = false;
  int32_t channels_ = 0;
  Plane noise_[kMostChannels];  // variance by axis, reduced
  Plane scratch_;               // likewise
  OwnedBlock<float> memory_;    // of every thread
};

}  // namespace tessaline
