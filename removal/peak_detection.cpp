#include "removal/peak_detection.h"

#include <algorithm>
#include <cstring>

#include "buffers/buffer_table.h"
#include "buffers/levels.h"
#include "buffers/result_codes.h"
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
void LoadExtendedRow(int32_t slot, int32_t y, int32_t width, int32_t channels, float* extended) {
  const auto* const row = reinterpret_cast<const Sample*>(BufferRow(slot, y));
  for (int32_t x = -kReach; x < width + kReach; ++x) {
    const Sample* const pixel = row + std::clamp(x, 0, width - 1) * channels;
    for (int32_t c = 0; c < channels; ++c) *extended++ = static_cast<float>(pixel[c]);
  }
}

template <typename Sample>
void Convolve(int32_t slot, int32_t channels, float maximum, const float* weights, float* ring, float* sums) {
  const BufferShape shape = ShapeOf(slot);
  const size_t rowFloats = static_cast<size_t>(shape.width + 2 * kReach) * channels;
  const int32_t rowSamples = shape.width * channels;
  const auto ringRow = [&](int32_t y) { return ring + (y % kTaps) * rowFloats; };
  for (int32_t y = 0; y < std::min(kReach, shape.height); ++y) {
    LoadExtendedRow<Sample>(slot, y, shape.width, channels, ringRow(y));
  }
  for (int32_t y = 0; y < shape.height; ++y) {
    if (y + kReach < shape.height) {
      LoadExtendedRow<Sample>(slot, y + kReach, shape.width, channels, ringRow(y + kReach));
    }
    std::fill(sums, sums + rowSamples, 0.0f);
    for (int32_t tap = 0; tap < kTaps * kTaps; ++tap) {
      const float weight = weights[tap];
      if (weight == 0.0f) continue;
      const int32_t sourceY = std::clamp(y + tap / kTaps - kReach, 0, shape.height - 1);
      const float* const source = ringRow(sourceY) + (tap % kTaps) * channels;
      for (int32_t i = 0; i < rowSamples; ++i) sums[i] += weight * source[i];
    }
    auto* const row = reinterpret_cast<Sample*>(BufferRow(slot, y));
    for (int32_t i = 0; i < rowSamples; ++i) row[i] = StoreLevel<Sample>(sums[i], maximum);
  }
  MarkDirty(slot);
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
int32_t FillSeedMap(int32_t spectrumSlot, int32_t threshold, float discRadiusSquared, Cell pattern,
                    int32_t seedSlot) {
  const auto decisions = AllocateBlock<Cell>(kSpectrumCells);
  const auto mirrored = AllocateBlock<Cell>(kSpectrumCells);
  if (!decisions || !mirrored) return kOutOfMemory;
  constexpr int32_t kRowBytes = kSpectrumCells * sizeof(Cell);
  // On the centre row both writes meet and the mirrored decisions win, which makes the map exactly
  // point-symmetric there too. Column 0 of rows 256..511 ends as 0. Both deliberate.
  for (int32_t y = 0; y <= kSpectrumCentre; ++y) {
    const auto* const spectrum = reinterpret_cast<const uint16_t*>(BufferRow(spectrumSlot, y));
    DecideRow(spectrum, y, threshold, discRadiusSquared, pattern, decisions.get());
    WriteBufferRow(seedSlot, 0, y, kRowBytes, decisions.get());
    if (y == 0) continue;
    MirrorRow(decisions.get(), mirrored.get());
    WriteBufferRow(seedSlot, 0, kSpectrumCells - y, kRowBytes, mirrored.get());
  }
  return kSuccess;
}

}  // namespace

bool IsSpectrumGrid(int32_t slot, int32_t bytesPerPixel) {
  const BufferShape shape = ShapeOf(slot);
  return shape.width == kSpectrumCells && shape.height == kSpectrumCells &&
         shape.bytesPerPixel == bytesPerPixel;
}

int32_t EnhanceSpectrum(int32_t slot, const float weights[49]) {
  const BufferShape shape = ShapeOf(slot);
  if (shape.width == 0) return kInvalidSlotOrFile;
  const int32_t kind = shape.bytesPerPixel;
  if (kind != kGray8 && kind != kGray16 && kind != kRgb8 && kind != kRgb16) return kUnknownPixelKind;
  const int32_t channels = kind == kGray8 || kind == kGray16 ? 1 : 3;
  const size_t rowFloats = static_cast<size_t>(shape.width + 2 * kReach) * channels;
  const auto ring = AllocateBlock<float>(kTaps * rowFloats);
  const auto sums = AllocateBlock<float>(rowFloats);
  if (!ring || !sums) return kOutOfMemory;
  if (kind == kGray8 || kind == kRgb8) {
    Convolve<uint8_t>(slot, channels, kByteMax, weights, ring.get(), sums.get());
  } else {
    Convolve<uint16_t>(slot, channels, kHostMax, weights, ring.get(), sums.get());
  }
  return kSuccess;
}

float ThresholdOfAcceptance(float acceptancePercent) {
  return 255.0f - 1.275f * acceptancePercent;
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

int32_t DetectPeaks(int32_t spectrumSlot, float threshold, float protectionRadius, int32_t seedSlot) {
  if (ShapeOf(spectrumSlot).width == 0 || ShapeOf(seedSlot).width == 0) return kSuccess;
  const bool hasByteSeeds = IsSpectrumGrid(seedSlot, kGray8);
  if (!IsSpectrumGrid(spectrumSlot, kGray16) || !(hasByteSeeds || IsSpectrumGrid(seedSlot, kGray16))) {
    return kUnequalSizes;
  }
  const float discRadius = ProtectedDiscRadius(protectionRadius);
  const float discRadiusSquared = discRadius * discRadius;
  const int32_t hostThreshold = HostThreshold(threshold);
  if (hasByteSeeds) {
    return FillSeedMap<uint8_t>(spectrumSlot, hostThreshold, discRadiusSquared, 255, seedSlot);
  }
  return FillSeedMap<uint16_t>(spectrumSlot, hostThreshold, discRadiusSquared, 32768, seedSlot);
}

}  // namespace tessaline
