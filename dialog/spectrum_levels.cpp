#include "dialog/spectrum_levels.h"

#include <algorithm>
#include <cmath>

#include "buffers/buffer_table.h"
#include "image/pixel_kind.h"
#include "image/result_codes.h"

namespace tessaline {

namespace {

constexpr float kByteToUnit = 0.003921569f;  // 1 / 255; the flat view's pixels depend on these digits
constexpr float kHostToUnit = 1.0f / kHostMax;

// Samples times a factor, held within 0..maximum. Bytes need no holding, and not-a-number becomes 0.
template <typename Sample>
void LoadSamples(const uint8_t* row, int32_t channel, int32_t channels, int32_t count, float factor,
                 float maximum, float* values) {
  const auto* const sample = reinterpret_cast<const Sample*>(row) + channel;
  for (int32_t x = 0; x < count; ++x) {
    const float value = static_cast<float>(sample[x * channels]) * factor;
    if constexpr (sizeof(Sample) == 1) {
      values[x] = value;
    } else {
      values[x] = value > 0.0f ? std::min(value, maximum) : 0.0f;
    }
  }
}

template <typename Sample>
void LoadLevelSamples(const uint8_t* row, int32_t channel, int32_t channels, int32_t count, float* levels) {
  constexpr float kFactor = sizeof(Sample) == 2 ? kHostToUnit : kByteToUnit;
  LoadSamples<Sample>(row, channel, channels, count, kFactor, 1.0f, levels);
}

template <typename Sample>
void LoadMaskSamples(const uint8_t* row, int32_t channel, int32_t channels, int32_t count, float* mask) {
  constexpr float kFactor = sizeof(Sample) == 2 ? kHostToByte : 1.0f;
  LoadSamples<Sample>(row, channel, channels, count, kFactor, kByteMax, mask);
}

// Any spectrum goes with any mask; a complex spectrum is not a picture of one, and a mask has one channel.
using RowLoader = void (*)(const uint8_t* row, int32_t channel, int32_t channels, int32_t count,
                           float* values);

const KindTraits* FindSpectrumKind(int32_t bytesPerPixel) {
  const KindTraits* const kind = FindPixelKind(bytesPerPixel);
  return kind != nullptr && kind->parts == 1 ? kind : nullptr;
}

const KindTraits* FindMaskKind(int32_t bytesPerPixel) {
  const KindTraits* const kind = FindSpectrumKind(bytesPerPixel);
  return kind != nullptr && kind->channels == 1 ? kind : nullptr;
}

}  // namespace

int32_t SpectrumReader::Open(const SpectrumSource& source, float scale) {
  const BufferShape spectrum = ShapeOf(source.displaySpectrumSlot);
  const BufferShape mask = ShapeOf(source.maskSlot);
  const BufferShape view = ShapeOf(source.viewSlot);
  if (spectrum.width == 0 || mask.width == 0 || view.width == 0) return kInvalidSlotOrFile;
  const KindTraits* const spectrumKind = FindSpectrumKind(spectrum.bytesPerPixel);
  const KindTraits* const maskKind = FindMaskKind(mask.bytesPerPixel);
  if (spectrumKind == nullptr || maskKind == nullptr || view.bytesPerPixel != kRgb8) return kUnknownPixelKind;
  if (!std::isfinite(scale) || !(scale > 0.0f)) return kUnequalSizes;

  spectrumSlot_ = source.displaySpectrumSlot;
  maskSlot_ = source.maskSlot;
  width_ = spectrum.width;
  height_ = spectrum.height;
  channels_ = spectrumKind->channels;
  maskWidth_ = std::min(mask.width, spectrum.width);
  loadLevels_ =
      WithSampleOf(spectrumKind->sample, [](auto s) -> RowLoader { return LoadLevelSamples<decltype(s)>; });
  loadMask_ =
      WithSampleOf(maskKind->sample, [](auto s) -> RowLoader { return LoadMaskSamples<decltype(s)>; });
  return kSuccess;
}

void SpectrumReader::LoadLevels(int32_t y, int32_t channel, float* levels) const {
  loadLevels_(BufferRow(spectrumSlot_, y), channel, channels_, width_, levels);
}

void SpectrumReader::LoadMask(int32_t y, float* mask) const {
  const uint8_t* const row = BufferRow(maskSlot_, y);  // null below the mask
  const int32_t covered = row != nullptr ? maskWidth_ : 0;
  if (row != nullptr) loadMask_(row, 0, 1, covered, mask);
  std::fill(mask + covered, mask + width_, 0.0f);
}

}  // namespace tessaline
