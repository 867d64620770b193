#include "removal/spectrum_picture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

#include "image/pixel_kind.h"

namespace tessaline {
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
constexpr Colour kLegendGround = {24, 24, 24};
constexpr Colour kText = {235, 235, 235};

// Capitals of 5 x 7 pixels, A to Z, by rows, the highest of five bits left.
using Letter = std::array<uint8_t, 7>;
constexpr Letter kLetters[] = {
    {0b01110, 0b10001, 0b10001, 0b11111, 0b10001, 0b10001, 0b10001},  // A
    {0b11110, 0b10001, 0b10001, 0b11110, 0b10001, 0b10001, 0b11110},  // B
    {0b01110, 0b10001, 0b10000, 0b10000, 0b10000, 0b10001, 0b01110},  // C
    {0b11110, 0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b11110},  // D
    {0b11111, 0b10000, 0b10000, 0b11110, 0b10000, 0b10000, 0b11111},  // E
    {0b11111, 0b10000, 0b10000, 0b11110, 0b10000, 0b10000, 0b10000},  // F
    {0b01110, 0b10001, 0b10000, 0b10111, 0b10001, 0b10001, 0b01111},  // G
    {0b10001, 0b10001, 0b10001, 0b11111, 0b10001, 0b10001, 0b10001},  // H
    {0b01110, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100, 0b01110},  // I
    {0b00111, 0b00010, 0b00010, 0b00010, 0b00010, 0b10010, 0b01100},  // J
    {0b10001, 0b10010, 0b10100, 0b11000, 0b10100, 0b10010, 0b10001},  // K
    {0b10000, 0b10000, 0b10000, 0b10000, 0b10000, 0b10000, 0b11111},  // L
    {0b10001, 0b11011, 0b10101, 0b10101, 0b10001, 0b10001, 0b10001},  // M
    {0b10001, 0b11001, 0b10101, 0b10101, 0b10011, 0b10001, 0b10001},  // N
    {0b01110, 0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b01110},  // O
    {0b11110, 0b10001, 0b10001, 0b11110, 0b10000, 0b10000, 0b10000},  // P
    {0b01110, 0b10001, 0b10001, 0b10001, 0b10101, 0b10010, 0b01101},  // Q
    {0b11110, 0b10001, 0b10001, 0b11110, 0b10100, 0b10010, 0b10001},  // R
    {0b01111, 0b10000, 0b10000, 0b01110, 0b00001, 0b00001, 0b11110},  // S
    {0b11111, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100},  // T
    {0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b01110},  // U
    {0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b01010, 0b00100},  // V
    {0b10001, 0b10001, 0b10001, 0b10101, 0b10101, 0b10101, 0b01010},  // W
    {0b10001, 0b10001, 0b01010, 0b00100, 0b01010, 0b10001, 0b10001},  // X
    {0b10001, 0b10001, 0b01010, 0b00100, 0b00100, 0b00100, 0b00100},  // Y
    {0b11111, 0b00001, 0b00010, 0b00100, 0b01000, 0b10000, 0b11111},  // Z
};
constexpr int32_t kLetterWidth = 5, kLetterHeight = 7;

// Why a peak was left out, as the picture shows it.
struct Reason {
  PeakVerdict verdict;
  char letter;
  Colour colour;
  const char* name;
};
constexpr Reason kReasons[] = {
    {PeakVerdict::kTextLines, 'T', {0, 230, 230}, "TEXT LINES"},
    {PeakVerdict::kBlocks, 'B', {60, 230, 60}, "BLOCKS"},
    {PeakVerdict::kSkirt, 'S', {170, 170, 170}, "SKIRT"},
    {PeakVerdict::kNotIsolated, 'I', {170, 170, 170}, "NOT ISOLATED"},
    {PeakVerdict::kNoLicence, 'N', {255, 150, 60}, "NO LICENCE"},
    {PeakVerdict::kTooFaint, 'F', {255, 150, 60}, "TOO FAINT"},
    {PeakVerdict::kOffLattice, 'L', {170, 170, 170}, "OFF LATTICE"},
};
constexpr Reason kWindows = {PeakVerdict::kNoLicence, 'W', {215, 120, 255}, "WINDOWS"};

// Null for a peak that was used.
const Reason* ReasonFor(const SpectrumPeak& peak) {
  if (peak.verdict == PeakVerdict::kUsed) return nullptr;
  if (peak.isGrid) return &kWindows;
  return std::find_if(std::begin(kReasons), std::end(kReasons),
                      [&](const Reason& reason) { return reason.verdict == peak.verdict; });
}

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
    const size_t place = 3 * (static_cast<size_t>(y) * kSpectrumCells + static_cast<size_t>(x));
    if (x < 0 || x >= kSpectrumCells || y < 0 || place >= pixels_->size()) return;
    Cover(pixels_->data() + place, colour, cover);
  }

  void Circle(int32_t centreX, int32_t centreY, int32_t radius, const Colour& colour) {
    for (int32_t y = -radius - 2; y <= radius + 2; ++y) {
      for (int32_t x = -radius - 2; x <= radius + 2; ++x) {
        const float fromRim =
            std::abs(std::hypot(static_cast<float>(x), static_cast<float>(y)) - static_cast<float>(radius));
        if (fromRim < 1.2f) Dot(centreX + x, centreY + y, colour, std::min(1.0f, 1.4f - fromRim));
      }
    }
  }

  void Box(int32_t left, int32_t top, int32_t width, int32_t height, const Colour& colour, float cover) {
    for (int32_t y = top; y < top + height; ++y) {
      for (int32_t x = left; x < left + width; ++x) Dot(x, y, colour, cover);
    }
  }

  // Every dot of the letter is `scale` pixels wide and high.
  void Text(int32_t left, int32_t top, int32_t scale, const Colour& colour, std::string_view text) {
    for (const char capital : text) {
      for (int32_t i = 0; capital != ' ' && i < kLetterWidth * kLetterHeight; ++i) {
        const int32_t x = i % kLetterWidth, y = i / kLetterWidth;
        const bool isSet = kLetters[capital - 'A'][static_cast<size_t>(y)] >> (kLetterWidth - 1 - x) & 1;
        if (isSet) Box(left + x * scale, top + y * scale, scale, scale, colour, 1.0f);
      }
      left += (kLetterWidth + 1) * scale;
    }
  }

  void Square(int32_t centreX, int32_t centreY, const Colour& colour) {
    for (int32_t i = -kSquareReach; i <= kSquareReach; ++i) {
      for (const int32_t side : {-kSquareReach, kSquareReach}) {
        Dot(centreX + i, centreY + side, colour);
        Dot(centreX + side, centreY + i, colour);
      }
    }
  }

  void LetteredSquare(int32_t centreX, int32_t centreY, const Reason& reason) {
    Square(centreX, centreY, reason.colour);
    // Beside the square, on the side of the zero frequency, so that it never falls off the picture.
    const int32_t left = centreX < kSpectrumCentre ? centreX + kSquareReach + 3 : centreX - kSquareReach - 7;
    const int32_t top = std::clamp(centreY - 3, 0, kSpectrumCells - kLetterHeight);
    Text(left, top, 1, reason.colour, {&reason.letter, 1});
  }

 private:
  static constexpr int32_t kSquareReach = 4;

  std::vector<uint8_t>* pixels_;
};

