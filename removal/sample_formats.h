// How the samples of each format stand for levels.
#pragma once

#include <cstdint>
#include <type_traits>

#include "image/pixel_kind.h"
#include "removal/picture.h"

namespace tessaline {

// Levels of a format to the engine's scale and back: one row a format.
struct ByteFormat {
  using Sample = uint8_t;
  static constexpr float kToLevel = kByteToHost, kFromLevel = kHostToByte, kMaximum = kByteMax;
};
struct Host16Format {
  using Sample = uint16_t;
  static constexpr float kToLevel = 1.0f, kFromLevel = 1.0f, kMaximum = kHostMax;
};
struct Full16Format {
  using Sample = uint16_t;
  static constexpr float kMaximum = 65535.0f;
  static constexpr float kToLevel = kHostMax / kMaximum, kFromLevel = kMaximum / kHostMax;
};
struct FloatFormat {
  using Sample = float;
  static constexpr float kToLevel = kHostMax, kFromLevel = 1.0f / kHostMax, kMaximum = 0.0f;
};

// A level as a sample: whole ones are clamped, and truncated after `allowance` was added; not-a-number
// becomes 0. Without branches, so that loops of it become vectors. Static: such loops are compiled for
// several instruction sets, and one's code is not for another.
template <typename Format>
static inline typename Format::Sample SampleOf(float level, float allowance) {
  const float value = level * Format::kFromLevel;
  if constexpr (std::is_same_v<typename Format::Sample, float>) {
    return value;
  } else {
    const float wanted = value + allowance, above = wanted > 0.0f ? wanted : 0.0f;
    return static_cast<typename Format::Sample>(
        static_cast<int32_t>(above < Format::kMaximum ? above : Format::kMaximum));
  }
}
constexpr float AllowanceOf(Rounding rounding) {
  return rounding == Rounding::kNearest ? 0.5f : 0.0f;
}

template <typename Use>
decltype(auto) WithFormat(SampleFormat format, Use use) {
  switch (format) {
    case SampleFormat::kByte:
      return use(ByteFormat{});
    case SampleFormat::kHost16:
      return use(Host16Format{});
    case SampleFormat::kFull16:
      return use(Full16Format{});
    case SampleFormat::kFloat:
      break;
  }
  return use(FloatFormat{});
}

}  // namespace tessaline
