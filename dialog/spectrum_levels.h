// What both spectrum views read: rows of the spectrum and of its mask as floats, whatever their kinds, and
// the protected disc. Private to the two painters.
#pragma once

#include <cstdint>

#include "dialog/spectrum_painting.h"

namespace tessaline {

class SpectrumReader {
 public:
  // Returns 0, or what PaintFlatSpectrum tells about slots, kinds and scale.
  int32_t Open(const SpectrumSource& source, float scale);

  int32_t width() const { return width_; }
  int32_t height() const { return height_; }
  int32_t channels() const { return channels_; }  // 1 or 3

  // One channel of a row, 0..1; `width()` floats.
  void LoadLevels(int32_t y, int32_t channel, float* levels) const;
  // The mask beside it, 0..255, 0 where the mask does not reach; `width()` floats.
  void LoadMask(int32_t y, float* mask) const;

 private:
  using Loader = void (*)(const uint8_t* row, int32_t channel, int32_t channels, int32_t count,
                          float* values);
  int32_t spectrumSlot_ = 0, maskSlot_ = 0;
  int32_t width_ = 0, height_ = 0, channels_ = 0;
  int32_t maskWidth_ = 0;
  Loader loadLevels_ = nullptr, loadMask_ = nullptr;
};

// The protected disc on a spectrum of that width: centre (half, half), radius in cells. The larger the
// protection radius, the smaller the disc. Radius 0: none.
struct ProtectedDisc {
  int32_t half;
  float radius;
};
ProtectedDisc DiscOf(int32_t spectrumWidth, float protectionRadius);

}  // namespace tessaline