constexpr int32_t kCircleRadii[] = {9, 20, 32, 40, 9};  // by how far the peak is spread

void MarkPeak(const SpectrumPeak& peak, int32_t x, int32_t y, bool isTakenOut, Canvas* canvas) {
  if (peak.isLicensed) {
    canvas->Circle(x, y, kCircleRadii[static_cast<size_t>(peak.scale)], kLicensed);
    return;
  }
  // Nothing is left alone inside the notch of a higher peak, whatever was found of this one.
  const Reason* const reason = isTakenOut ? nullptr : ReasonFor(peak);
  if (reason != nullptr) canvas->LetteredSquare(x, y, *reason);
}

// The legend strip: rows of entries in three columns.
constexpr int32_t kLegendRow = 22;
constexpr int32_t kLegendMargin = 6;
constexpr int32_t kLegendColumns[] = {12, 174, 360};
constexpr int32_t kLegendName = 22;  // pixels right of an entry's mark
constexpr int32_t kLegendScale = 2;

int32_t LegendHeight(bool isAutomatic) {
  return kLegendMargin + kLegendRow * (isAutomatic ? 5 : 1);
}

int32_t LegendTop(int32_t row) {
  return kSpectrumCells + kLegendMargin + row * kLegendRow;
}

void DrawLegend(bool isAutomatic, Canvas* canvas) {
  constexpr int32_t kBox = kLetterHeight * kLegendScale;
  constexpr int32_t kMiddle = kBox / 2;
  const auto name = [&](int32_t column, int32_t row, std::string_view text) {
    canvas->Text(kLegendColumns[column] + kLegendName, LegendTop(row), kLegendScale, kText, text);
  };
  canvas->Box(kLegendColumns[0], LegendTop(0), kBox, kBox, kTakenOut, kTakenOutCover);
  name(0, 0, "TAKEN OUT");
  canvas->Box(kLegendColumns[1], LegendTop(0), kBox, kBox, kProtected, kRimCover);
  name(1, 0, "PROTECTED");
  if (!isAutomatic) return;
  canvas->Circle(kLegendColumns[2] + kMiddle, LegendTop(0) + kMiddle, kCircleRadii[0], kLicensed);
  name(2, 0, "LICENSED");
  canvas->Text(kLegendColumns[0], LegendTop(1), kLegendScale, kText, "SEEN BUT LEFT ALONE");
  const Reason* const cells[3][3] = {{&kReasons[0], &kReasons[1], &kWindows},
                                     {&kReasons[2], &kReasons[3], &kReasons[4]},
                                     {&kReasons[5], &kReasons[6], nullptr}};
  for (int32_t row = 0; row < 3; ++row) {
    for (int32_t column = 0; column < 3 && cells[row][column] != nullptr; ++column) {
      const Reason& reason = *cells[row][column];
      canvas->Text(kLegendColumns[column], LegendTop(row + 2), kLegendScale, reason.colour,
                   {&reason.letter, 1});
      name(column, row + 2, reason.name);
    }
  }
}

}  // namespace

