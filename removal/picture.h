// A picture as the engine takes it: up to three channels of samples somewhere in memory, whatever their
// layout.
#pragma once

#include <cstddef>
#include <cstdint>

#include "image/image_view.h"
#include "removal/tone_curve.h"

namespace tessaline {

// What a sample's levels mean. Whatever the format, the engine computes on the scale 0 .. 32768.
enum class SampleFormat : int32_t {
  kByte,    // 8 bits, 0..255
  kHost16,  // 16 bits, 0..32768, the way picture editors hold them
  kFull16,  // 16 bits, 0..65535
  kFloat,   // 32-bit float, 0..1; results may lie outside
};

constexpr size_t SampleBytes(SampleFormat format) {
  return format == SampleFormat::kByte ? 1 : format == SampleFormat::kFloat ? 4 : 2;
}

// How a result becomes a whole number.
enum class Rounding : int32_t {
  kTruncate,  // clamp, then truncate: what the numbered run promises
  kNearest,
};

// Sample (x, y) stands at data + y * rowBytes + x * pixelBytes. Strides may be negative; samples are aligned
// to their size.
struct ChannelView {
  uint8_t* data = nullptr;
  ptrdiff_t pixelBytes = 0;
  ptrdiff_t rowBytes = 0;
};

constexpr int32_t kMostChannels = 3;

struct PictureView {
  int32_t width = 0;  // pixels
  int32_t height = 0;
  SampleFormat format = SampleFormat::kByte;
  int32_t channels = 0;  // 1 .. 3 of them are looked at and cleaned; alpha stays out of it
  ChannelView channel[kMostChannels];
  const ToneCurve* light =
      nullptr;  // if given, loading gives linear light; storing takes levels all the same
};

// The picture of an image of kind 1, 2, 3 or 6; another kind gives a picture without channels.
PictureView PictureOf(const ImageView& image);

// Row y of a channel as levels 0 .. 32768, to every second float from `levels` on; their sum.
double LoadLevels(const PictureView& picture, int32_t channel, int32_t y, float* levels);

// And back. Whole samples are clamped to their range and rounded as wished; not-a-number becomes 0.
void StoreLevels(const PictureView& picture, int32_t channel, int32_t y, Rounding rounding,
                 const float* levels);

// The same for a part of a row, one level after the other.
struct RowPart {
  int32_t channel, y;
  int32_t first, count;  // pixels
};
void LoadPart(const PictureView& picture, const RowPart& part, float* levels);
void StorePart(const PictureView& picture, const RowPart& part, Rounding rounding, const float* levels);

}  // namespace tessaline
