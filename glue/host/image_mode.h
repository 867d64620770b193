// What the host's mode numbers mean for the transfer of pixels.
#pragma once

#include <cstdint>

#include "glue/host/host_records.h"

namespace tessaline {

// In place on a row of interleaved pixels (color_rows.h).
using RowConversion = void (*)(void* row, int32_t pixels);

constexpr int32_t kAllPlanes = -1;  // as many as the host has

struct ImageMode {
  int32_t colorPlanes;     // kAllPlanes, or the number
  int32_t bits;            // per sample; 32 are floats, 0..1
  int32_t fetchedSamples;  // of each pixel, from plane 0 on, that the fetch reads; 0: it cannot read the mode
  RowConversion fetch;     // of the fetched row; null: none
  RowConversion copyBack;  // of the outgoing row; null: none
};

// The mode of a number, depth (bits per channel) as the host tells it: greyscale of depth 32 is the mode gray
// 32, for every other number the depth is not looked at. Null for a number that is none.
const ImageMode* FindImageMode(int32_t modeNumber, int32_t depth);

// How the samples of one pixel lie in the host's rows. A pixel is colorPlanes samples followed by extraPlanes
// (alpha and spot channels) samples of channelBytes bytes each.
struct PixelLayout {
  const ImageMode* mode;  // null: the host's mode number is none
  int32_t colorPlanes;
  int32_t extraPlanes;   // negative when the host offers fewer planes than the mode has
  int32_t channelBytes;  // 0 for bitmap and for an unknown mode

  // The host's rows hold whole pixels of this layout, so that samples can be moved.
  bool IsTransferable() const { return mode != nullptr && channelBytes > 0 && extraPlanes >= 0; }
  int32_t HostPixelBytes() const { return (colorPlanes + extraPlanes) * channelBytes; }
  int32_t MainPixelBytes() const { return colorPlanes * channelBytes; }
  int32_t ExtraPixelBytes() const { return extraPlanes * channelBytes; }
};
PixelLayout LayoutOf(const host::FilterRecord& record);

// What a run can do with such pixels.
enum class Treatment {
  kClean,        // fetch, run, copy back
  kPassThrough,  // 32 bits, or no samples of whole bytes: done with the picture as it is
  kRefuse,       // planes that neither the fetch nor the run can read
};
Treatment TreatmentOf(const PixelLayout& layout);

}  // namespace tessaline
