// What a byte of a mask leaves of a frequency.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

namespace tessaline {

// 1 - m / 255 in double precision, the same bits as the division.
constexpr std::array<double, 256> kGray8Factors = [] {
  std::array<double, 256> factors{};
  for (int m = 0; m < 256; ++m) factors[m] = 1.0 - m / 255.0;
  return factors;
}();

// Multiplies one complex value by what its mask byte leaves of it.
inline void AttenuateValue(uint8_t mask, float* value) {
  const double factor = kGray8Factors[mask];
  value[0] = static_cast<float>(value[0] * factor);
  value[1] = static_cast<float>(value[1] * factor);
}

// Stretches of a mask without a notch: their factor, 1, changes no bit, so nothing needs to be multiplied.
inline bool IsAllZero(const uint8_t* mask, int32_t count) {
  while (count >= 8) {
    uint64_t eight;
    std::memcpy(&eight, mask, sizeof(eight));
    if (eight != 0) return false;
    mask += sizeof(eight);
    count -= static_cast<int32_t>(sizeof(eight));
  }
  for (int32_t i = 0; i < count; ++i) {
    if (mask[i] != 0) return false;
  }
  return true;
}

}  // namespace tessaline
