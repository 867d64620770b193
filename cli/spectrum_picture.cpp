#include "cli/spectrum_picture.h"

#include <algorithm>
#include <array>
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
constexpr Colour kLicensed = {255, 220, 0};
constexpr Colour kTextLines = {0, 230, 230};
constexpr Colour kBlocks = {60, 230, 60};
constexpr Colour kWindows = {215, 120, 255};

// Letters of 5 x 7 pixels, the highest bit left.
using Letter = std::array<uint8_t, 7>;
constexpr Letter kLetterT = {0b11111, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100};
constexpr Letter kLetterB = {0b11110, 0b10001, 0b10001, 0b11110, 0b10001, 0b10001, 0b11110};
constexpr Letter kLetterW = {0b10001, 0b10001, 0b10001, 0b10101, 0b10101, 0b10101, 0b01010};

void Cover(uint8_t* pixel, const Colour& colour, float cover) {
  const float target[3] = {colour.red, colour.green, colour.blue};
  for (int i = 0; i < 3; ++i) {
    const float mixed = static_cast<float>(pixel[i]) * (1 - cover) + target[i] * cover;
    pixel[i] = static_cast<uint8_t>(std::lround(mixed));
  }
}

class Canvas {
 public:
  explicit Canvas(std::vector<uint8_t>* pixels) : pixels_(pixels) {}

  void Dot(int32_t x, int32_t y, const Colour& colour, float cover = 1.0f) {
    if (x < 0 || x >= kSpectrumCells || y < 0 || y >= kSpectrumCells) return;
    Cover(pixels_->data() + 3 * (static_cast<size_t>(y) * kSpectrumCells + static_cast<size_t>(x)), colour,
          cover);
  }

  void Circle(int32_t centreX, int32_t centreY, const Colour& colour) {
    constexpr float kRadius = 9.0f;
    for (int32_t y = -11; y <= 11; ++y) {
      for (int32_t x = -11; x <= 11; ++x) {
        const float fromRim = std::abs(std::hypot(static_cast<float>(x), static_cast<float>(y)) - kRadius);
        if (fromRim < 1.2f) Dot(centreX + x, centreY + y, colour, std::min(1.0f, 1.4f - fromRim));
      }
    }
  }

  void LetteredSquare(int32_t centreX, int32_t centreY, const Colour& colour, const Letter& letter) {
    constexpr int32_t kReach = 4;
    for (int32_t i = -kReach; i <= kReach; ++i) {
      for (const int32_t side : {-kReach, kReach}) {
        Dot(centreX + i, centreY + side, colour);
        Dot(centreX + side, centreY + i, colour);
      }
    }
    // Beside the square, on the side of the zero frequency, so that it never falls off the picture.
    const int32_t left = centreX < kSpectrumCentre ? centreX + kReach + 3 : centreX - kReach - 7;
    for (int32_t y = 0; y < 7; ++y) {
      for (int32_t x = 0; x < 5; ++x) {
        if (letter[y] >> (4 - x) & 1) Dot(left + x, centreY - 3 + y, colour);
      }
    }
  }

 private:
  std::vector<uint8_t>* pixels_;
};

void MarkPeak(const SpectrumPeak& peak, int32_t x, int32_t y, Canvas* canvas) {
  if (peak.isLicensed) {
    canvas->Circle(x, y, kLicensed);
  } else if (peak.verdict == PeakVerdict::kTextLines) {
    canvas->LetteredSquare(x, y, kTextLines, kLetterT);
  } else if (peak.verdict == PeakVerdict::kBlocks) {
    canvas->LetteredSquare(x, y, kBlocks, kLetterB);
  } else if (peak.isGrid && peak.verdict != PeakVerdict::kUsed) {
    canvas->LetteredSquare(x, y, kWindows, kLetterW);
  }
}

}  // namespace

std::vector<uint8_t> DrawSpectrum(const RemovalFindings& findings, float protectionRadius,
                                  const std::vector<SpectrumPeak>& peaks) {
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
  Canvas canvas(&picture);
  for (const SpectrumPeak& peak : peaks) {
    MarkPeak(peak, kSpectrumCentre + peak.dx, kSpectrumCentre + peak.dy, &canvas);
    MarkPeak(peak, kSpectrumCentre - peak.dx, kSpectrumCentre - peak.dy, &canvas);
  }
  return picture;
}

std::vector<uint8_t> CopyCells(int32_t slot) {
  const uint8_t* cells = BufferRow(slot, 0);
  return {cells, cells + size_t{kSpectrumCells} * kSpectrumCells};
}

}  // namespace tessaline::cli
