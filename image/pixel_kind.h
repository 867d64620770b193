// Pixel kinds and the scales between their levels.
//
// A kind is named by its bytes per pixel. 8-bit samples run 0..255, 16-bit samples 0..32768 (the host's
// 16-bit range), floats stand on the 0..255 scale. Every store into an integer sample clamps and then
// truncates.
#pragma once

#include <cstdint>
#include <type_traits>

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

// How a kind is made of samples. The one table of kinds: a new kind is a new row.
enum class SampleType : int32_t { kByte, kHost16, kFloat };
struct KindTraits {
  int32_t bytesPerPixel;
  int32_t channels;  // 1 or 3
  int32_t parts;     // values a channel: 2 where complex
  SampleType sample;

  constexpr int32_t samples() const { return channels * parts; }
  // Kinds that a picture is handed over in: whole samples, nothing complex.
  constexpr bool isPicture() const { return parts == 1 && sample != SampleType::kFloat; }
};
constexpr KindTraits kKindTraits[] = {
    {kGray8, 1, 1, SampleType::kByte},     {kGray16, 1, 1, SampleType::kHost16},
    {kRgb8, 3, 1, SampleType::kByte},      {kGrayFloat, 1, 1, SampleType::kFloat},
    {kRgb16, 3, 1, SampleType::kHost16},   {kGrayComplex, 1, 2, SampleType::kFloat},
    {kRgbFloat, 3, 1, SampleType::kFloat}, {kRgbComplex, 3, 2, SampleType::kFloat},
};

// Null for sizes of pixel that are no kind.
constexpr const KindTraits* FindPixelKind(int32_t bytesPerPixel) {
  for (const KindTraits& kind : kKindTraits) {
    if (kind.bytesPerPixel == bytesPerPixel) return &kind;
  }
  return nullptr;
}

// True for 1, 2, 3 and 6 bytes per pixel.
constexpr bool IsPictureKind(int32_t bytesPerPixel) {
  const KindTraits* const kind = FindPixelKind(bytesPerPixel);
  return kind != nullptr && kind->isPicture();
}

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

// Calls use(Sample{}) with the sample type of a kind: uint8_t, uint16_t or float.
template <typename Use>
constexpr decltype(auto) WithSampleOf(SampleType sample, Use use) {
  switch (sample) {
    case SampleType::kByte:
      return use(uint8_t{});
    case SampleType::kHost16:
      return use(uint16_t{});
    case SampleType::kFloat:
      break;
  }
  return use(float{});
}

// Calls use(Sample{}, channels) with the sample type of a kind and its channels, std::integral_constant of 1
// or 3: how a template for every kind is picked from the table.
template <typename Use>
constexpr decltype(auto) WithKind(const KindTraits& kind, Use use) {
  return WithSampleOf(kind.sample, [&](auto sample) {
    return kind.channels == 1 ? use(sample, std::integral_constant<int, 1>{})
                              : use(sample, std::integral_constant<int, 3>{});
  });
}

}  // namespace tessaline
