#include "dialog/spectrum_painting.h"

#include <algorithm>
#include <cmath>

#include "buffers/buffer_table.h"
#include "dialog/spectrum_levels.h"
#include "image/pixel_kind.h"
#include "image/resampling.h"
#include "image/result_codes.h"
#include "platform/memory.h"

namespace tessaline {

namespace {

// Columns half - reach .. half + reach of row y lie inside the disc; -1: none do.
int32_t ChordReach(const ProtectedDisc& disc, int32_t y) {
  const auto dy = static_cast<float>(y - disc.half);
  const float squared = disc.radius * disc.radius - dy * dy;
  if (!(squared > 0.0f)) return -1;
  // A senseless radius must not overflow the conversion.
  return static_cast<int32_t>(std::min(std::sqrt(squared), static_cast<float>(disc.half - 1)));
}

// One channel of a stretch of pixels. Truncation, and two parts mask to one part spectrum, are deliberate:
// notches must stand out of the brightest spectrum.
void BlendHighlight(const float* levels, const float* mask, float color, int32_t from, int32_t to,
                    uint8_t* bytes) {
  for (int32_t x = from; x < to; ++x) {
    bytes[x] = static_cast<uint8_t>(static_cast<int32_t>((levels[x] * color + 2.0f * mask[x]) / 3.0f));
  }
}

// Inside the disc: a third of the protect colour everywhere, so that the disc shows on the darkest spectrum,
// a third by level and a third of white by level, so that the spectrum shows in it. What the softened rim of
// a notch still removes there is mixed in as it looks outside.
void BlendProtected(const float* levels, const float* mask, float color, float protectColor, int32_t from,
                    int32_t to, uint8_t* bytes) {
  for (int32_t x = from; x < to; ++x) {
    const float kept = (protectColor + levels[x] * (protectColor + kByteMax)) / 3.0f;
    const float removed = (levels[x] * color + 2.0f * mask[x]) / 3.0f;
    const float share = mask[x] * (1.0f / kByteMax);
    bytes[x] = static_cast<uint8_t>(static_cast<int32_t>(kept + (removed - kept) * share));
  }
}

struct Channels {
  float values[3];
};
Channels ChannelsOf(HighlightColor color) {
  return {{static_cast<float>(color.red), static_cast<float>(color.green), static_cast<float>(color.blue)}};
}

}  // namespace

int32_t PaintFlatSpectrum(const SpectrumSource& source, float scale, HighlightColor highlight) {
  SpectrumReader reader;
  int32_t result = reader.Open(source, scale);
  if (result != kSuccess) return result;
  const int32_t width = reader.width();
  OwnedBuffer picture;
  result = picture.Create("Temp buffer", width, reader.height(), kRgb8);
  if (result != kSuccess) return result;
  const auto levels = AllocateBlock<float>(static_cast<size_t>(width));
  const auto mask = AllocateBlock<float>(static_cast<size_t>(width));
  const auto planes = AllocateBlock<uint8_t>(3 * static_cast<size_t>(width));
  if (!levels || !mask || !planes) return kOutOfMemory;

  const ProtectedDisc disc = DiscOf(width, source.protectionRadius);
  const Channels colors = ChannelsOf(highlight);
  const Channels protectColors = ChannelsOf(ProtectColor(highlight));
  for (int32_t y = 0; y < reader.height(); ++y) {
    const int32_t reach = ChordReach(disc, y);
    const int32_t discBegin = reach < 0 ? width : disc.half - reach;
    const int32_t discEnd = reach < 0 ? width : disc.half + reach + 1;
    reader.LoadMask(y, mask.get());
    for (int32_t c = 0; c < 3; ++c) {
      if (c < reader.channels()) reader.LoadLevels(y, c, levels.get());
      uint8_t* const plane = planes.get() + static_cast<size_t>(c) * width;
      const float color = colors.values[c];
      BlendHighlight(levels.get(), mask.get(), color, 0, discBegin, plane);
      BlendProtected(levels.get(), mask.get(), color, protectColors.values[c], discBegin, discEnd, plane);
      BlendHighlight(levels.get(), mask.get(), color, discEnd, width, plane);
    }
    uint8_t* const row = BufferRow(picture.slot(), y);
    for (int32_t x = 0; x < width; ++x) {
      for (int32_t c = 0; c < 3; ++c) row[3 * x + c] = planes[static_cast<size_t>(c) * width + x];
    }
  }
  return ResampleImage(ViewOf(picture.slot()), 0.0f, 0.0f, scale, ViewOf(source.viewSlot));
}

int32_t PaintSpectrum3D(const SpectrumSource& source, float scale, HighlightColor highlight) {
  SpectrumReader reader;
  int32_t result = reader.Open(source, scale);
  if (result != kSuccess) return result;
  OwnedBuffer grid, vertices;
  result = grid.Create("Temp buffer", kSurfaceGrid, kSurfaceGrid * kSurfacePlanes, sizeof(float));
  if (result == kSuccess) {
    result = vertices.Create("Temp2 buffer", kSurfaceVertexColumn, kSurfaceGrid, kSurfaceVertexBytes);
  }
  if (result != kSuccess) return result;
  const SurfaceMemory memory = {reinterpret_cast<float*>(BufferRow(grid.slot(), 0)),
                                BufferRow(vertices.slot(), 0)};
  result =
      DrawSpectrumSurface(reader, source.protectionRadius, scale, highlight, memory, ViewOf(source.viewSlot));
  if (result == kSuccess) MarkDirty(source.viewSlot);
  return result;
}

}  // namespace tessaline
