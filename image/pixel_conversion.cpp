#include "image/pixel_conversion.h"

#include <type_traits>

#include "image/pixel_kind.h"

namespace tessaline {

namespace {

// A kind of the table as types.
template <int32_t Kind>
struct KindTypes {
  static constexpr KindTraits kTraits = *FindPixelKind(Kind);
  using Sample =
      std::conditional_t<kTraits.sample == SampleType::kByte, uint8_t,
                         std::conditional_t<kTraits.sample == SampleType::kHost16, uint16_t, float>>;
  static constexpr int kChannels = kTraits.channels;
  static constexpr int kParts = kTraits.parts;
  static constexpr int kSamples = kTraits.samples();
  static constexpr bool kIsHostRange = kTraits.sample == SampleType::kHost16;
};

// A level between the two scales. Same scale: the value itself.
template <typename From, typename To>
float ScaleLevel(float value) {
  if constexpr (!From::kIsHostRange && To::kIsHostRange) return value * kByteToHost;
  if constexpr (From::kIsHostRange && !To::kIsHostRange) return value * kHostToByte;
  return value;
}

template <typename To>
typename To::Sample Store(float value) {
  using Sample = typename To::Sample;
  if constexpr (std::is_same_v<Sample, uint8_t>) return StoreByte(value);
  if constexpr (std::is_same_v<Sample, uint16_t>) return StoreHost(value);
  if constexpr (std::is_same_v<Sample, float>) return value;
}

// RGB bytes to a grey byte: the only mean rounded to nearest.
constexpr int32_t ByteMean(const uint8_t* pixel) {
  return (pixel[0] + pixel[1] + pixel[2] + 1) / 3;
}

// The grey level of any other three-channel pixel, already on the destination's scale. The two integer kinds
// differ from the plain mean and from each other. Deliberate: pictures made with these rules exist.

template <int32_t FromKind, int32_t ToKind, typename From, typename To>
float MeanLevel(const typename From::Sample* pixel) {
  const auto r = pixel[0], g = pixel[From::kParts], b = pixel[2 * From::kParts];
  if constexpr (FromKind == kRgb8 && ToKind == kGray16) {
    constexpr float kThirdToHost = kByteToHost / 3.0f;
    static_assert(kThirdToHost == 42.83399f);
    return static_cast<float>(r + g + b) * kThirdToHost;
  } else if constexpr (FromKind == kRgb16 && ToKind == kGray16) {
    return static_cast<float>((3 * r + 1) / 3);  // the red sample alone; NOLINT(bugprone-integer-division)
  } else if constexpr (FromKind == kRgb16 && ToKind == kGray8) {
    // Blue is not read and green counts twice.
    constexpr float kThirdToByte = kHostToByte / 3.0f;
    static_assert(kThirdToByte == 0.0025939941f);
    return static_cast<float>(r + 2 * g) * kThirdToByte;
  } else {
    constexpr float kThird = 0.33333334f;
    const float sum = static_cast<float>(r) + static_cast<float>(g) + static_cast<float>(b);
    return ScaleLevel<From, To>(sum * kThird);
  }
}

template <int32_t FromKind, int32_t ToKind>
void ConvertRow(const void* source, void* destination, int32_t pixels) {
  using From = KindTypes<FromKind>;
  using To = KindTypes<ToKind>;
  const auto* from = static_cast<const typename From::Sample*>(source);
  auto* to = static_cast<typename To::Sample*>(destination);
  if constexpr (FromKind == kRgb8 && ToKind == kGray8) {
    for (int32_t x = 0; x < pixels; ++x) to[x] = static_cast<uint8_t>(ByteMean(from + 3 * x));
    return;
  }
  for (int32_t x = 0; x < pixels; ++x, from += From::kSamples, to += To::kSamples) {
    for (int c = 0; c < To::kChannels; ++c) {
      float level;
      if constexpr (From::kChannels == 3 && To::kChannels == 1) {
        level = MeanLevel<FromKind, ToKind, From, To>(from);
      } else {
        // Grey goes into every channel; of a complex value only the real part counts (no magnitude).
        const int channel = From::kChannels == 1 ? 0 : c;
        level = ScaleLevel<From, To>(static_cast<float>(from[channel * From::kParts]));
      }
      to[c * To::kParts] = Store<To>(level);
      if constexpr (To::kParts == 2) to[c * To::kParts + 1] = 0.0f;
    }
  }
}

// The key is source bytes per pixel x 100 + destination bytes per pixel: 201 from 16-bit grey to 8-bit grey.
struct ConverterEntry {
  int32_t key;
  RowConverter convert;
};

#define TO(from, to) \
  { (from) * 100 + (to), ConvertRow<(from), (to)> }
constexpr ConverterEntry kConverters[] = {
    TO(1, 2),  TO(1, 3),  TO(1, 4),  TO(1, 6),  TO(1, 8),  TO(1, 12), TO(1, 24),   //
    TO(2, 1),  TO(2, 3),  TO(2, 4),  TO(2, 6),  TO(2, 8),  TO(2, 12), TO(2, 24),   //
    TO(3, 1),  TO(3, 2),  TO(3, 4),  TO(3, 6),  TO(3, 8),  TO(3, 12), TO(3, 24),   //
    TO(4, 1),  TO(4, 2),  TO(4, 3),  TO(4, 6),  TO(4, 8),  TO(4, 12), TO(4, 24),   //
    TO(6, 1),  TO(6, 2),  TO(6, 3),  TO(6, 4),  TO(6, 8),  TO(6, 12), TO(6, 24),   //
    TO(8, 1),  TO(8, 2),  TO(8, 3),  TO(8, 4),  TO(8, 6),  TO(8, 12), TO(8, 24),   //
    TO(12, 1), TO(12, 2), TO(12, 3), TO(12, 4), TO(12, 6), TO(12, 8), TO(12, 24),  //
    TO(24, 1), TO(24, 2), TO(24, 3), TO(24, 4), TO(24, 6), TO(24, 8), TO(24, 12),  //
};
#undef TO

}  // namespace

RowConverter FindRowConverter(int32_t sourceBytesPerPixel, int32_t destinationBytesPerPixel) {
  // Only kinds make a key: a pixel of 103 bytes would meet another pair's and read past its row.
  if (FindPixelKind(sourceBytesPerPixel) == nullptr || FindPixelKind(destinationBytesPerPixel) == nullptr)
    return nullptr;
  const int32_t key = sourceBytesPerPixel * 100 + destinationBytesPerPixel;
  for (const ConverterEntry& entry : kConverters) {
    if (entry.key == key) return entry.convert;
  }
  return nullptr;
}

}  // namespace tessaline
