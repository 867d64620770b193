// PreviewState::Compute and what it is made of.

#include <algorithm>
#include <cstring>
#include <iterator>

#include "buffers/buffer_table.h"
#include "buffers/buffer_transforms.h"
#include "dialog/preview_state.h"
#include "dialog/spectrum_painting.h"
#include "fft/fft_2d.h"
#include "image/pixel_kind.h"
#include "image/resampling.h"
#include "image/result_codes.h"
#include "removal/notch_mask.h"
#include "removal/peak_detection.h"

namespace tessaline {

namespace {

// The source row that a row of the square shows; rows beyond the picture repeat its edge row.
int32_t SourceRowOf(const PreviewState& state, int32_t squareRow) {
  return std::clamp(state.panY.base - state.padY + squareRow, 0, state.panY.imageSize - 1);
}

// The source pixels of a row that stand behind the columns of the square, edge pixels repeated beyond the
// picture, in the source's kind.
const uint8_t* ReadSquareRow(const PreviewState& state, int32_t squareRow) {
  const int32_t bytes = state.sourceBytesPerPixel;
  const int32_t firstColumn = state.panX.base - state.padX;  // of the picture, at column 0 of the square
  const int32_t first = std::clamp(-firstColumn, 0, kProxySquare - 1);
  const int32_t last = std::clamp(state.panX.imageSize - 1 - firstColumn, first, kProxySquare - 1);
  uint8_t* const row = state.rows.source.get();
  ReadBufferRow(state.sourceSlot, (firstColumn + first) * bytes, SourceRowOf(state, squareRow),
                (last - first + 1) * bytes, row + first * bytes);
  for (int32_t x = 0; x < first; ++x) std::memcpy(row + x * bytes, row + first * bytes, bytes);
  for (int32_t x = last + 1; x < kProxySquare; ++x) std::memcpy(row + x * bytes, row + last * bytes, bytes);
  return row;
}

// --- kinds of the source ---

// A row to one channel's complex values on the 16-bit scale; 8-bit samples are widened to whole levels.
template <typename Sample, int kChannels>
void SplitRow(const uint8_t* row, int32_t channel, float* values) {
  const auto* sample = reinterpret_cast<const Sample*>(row) + channel;
  for (int32_t x = 0; x < kProxySquare; ++x, sample += kChannels) {
    if constexpr (sizeof(Sample) == 1) {
      values[2 * x] = static_cast<float>(static_cast<int32_t>(static_cast<float>(*sample) * kByteToHost));
    } else {
      values[2 * x] = static_cast<float>(*sample);
    }
    values[2 * x + 1] = 0.0f;
  }
}

// Pixels to RGB bytes.
template <typename Sample, int kChannels>
void ShowRow(const uint8_t* row, int32_t pixels, uint8_t* rgb) {
  const auto* sample = reinterpret_cast<const Sample*>(row);
  for (int32_t x = 0; x < pixels; ++x, sample += kChannels, rgb += 3) {
    for (int32_t c = 0; c < 3; ++c) {
      const Sample level = sample[kChannels == 1 ? 0 : c];
      rgb[c] = sizeof(Sample) == 1 ? static_cast<uint8_t>(level)
                                   : StoreByte(static_cast<float>(level) * kHostToByte);
    }
  }
}

struct PreviewKind {
  void (*split)(const uint8_t* row, int32_t channel, float* values);
  void (*show)(const uint8_t* row, int32_t pixels, uint8_t* rgb);
};

// The state holds a picture's kind or no picture at all, which is split and shown by nobody.
PreviewKind KindOf(const PreviewState& state) {
  const KindTraits* const kind = FindPixelKind(state.sourceBytesPerPixel);
  return WithKind(kind != nullptr ? *kind : kKindTraits[0], [](auto sample, auto channels) -> PreviewKind {
    return {SplitRow<decltype(sample), channels()>, ShowRow<decltype(sample), channels()>};
  });
}

// --- the proxy ---

bool HasPicture(const PreviewState& state) {
  return state.channels > 0 && state.rows.source && state.rows.output && state.buffers.proxy.slot() != 0;
}

void WriteUntouched(const PreviewState& state, int32_t slot) {
  const PreviewKind kind = KindOf(state);
  const int32_t width = state.panX.proxySize;
  for (int32_t y = 0; y < state.panY.proxySize; ++y) {
    const uint8_t* const row = ReadSquareRow(state, state.padY + y);
    kind.show(row + state.padX * state.sourceBytesPerPixel, width, state.rows.output.get());
    WriteBufferRow(slot, 0, y, width * 3, state.rows.output.get());
  }
}

// The forward transforms of the square, made when the picture has moved.
bool MakeSpectra(PreviewState& state) {
  PreviewCache& cache = state.cache;
  if (cache.hasSpectra && cache.baseX == state.panX.base && cache.baseY == state.panY.base) return true;
  cache.hasSpectra = false;
  const PreviewKind kind = KindOf(state);
  constexpr int32_t kRowBytes = kProxySquare * 2 * static_cast<int32_t>(sizeof(float));
  for (int32_t c = 0; c < state.channels; ++c) {
    if (!state.rows.channels[c] || state.buffers.spectra[c].slot() == 0) return false;
  }
  for (int32_t y = 0; y < kProxySquare; ++y) {
    const uint8_t* const row = ReadSquareRow(state, y);
    for (int32_t c = 0; c < state.channels; ++c) {
      auto* const values = reinterpret_cast<float*>(state.rows.channels[c].get());
      kind.split(row, c, values);
      WriteBufferRow(state.buffers.spectra[c].slot(), 0, y, kRowBytes, values);
    }
  }
  for (int32_t c = 0; c < state.channels; ++c) {
    const int32_t slot = state.buffers.spectra[c].slot();
    if (ForwardFft2D(slot, false, false, nullptr, 0, 0, 0) != kSuccess) return false;
  }
  cache.hasSpectra = true;
  cache.baseX = state.panX.base;
  cache.baseY = state.panY.base;
  return true;
}

// As StoreByte, in a form that the compiler makes vector code of.
uint8_t StoreByteWithoutBranches(float value) {
  value = value > 0.0f ? value : 0.0f;  // also not-a-number
  value = value < kByteMax ? value : kByteMax;
  return static_cast<uint8_t>(static_cast<int32_t>(value));
}

// Three rows of levels to RGB pixels. Four bytes are stored at a time; the next pixel takes the fourth.
void Interleave(const uint8_t* const levels[3], int32_t width, uint8_t* rgb) {
  const uint8_t* const red = levels[0];
  const uint8_t* const green = levels[1];
  const uint8_t* const blue = levels[2];
  const int32_t last = width - 1;
  for (int32_t x = 0; x < last; ++x) {
    const uint32_t pixel = red[x] | uint32_t{green[x]} << 8 | uint32_t{blue[x]} << 16;
    std::memcpy(rgb + 3 * x, &pixel, sizeof(pixel));
  }
  if (last < 0) return;
  rgb[3 * last] = red[last];
  rgb[3 * last + 1] = green[last];
  rgb[3 * last + 2] = blue[last];
}

// Of the filtered square only the rows of the visible window are completed.
bool FilterSpectra(PreviewState& state) {
  if (!state.cache.hasMask || !MakeSpectra(state)) return false;
  for (int32_t c = 0; c < state.channels; ++c) {
    const int32_t result =
        InverseMaskedRows(ViewOf(state.buffers.spectra[c].slot()), ViewOf(state.buffers.fullMask.slot()),
                          ViewOf(state.buffers.maskedSpectra[c].slot()), state.padY, state.panY.proxySize);
    if (result != kSuccess) return false;
  }
  return true;
}

// The visible window of the filtered square, back in bytes.
void WriteFiltered(const PreviewState& state) {
  const int32_t width = state.panX.proxySize;
  uint8_t* const rgb = state.rows.output.get();
  for (int32_t y = 0; y < state.panY.proxySize; ++y) {
    const uint8_t* levels[3];
    for (int32_t c = 0; c < 3; ++c) {
      if (c >= state.channels) {
        levels[c] = levels[0];
        continue;
      }
      const uint8_t* const row = BufferRow(state.buffers.maskedSpectra[c].slot(), state.padY + y);
      const auto* const values = reinterpret_cast<const float*>(row) + 2 * state.padX;
      uint8_t* const level = state.rows.channels[c].get();
      for (int32_t x = 0; x < width; ++x) level[x] = StoreByteWithoutBranches(values[2 * x] * kHostToByte);
      levels[c] = level;
    }
    Interleave(levels, width, rgb);
    WriteBufferRow(state.buffers.proxy.slot(), 0, y, width * 3, rgb);
  }
}

void MakeProxy(PreviewState& state) {
  if (!HasPicture(state)) return;
  if (state.previewOn && FilterSpectra(state)) {
    WriteFiltered(state);
  } else {
    WriteUntouched(state, state.buffers.proxy.slot());
  }
  if (state.buffers.untouched.slot() != 0) WriteUntouched(state, state.buffers.untouched.slot());
}

// --- mask and spectrum view ---

void MakeMask(PreviewState& state) {
  PreviewCache& cache = state.cache;
  if (cache.hasMask && cache.maskValues == state.current) return;
  const PreviewBuffers& buffers = state.buffers;
  cache.hasSpectrumView = false;
  const ImageView gridMask = ViewOf(buffers.gridMask.slot());
  cache.hasMask =
      DetectPeaks(ViewOf(state.spectrumSlot), ThresholdOfAcceptance(state.current.acceptance),
                  state.current.protectionRadius, gridMask) == kSuccess &&
      ShapeNotches(gridMask, state.current.protectionRadius, state.current.notchRadius) == kSuccess &&
      EnlargeMask(gridMask, ViewOf(buffers.fullMask.slot())) == kSuccess;
  cache.maskValues = state.current;
}

void MakeSpectrumView(PreviewState& state) {
  PreviewCache& cache = state.cache;
  if (cache.hasSpectrumView && cache.is3D == state.spectrum3D && cache.highlight == state.highlight) return;
  const SpectrumSource source = {state.displaySpectrumSlot, state.buffers.gridMask.slot(),
                                 state.buffers.spectrumView.slot(), state.current.protectionRadius};
  const float scale = static_cast<float>(state.spectrumArea.width()) * (1.0f / kSpectrumCells);
  const auto paint = state.spectrum3D ? PaintSpectrum3D : PaintFlatSpectrum;
  cache.hasSpectrumView = paint(source, scale, state.highlight) == kSuccess;
  cache.is3D = state.spectrum3D;
  cache.highlight = state.highlight;
}

void Magnify(const PreviewState& state, int32_t proxySlot, int32_t viewSlot) {
  ResampleImage(ViewOf(proxySlot), static_cast<float>(state.panX.remainder),
                static_cast<float>(state.panY.remainder), kZoomSteps[state.zoomIndex].factor,
                ViewOf(viewSlot));
}

}  // namespace

void PreviewState::Compute() {
  PreviewState& state = *this;
  if (!state.cacheValid) {
    MakeMask(state);
    MakeSpectrumView(state);
    MakeProxy(state);
    state.cacheValid = true;
  }
  Magnify(state, state.buffers.proxy.slot(), state.buffers.zoomedView.slot());
  if (state.buffers.untouched.slot() != 0) {
    Magnify(state, state.buffers.untouched.slot(), state.buffers.zoomedUntouched.slot());
  }
}

}  // namespace tessaline
