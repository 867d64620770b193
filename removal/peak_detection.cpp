#include "removal/peak_detection.h"

#include <algorithm>
#include <cstring>

#include "image/pixel_kind.h"
#include "image/result_codes.h"
#include "platform/memory.h"

namespace tessaline {

// clang-format off
const float kPeakKernel[49] = {
    -0.2f,  -0.05f, 0.0f, 0.0f, 0.0f, -0.05f, -0.2f,
    -0.05f, -0.05f, 0.0f, 0.0f, 0.0f, -0.05f, -0.05f,
     0.0f,   0.0f,  0.0f, 0.1f, 0.0f,  0.0f,   0.0f,
     0.0f,   0.0f,  0.1f, 1.0f, 0.1f,  0.0f,   0.0f,
     0.0f,   0.0f,  0.0f, 0.1f, 0.0f,  0.0f,   0.0f,
    -0.05f, -0.05f, 0.0f, 0.0f, 0.0f, -0.05f, -0.05f,
    -0.2f,  -0.05f, 0.0f, 0.0f, 0.0f, -0.05f, -0.2f,
};
// clang-format on

namespace {

constexpr int32_t kTaps = 7;
constexpr int32_t kReach = kTaps / 2;

// Loads one row as floats with `kReach` pixels of repeated edge on both sides.
template <typename Sample>
void LoadExtendedRow(const ImageView& image, int32_t y, int32_t channels, float* extended) {
  const auto* const row = image.Row<const Sample>(y);
  for (int32_t x = -kReach; x < image.width + kReach; ++x) {
    const Sample* const pixel = row + std::clamp(x, 0, image.width - 1) * channels;
    for (int32_t c = 0; c < channels; ++c) *extended++ = static_cast<float>(pixel[c]);
  }
}

template <typename Sample>
void Convolve(const ImageView& image, int32_t channels, float maximum, const float* weights, float* ring,
              float* sums) {
  const size_t rowFloats = static_cast<size_t>(image.width + 2 * kReach) * channels;
  const int32_t rowSamples = image.width * channels;
  const auto ringRow = [&](int32_t y) { return ring + (y % kTaps) * rowFloats; };
  for (int32_t y = 0; y < std::min(kReach, image.height); ++y) {
    LoadExtendedRow<Sample>(image, y, channels, ringRow(y));
  }
  for (int32_t y = 0; y < image.height; ++y) {
    if (y + kReach < image.height) {
      LoadExtendedRow<Sample>(image, y + kReach, channels, ringRow(y + kReach));
    }
    std::fill(sums, sums + rowSamples, 0.0f);
    for (int32_t tap = 0; tap < kTaps * kTaps; ++tap) {
      const float weight = weights[tap];
      if (weight == 0.0f) continue;
      const int32_t sourceY = std::clamp(y + tap / kTaps - kReach, 0, image.height - 1);
      const float* const source = ringRow(sourceY) + (tap % kTaps) * channels;
      for (int32_t i = 0; i < rowSamples; ++i) sums[i] += weight * source[i];
    }
    auto* const row = image.Row<Sample>(y);
    for (int32_t i = 0; i < rowSamples; ++i) row[i] = StoreLevel<Sample>(sums[i], maximum);
  }
}

// One row of decisions.
template <typename Cell>
void DecideRow(const uint16_t* spectrum, int32_t y, int32_t threshold, float discRadiusSquared, Cell pattern,
               Cell* decisions) {
  const int32_t dy = y - kSpectrumCentre;
  for (int32_t x = 0; x < kSpectrumCells; ++x) {
    const int32_t dx = x - kSpectrumCentre;
    const bool isOutsideDisc = static_cast<float>(dx * dx + dy * dy) >= discRadiusSquared;
    decisions[x] = isOutsideDisc && spectrum[x] > threshold ? pattern : Cell{0};
  }
}

// The mirrored row: column 512 - x takes the decision of column x. Column 0 has no partner and stays 0.
template <typename Cell>
void MirrorRow(const Cell* decisions, Cell* mirrored) {
  mirrored[0] = 0;
  for (int32_t x = 1; x < kSpectrumCells; ++x) mirrored[kSpectrumCells - x] = decisions[x];
}

template <typename Cell>
void FillSeedMap(const ConstImageView& spectrum, int32_t threshold, float discRadiusSquared, Cell pattern,
                 const ImageView& seeds) {
  // On the centre row both writes meet and the mirrored decisions win, which makes the map exactly
  // point-symmetric there too. Column 0 of rows 256..511 ends as 0. Both deliberate.
  Cell decisions[kSpectrumCells];
  for (int32_t y = 0; y <= kSpectrumCentre; ++y) {
    DecideRow(spectrum.Row<uint16_t>(y), y, threshold, discRadiusSquared, pattern, decisions);
    std::copy(decisions, decisions + kSpectrumCells, seeds.Row<Cell>(y));
    if (y > 0) MirrorRow(decisions, seeds.Row<Cell>(kSpectrumCells - y));
  }
}

}  // namespace

int32_t EnhanceSpectrum(const ImageView& image, const float weights[49]) {
  const KindTraits* const kind = FindPixelKind(image.bytesPerPixel);
  if (kind == nullptr || !kind->isPicture()) return kUnknownPixelKind;
  const size_t rowFloats = static_cast<size_t>(image.width + 2 * kReach) * kind->channels;
  const auto ring = AllocateBlock<float>(kTaps * rowFloats);
  const auto sums = AllocateBlock<float>(rowFloats);
  if (!ring || !sums) return kOutOfMemory;
  if (kind->sample == SampleType::kByte) {
    Convolve<uint8_t>(image, kind->channels, kByteMax, weights, ring.get(), sums.get());
  } else {
    Convolve<uint16_t>(image, kind->channels, kHostMax, weights, ring.get(), sums.get());
  }
  return kSuccess;
}

float ThresholdOfAcceptance(float acceptancePercent) {
  return 255.0f - 1.275f * acceptancePercent;
}

float AcceptanceOfThreshold(float threshold) {
  return (255.0f - threshold) / 1.275f;
}

int32_t HostThreshold(float threshold) {
  // An acceptance outside 0..100, or none at all, must not overflow the conversion: such a threshold finds
  // nothing.
  const float hostThreshold = threshold * kByteToHost;
  return hostThreshold >= 0.0f && hostThreshold <= kHostMax ? static_cast<int32_t>(hostThreshold) : 32768;
}

float ProtectedDiscRadius(float protectionRadius) {
  constexpr float kLargestProtectionRadius = 127.9f;
  return static_cast<float>(kSpectrumCentre) / std::min(protectionRadius, kLargestProtectionRadius);
}

int32_t DetectPeaks(const ConstImageView& spectrum, float threshold, float protectionRadius,
                    const ImageView& seeds) {
  const bool hasByteSeeds = IsSpectrumGrid(seeds, kGray8);
  if (!IsSpectrumGrid(spectrum, kGray16) || !(hasByteSeeds || IsSpectrumGrid(seeds, kGray16))) {
    return kUnequalSizes;
  }
  const float discRadius = ProtectedDiscRadius(protectionRadius);
  const float discRadiusSquared = discRadius * discRadius;
  const int32_t hostThreshold = HostThreshold(threshold);
  if (hasByteSeeds) {
    FillSeedMap<uint8_t>(spectrum, hostThreshold, discRadiusSquared, 255, seeds);
  } else {
    FillSeedMap<uint16_t>(spectrum, hostThreshold, discRadiusSquared, 32768, seeds);
  }
  return kSuccess;
}

}  // namespace tessaline
