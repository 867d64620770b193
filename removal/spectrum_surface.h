// The power spectrum as a lit surface, seen from the front and above, and what every view of it shows: by its
// levels, what is removed in a highlight colour, and the protected disc in the colour that stands against it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "image/image_view.h"

namespace tessaline {

struct HighlightColor {
  uint8_t red, green, blue;

  bool operator==(const HighlightColor&) const = default;
};

// What stands for "protected" beside a highlight that stands for "removed": blue beside red, red beside cyan,
// and for any other colour one of another hue. Greys, which have no hue, get blue.
HighlightColor ProtectColor(HighlightColor highlight);

// The protected disc on a spectrum of that width: centre (half, half), radius in cells. The larger the
// protection radius, the smaller the disc. Radius 0: none.
struct ProtectedDisc {
  int32_t half;
  float radius;
};
ProtectedDisc DiscOf(int32_t spectrumWidth, float protectionRadius);

// A spectrum and its mask, wherever they are.
class SpectrumRows {
 public:
  virtual ~SpectrumRows() = default;
  virtual int32_t width() const = 0;
  virtual int32_t height() const = 0;
  virtual int32_t channels() const = 0;
  // One channel of a row, 0..1; `width()` floats.
  virtual void LoadLevels(int32_t y, int32_t channel, float* levels) const = 0;
  // The mask beside it, 0..255; `width()` floats.
  virtual void LoadMask(int32_t y, float* mask) const = 0;
};

// What it is drawn by way of.
constexpr int32_t kSurfaceGrid = 256, kSurfacePlanes = 5;
constexpr int32_t kSurfaceVertexColumn = kSurfaceGrid + 4, kSurfaceVertexBytes = 16;
struct SurfaceMemory {
  float* grid;     // kSurfacePlanes * kSurfaceGrid^2 of them
  void* vertices;  // kSurfaceVertexColumn * kSurfaceGrid of kSurfaceVertexBytes, aligned to that
};

// Fills `view`, RGB bytes: the surface, its lower edge nearest, height and shade by level, peaks as spikes,
// noise calmed. It stands in the middle, `scale` pixels a cell wide but never wider or higher than the view.
// Returns 0 or kOutOfMemory, then with the view unchanged.
int32_t DrawSpectrumSurface(const SpectrumRows& spectrum, float protectionRadius, float scale,
                            HighlightColor highlight, const SurfaceMemory& memory, const ImageView& view);

}  // namespace tessaline
