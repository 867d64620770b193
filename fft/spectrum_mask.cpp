#include <algorithm>
#include <cstring>

#include "buffers/buffer_table.h"
#include "buffers/levels.h"
#include "buffers/result_codes.h"
#include "fft/fft_2d.h"

namespace tessaline {

namespace {

// Each multiplies a row of `width` complex values; source and destination are the same row or apart.
using RowAttenuator = void (*)(const float* source, const void* mask, int32_t width, float* destination);

// An integer mask says how much of the frequency goes; products are made in the precision of the factor.
template <typename Sample, int kMaximum>
void AttenuateByGray(const float* source, const void* mask, int32_t width, float* destination) {
  const auto* const samples = static_cast<const Sample*>(mask);
  for (int32_t x = 0; x < width; ++x) {
    const double factor = 1.0 - samples[x] / static_cast<double>(kMaximum);
    destination[2 * x] = static_cast<float>(source[2 * x] * factor);
    destination[2 * x + 1] = static_cast<float>(source[2 * x + 1] * factor);
  }
}

// Notches are few and small: stretches without one (factor 1, which changes no bit) are copied.
void AttenuateByGray8(const float* source, const void* mask, int32_t width, float* destination) {
  constexpr int32_t kStretch = 32;
  constexpr uint8_t kNothing[kStretch] = {};
  const auto* const samples = static_cast<const uint8_t*>(mask);
  for (int32_t x = 0; x < width; x += kStretch) {
    const int32_t count = std::min(width - x, kStretch);
    if (std::memcmp(samples + x, kNothing, static_cast<size_t>(count)) != 0) {
      AttenuateByGray<uint8_t, 255>(source + 2 * x, samples + x, count, destination + 2 * x);
    } else if (destination != source) {
      std::memcpy(destination + 2 * x, source + 2 * x, static_cast<size_t>(count) * 2 * sizeof(float));
    }
  }
}

template <typename Sample, int kMaximum>
void AttenuateByRgb(const float* source, const void* mask, int32_t width, float* destination) {
  constexpr float kScale = 1.0f / (3 * kMaximum);
  static_assert(kMaximum == 255 ? kScale == 0.0013071896f : kScale == 1.0172526e-5f);
  const auto* const samples = static_cast<const Sample*>(mask);
  for (int32_t x = 0; x < width; ++x) {
    const int32_t sum = samples[3 * x] + samples[3 * x + 1] + samples[3 * x + 2];
    const float factor = 1.0f - static_cast<float>(sum) * kScale;
    destination[2 * x] = source[2 * x] * factor;
    destination[2 * x + 1] = source[2 * x + 1] * factor;
  }
}

// A float mask is the factor itself, unlike all the others: 0 removes, 1 keeps. Deliberate.
void AttenuateByFactor(const float* source, const void* mask, int32_t width, float* destination) {
  const auto* const factors = static_cast<const float*>(mask);
  for (int32_t x = 0; x < width; ++x) {
    destination[2 * x] = source[2 * x] * factors[x];
    destination[2 * x + 1] = source[2 * x + 1] * factors[x];
  }
}

RowAttenuator AttenuatorFor(int32_t maskBytesPerPixel) {
  switch (maskBytesPerPixel) {
    case kGray8:
      return AttenuateByGray8;
    case kGray16:
      return AttenuateByGray<uint16_t, 32768>;
    case kRgb8:
      return AttenuateByRgb<uint8_t, 255>;
    case kRgb16:
      return AttenuateByRgb<uint16_t, 32768>;
    case kGrayFloat:
      return AttenuateByFactor;
    default:
      return nullptr;
  }
}

}  // namespace

int32_t ApplySpectrumMask(int32_t spectrumSlot, int32_t maskSlot) {
  return CopyMaskedSpectrum(spectrumSlot, maskSlot, spectrumSlot);
}

int32_t CopyMaskedSpectrum(int32_t spectrumSlot, int32_t maskSlot, int32_t destinationSlot) {
  const BufferShape spectrum = ShapeOf(spectrumSlot);
  const BufferShape mask = ShapeOf(maskSlot);
  const BufferShape destination = ShapeOf(destinationSlot);
  const RowAttenuator attenuate = AttenuatorFor(mask.bytesPerPixel);
  const auto isSameSize = [&](const BufferShape& other) {
    return other.width == spectrum.width && other.height == spectrum.height;
  };
  if (!isSameSize(mask) || !isSameSize(destination) || attenuate == nullptr ||
      spectrum.bytesPerPixel != kGrayComplex || destination.bytesPerPixel != kGrayComplex) {
    return kUnequalSizes;
  }
  for (int32_t y = 0; y < spectrum.height; ++y) {
    attenuate(reinterpret_cast<const float*>(BufferRow(spectrumSlot, y)), BufferRow(maskSlot, y),
              spectrum.width, reinterpret_cast<float*>(BufferRow(destinationSlot, y)));
  }
  MarkDirty(destinationSlot);
  return kSuccess;
}

}  // namespace tessaline
