// Pixel kinds and the scales between their levels.
//
// A kind is named by its bytes per pixel. 8-bit samples run 0..255, 16-bit samples 0..32768 (the host's
// 16-bit range), floats stand on the 0..255 scale. Every store into an integer sample clamps and then
// truncates.
#pragma once

#include <cstdint>

namespace tessaline {

enum PixelKind : int32_t {
  kGray8 = 1,
  kGray16 = 2,
  kRgb8 = 3,
  kGrayFloat = 4,
  kRgb16 = 6,
  kGrayComplex = 8,  // float pair, real part first
  kRgbFloat = 12,
  kRgbComplex = 24,  // three float pairs, R, G, B
};

constexpr float kByteMax = 255.0f;
constexpr float kHostMax = 32768.0f;                // 16-bit levels run 0..32768
constexpr float kByteToHost = kHostMax / kByteMax;  // 8-bit or float level to 16-bit level
constexpr float kHostToByte = kByteMax / kHostMax;  // and back
static_assert(kByteToHost == 128.50197f, "results depend on this exact value");
static_assert(kHostToByte == 0.0077819824f, "results depend on this exact value");

// Clamp to 0..maximum, then truncate. Not-a-number gives 0.
template <typename Sample>
constexpr Sample StoreLevel(float value, float maximum) {
  if (!(value > 0.0f)) return 0;
  if (value >= maximum) return static_cast<Sample>(maximum);
  return static_cast<Sample>(static_cast<int32_t>(value));
}

constexpr uint8_t StoreByte(float value) {
  return StoreLevel<uint8_t>(value, kByteMax);
}
constexpr uint16_t StoreHost(float value) {
  return StoreLevel<uint16_t>(value, kHostMax);
}

}  // namespace tessaline
