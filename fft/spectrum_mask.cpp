#include <algorithm>

#include "fft/fft_2d.h"
#include "fft/mask_factor.h"
#include "image/pixel_kind.h"
#include "image/result_codes.h"

namespace tessaline {

namespace {

// Each multiplies a row of `width` complex values.
using RowAttenuator = void (*)(float* spectrum, const void* mask, int32_t width);

// An integer mask says how much of the frequency goes; products are made in the precision of the factor.
void AttenuateByGray8(float* spectrum, const void* mask, int32_t width) {
  constexpr int32_t kStretch = 32;
  const auto* const samples = static_cast<const uint8_t*>(mask);
  for (int32_t first = 0; first < width; first += kStretch) {
    const int32_t end = std::min(first + kStretch, width);
    if (IsAllZero(samples + first, end - first)) continue;
    for (int32_t x = first; x < end; ++x) AttenuateValue(samples[x], spectrum + 2 * x);
  }
}

void AttenuateByGray16(float* spectrum, const void* mask, int32_t width) {
  const auto* const samples = static_cast<const uint16_t*>(mask);
  for (int32_t x = 0; x < width; ++x) {
    const double factor = 1.0 - samples[x] / 32768.0;
    spectrum[2 * x] = static_cast<float>(spectrum[2 * x] * factor);
    spectrum[2 * x + 1] = static_cast<float>(spectrum[2 * x + 1] * factor);
  }
}

template <typename Sample, int kMaximum>
void AttenuateByRgb(float* spectrum, const void* mask, int32_t width) {
  constexpr float kScale = 1.0f / (3 * kMaximum);
  static_assert(kMaximum == 255 ? kScale == 0.0013071896f : kScale == 1.0172526e-5f);
  const auto* const samples = static_cast<const Sample*>(mask);
  for (int32_t x = 0; x < width; ++x) {
    const int32_t sum = samples[3 * x] + samples[3 * x + 1] + samples[3 * x + 2];
    const float factor = 1.0f - static_cast<float>(sum) * kScale;
    spectrum[2 * x] *= factor;
    spectrum[2 * x + 1] *= factor;
  }
}

// A float mask is the factor itself, unlike all the others: 0 removes, 1 keeps. Deliberate.
void AttenuateByFactor(float* spectrum, const void* mask, int32_t width) {
  const auto* const factors = static_cast<const float*>(mask);
  for (int32_t x = 0; x < width; ++x) {
    spectrum[2 * x] *= factors[x];
    spectrum[2 * x + 1] *= factors[x];
  }
}

RowAttenuator AttenuatorFor(int32_t maskBytesPerPixel) {
  switch (maskBytesPerPixel) {
    case kGray8:
      return AttenuateByGray8;
    case kGray16:
      return AttenuateByGray16;
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

int32_t MultiplyByMask(const ImageView& spectrum, const ConstImageView& mask) {
  const RowAttenuator attenuate = AttenuatorFor(mask.bytesPerPixel);
  if (spectrum.width != mask.width || spectrum.height != mask.height || attenuate == nullptr ||
      spectrum.bytesPerPixel != kGrayComplex) {
    return kUnequalSizes;
  }
  for (int32_t y = 0; y < spectrum.height; ++y) {
    attenuate(spectrum.Row<float>(y), mask.Row(y), spectrum.width);
  }
  return kSuccess;
}

}  // namespace tessaline