std::vector<uint8_t> DrawSpectrum(const Analysis& analysis, const Findings& findings, const Mask& mask,
                                  float protectionRadius) {
  constexpr int32_t kSide = kSpectrumCells;
  constexpr float kSmallestDisc = 256.0f / 127.9f;  // the run caps the protection radius
  const float discRadius = std::max(256.0f / protectionRadius, kSmallestDisc);
  const bool isAutomatic = findings.isAutomatic;
  std::vector<uint8_t> picture(3u * kSide * static_cast<size_t>(kSide + LegendHeight(isAutomatic)));
  uint8_t* pixel = picture.data();
  for (int32_t y = 0; y < kSide; ++y) {
    const auto* const levels = analysis.rawGray16.view().Row<uint16_t>(y);
    const uint8_t* const taken = mask.cells.view().Row(y);
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
      if (taken[x] > 0) Cover(pixel, kTakenOut, kTakenOutCover * static_cast<float>(taken[x]) / kByteMax);
    }
  }
  Canvas canvas(&picture);
  constexpr uint8_t kHalfTaken = 127;
  // The lowest first, so that a licensed peak's circle lies on top.
  for (size_t i = isAutomatic ? findings.peaks.size() : 0; i > 0; --i) {
    const SpectrumPeak& peak = findings.peaks[i - 1];
    for (const int32_t side : {1, -1}) {
      const int32_t x = kSpectrumCentre + side * peak.dx, y = kSpectrumCentre + side * peak.dy;
      const bool isInside = x < kSide && y < kSide;  // -256 has no other side in the picture
      const bool isTakenOut = isInside && mask.cells.view().Row(y)[x] > kHalfTaken;
      MarkPeak(peak, x, y, isTakenOut, &canvas);
    }
  }
  canvas.Box(0, kSide, kSide, LegendHeight(isAutomatic), kLegendGround, 1.0f);
  DrawLegend(isAutomatic, &canvas);
  return picture;
}

}  // namespace tessaline
