// 16-bit samples of files use 0..65535, those of the run 0..32768 (image/pixel_kind.h). Both ways round to
// nearest; there and back a sample is at most one level off, 0 and 65535 come back exactly.
#pragma once

#include <cstdint>

namespace tessaline::cli {

constexpr uint32_t kFullRange = 65535;
constexpr uint32_t kRunRange = 32768;

constexpr uint16_t RunLevelOf(uint16_t fullRangeLevel) {
  return static_cast<uint16_t>((fullRangeLevel * kRunRange + kFullRange / 2) / kFullRange);
}

constexpr uint16_t FullRangeLevelOf(uint16_t runLevel) {
  return static_cast<uint16_t>((runLevel * kFullRange + kRunRange / 2) / kRunRange);
}

// A sample of 0..from on the scale 0..to, to the nearest; both at most 65535. What is larger counts as
// `from`. Where `to` is not the smaller one, the way back gives the sample again.
constexpr uint16_t RescaledLevel(uint32_t level, uint32_t from, uint32_t to) {
  return static_cast<uint16_t>(((level < from ? level : from) * to + from / 2) / from);
}

// Samples of 32 bits are floats of 0..1 in the run, which hold their upper 24 bits exactly.
constexpr float RunLevelOfLong(uint32_t sample) {
  return static_cast<float>(sample >> 8) * 0x1p-24f;
}
constexpr uint8_t LowestByteOf(uint32_t sample) {
  return static_cast<uint8_t>(sample);
}
// With the lowest byte kept beside, what the run has not changed comes back as it was.
constexpr uint32_t LongOfRunLevel(float level, uint8_t lowestByte) {
  const double sample = level * 0x1p32 + lowestByte;
  return sample <= 0 ? 0 : sample >= 0xFFFFFFFFp0 ? 0xFFFFFFFF : static_cast<uint32_t>(sample);
}

// The way in loses one bit: exactly the lowest. With that bit kept beside, an untouched sample comes back as
// it was.
constexpr uint16_t LowestBitOf(uint16_t fullRangeLevel) {
  return fullRangeLevel & 1;
}
constexpr uint16_t ExactFullRangeLevel(uint16_t runLevel, uint16_t lowestBit) {
  return static_cast<uint16_t>(2u * runLevel - lowestBit);
}

constexpr bool EveryLevelComesBack() {
  for (uint32_t level = 0; level <= kFullRange; ++level) {
    const auto sample = static_cast<uint16_t>(level);
    const int32_t loss = static_cast<int32_t>(level) - FullRangeLevelOf(RunLevelOf(sample));
    if (loss < -1 || loss > 1) return false;
    if (ExactFullRangeLevel(RunLevelOf(sample), LowestBitOf(sample)) != sample) return false;
  }
  return FullRangeLevelOf(RunLevelOf(0)) == 0 && FullRangeLevelOf(RunLevelOf(kFullRange)) == kFullRange;
}

}  // namespace tessaline::cli
