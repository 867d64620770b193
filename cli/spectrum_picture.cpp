#include "cli/spectrum_picture.h"

#include <algorithm>
#include <cmath>

#include "buffers/buffer_table.h"
#include "buffers/levels.h"

namespace tessaline::cli {
namespace {

struct Colour {
  float red, green, blue;
};
constexpr Colour kTakenOut = {255, 32, 32};
constexpr Colour kProtected = {40, 130, 255};
constexpr float kTakenOutCover = 0.8f;  // what a full notch hides of the spectrum below
constexpr float kProtectedCover = 0.3f;
constexpr float kRimCover = 1.0f;

void Cover(uint8_t* pixel, const Colour& colour, float cover) {
  const float target[3] = {colour.red, colour.green, colour.blue};
  for (int i = 0; i < 3; ++i) {
    const float mixed = static_cast<float>(pixel[i]) * (1 - cover) + target[i] * cover;
    pixel[i] = static_cast<uint8_t>(std::lround(mixed));
  }
}

}  // namespace

std::vector<uint8_t> DrawSpectrum(const RemovalFindings& findings, float protectionRadius) {
  constexpr int32_t kSide = kSpectrumCells;
  constexpr float kSmallestDisc = 256.0f / 127.9f;  // the run caps the protection radius
  const float discRadius = std::max(256.0f / protectionRadius, kSmallestDisc);
  std::vector<uint8_t> picture(3u * kSide * kSide);
  uint8_t* pixel = picture.data();
  for (int32_t y = 0; y < kSide; ++y) {
    const auto* levels = reinterpret_cast<const uint16_t*>(BufferRow(findings.spectrum.rawGray16Slot, y));
    const uint8_t* mask = BufferRow(findings.maskSlot, y);
    for (int32_t x = 0; x < kSide; ++x, pixel += 3) {
      const uint8_t grey = StoreByte(static_cast<float>(levels[x]) * kHostToByte);
      std::fill_n(pixel, 3, grey);
      const float distance =
          std::hypot(static_cast<float>(x - kSpectrumCentre), static_cast<float>(y - kSpectrumCentre));
      if (std::abs(distance - discRadius) < 0.6f) {
        Cover(pixel, kProtected, kRimCover);
      } else if (distance < discRadius) {
        Cover(pixel, kProtected, kProtectedCover);
      }
      if (mask[x] > 0) Cover(pixel, kTakenOut, kTakenOutCover * static_cast<float>(mask[x]) / kByteMax);
    }
  }
  return picture;
}

std::vector<uint8_t> CopyMask(const RemovalFindings& findings) {
  std::vector<uint8_t> mask;
  mask.reserve(static_cast<size_t>(kSpectrumCells) * kSpectrumCells);
  for (int32_t y = 0; y < kSpectrumCells; ++y) {
    const uint8_t* row = BufferRow(findings.maskSlot, y);
    mask.insert(mask.end(), row, row + kSpectrumCells);
  }
  return mask;
}

}  // namespace tessaline::cli
