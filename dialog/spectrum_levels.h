// What both spectrum views read: rows of the spectrum and of its mask as floats, whatever their kinds.
// Private to the two painters.
#pragma once

#include <cstdint>

#include "dialog/spectrum_painting.h"

namespace tessaline {

class SpectrumReader final : public SpectrumRows {
 public:
  // Returns 0, or what PaintFlatSpectrum tells about slots, kinds and scale.
  int32_t Open(const SpectrumSource& source, float scale);

  int32_t width() const override { return width_; }
  int32_t height() const override { return height_; }
  int32_t channels() const override { return channels_; }  // 1 or 3
  void LoadLevels(int32_t y, int32_t channel, float* levels) const override;
  void LoadMask(int32_t y, float* mask) const override;  // 0 where the mask does not reach

 private:
  using Loader = void (*)(const uint8_t* row, int32_t channel, int32_t channels, int32_t count,
                          float* values);
  int32_t spectrumSlot_ = 0, maskSlot_ = 0;
  int32_t width_ = 0, height_ = 0, channels_ = 0;
  int32_t maskWidth_ = 0;
  Loader loadLevels_ = nullptr, loadMask_ = nullptr;
};

}  // namespace tessaline
