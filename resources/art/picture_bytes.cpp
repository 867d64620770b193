#include "resources/art/picture_bytes.h"

#include <algorithm>
#include <cmath>

namespace tessaline::art {
namespace {

constexpr uint32_t kFileHeaderBytes = 14;
constexpr uint32_t kInfoHeaderBytes = 40;
constexpr size_t kPaletteEntries = 256;

void Put16(Bytes* bytes, uint32_t value) {
  bytes->push_back(static_cast<uint8_t>(value));
  bytes->push_back(static_cast<uint8_t>(value >> 8));
}
void Put32(Bytes* bytes, uint32_t value) {
  Put16(bytes, value & 0xFFFF);
  Put16(bytes, value >> 16);
}
void PadRow(Bytes* pixels) {
  while (pixels->size() % 4 != 0) pixels->push_back(0);
}
uint8_t ToByte(double level) {
  return static_cast<uint8_t>(level + 0.5);
}

void PutInfoHeader(Bytes* bytes, int width, int height, uint32_t bitsPerPixel, uint32_t paletteEntries) {
  Put32(bytes, kInfoHeaderBytes);
  Put32(bytes, static_cast<uint32_t>(width));
  Put32(bytes, static_cast<uint32_t>(height));
  Put16(bytes, 1);  // planes
  Put16(bytes, bitsPerPixel);
  Put32(bytes, 0);  // not compressed
  Put32(bytes, 0);  // size of the pixels: as it follows from the others
  Put32(bytes, 0);  // resolution: none
  Put32(bytes, 0);
  Put32(bytes, paletteEntries);
  Put32(bytes, paletteEntries);
}

// `palette` in the file's order: blue, green, red, 0.
Bytes WithHeaders(int width, int height, uint32_t bitsPerPixel, const Bytes& palette, const Bytes& pixels) {
  const auto paletteBytes = static_cast<uint32_t>(palette.size());
  const uint32_t pixelOffset = kFileHeaderBytes + kInfoHeaderBytes + paletteBytes;
  Bytes file = {'B', 'M'};
  Put32(&file, pixelOffset + static_cast<uint32_t>(pixels.size()));
  Put32(&file, 0);
  Put32(&file, pixelOffset);
  PutInfoHeader(&file, width, height, bitsPerPixel, paletteBytes / 4);
  file.insert(file.end(), palette.begin(), palette.end());
  file.insert(file.end(), pixels.begin(), pixels.end());
  return file;
}

}  // namespace

Bytes BitmapFile(const Canvas& canvas) {
  Bytes pixels;
  for (int y = canvas.height() - 1; y >= 0; --y) {
    for (int x = 0; x < canvas.width(); ++x) {
      const Canvas::Pixel& pixel = canvas.At(x, y);
      const auto onFace = [&](double level, double face) {
        return ToByte(level * pixel.cover + face * (1 - pixel.cover));
      };
      pixels.push_back(onFace(pixel.blue, kDialogFace.blue));
      pixels.push_back(onFace(pixel.green, kDialogFace.green));
      pixels.push_back(onFace(pixel.red, kDialogFace.red));
    }
    PadRow(&pixels);
  }
  return WithHeaders(canvas.width(), canvas.height(), 24, {}, pixels);
}

Bytes PaletteBitmapFile(const Bytes& rgb, int width, int height) {
  const auto colourAt = [&](size_t pixel) {
    return static_cast<uint32_t>(rgb[3 * pixel] << 16 | rgb[3 * pixel + 1] << 8 | rgb[3 * pixel + 2]);
  };
  std::vector<uint32_t> colours(rgb.size() / 3);
  for (size_t i = 0; i < colours.size(); ++i) colours[i] = colourAt(i);
  std::sort(colours.begin(), colours.end());
  colours.erase(std::unique(colours.begin(), colours.end()), colours.end());
  if (colours.size() > kPaletteEntries) return {};

  Bytes palette;
  for (const uint32_t colour : colours) Put32(&palette, colour);  // red is the third byte: blue comes first
  Bytes pixels;
  for (int y = height - 1; y >= 0; --y) {
    for (int x = 0; x < width; ++x) {
      const uint32_t colour = colourAt(static_cast<size_t>(y) * width + x);
      const auto found = std::lower_bound(colours.begin(), colours.end(), colour);
      pixels.push_back(static_cast<uint8_t>(found - colours.begin()));
    }
    PadRow(&pixels);
  }
  return WithHeaders(width, height, 8, palette, pixels);
}

Bytes CursorFile(const Canvas& canvas, int hotSpotX, int hotSpotY) {
  constexpr uint32_t kCursorType = 2;
  constexpr uint32_t kDirectoryBytes = 6 + 16;  // the header and one entry
  Bytes pixels, mask;
  for (int y = canvas.height() - 1; y >= 0; --y) {
    for (int left = 0; left < canvas.width(); left += 8) {
      uint32_t bits = 0;  // the highest is the leftmost; 1 is clear
      for (int x = left; x < left + 8; ++x) {
        bits = bits << 1 | (x >= canvas.width() || canvas.At(x, y).cover < 0.5 ? 1 : 0);
      }
      mask.push_back(static_cast<uint8_t>(bits));
    }
    PadRow(&mask);
    for (int x = 0; x < canvas.width(); ++x) {
      const Canvas::Pixel& pixel = canvas.At(x, y);
      for (const double level : {pixel.blue, pixel.green, pixel.red, 255 * pixel.cover}) {
        pixels.push_back(ToByte(level));
      }
    }
  }
  Bytes file;
  Put16(&file, 0);
  Put16(&file, kCursorType);
  Put16(&file, 1);  // pictures
  file.push_back(static_cast<uint8_t>(canvas.width()));
  file.push_back(static_cast<uint8_t>(canvas.height()));
  Put16(&file, 0);  // no palette
  Put16(&file, static_cast<uint32_t>(hotSpotX));
  Put16(&file, static_cast<uint32_t>(hotSpotY));
  Put32(&file, kInfoHeaderBytes + static_cast<uint32_t>(pixels.size() + mask.size()));
  Put32(&file, kDirectoryBytes);
  // Colours and mask count as one picture of twice the height.
  PutInfoHeader(&file, canvas.width(), 2 * canvas.height(), 32, 0);
  file.insert(file.end(), pixels.begin(), pixels.end());
  file.insert(file.end(), mask.begin(), mask.end());
  return file;
}

}  // namespace tessaline::art
