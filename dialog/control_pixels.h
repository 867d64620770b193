// Buffers as the pixels that a window shows.
#pragma once

#include <cstdint>

#include "platform/memory.h"

namespace tessaline {

// 32 bits per pixel: blue, green, red, unused; rows from the top, packed.
constexpr int32_t kControlPixelBytes = 4;

// What of a buffer is picture: the first columns and rows of it.
struct PicturePart {
  int32_t width = INT32_MAX, height = INT32_MAX;
};

// Shows the whole buffer in `width` x `height` pixels of `pixels`, stretched to fit (nearest pixel) where the
// sizes differ. Kinds of 1, 2, 3 and 6 bytes per pixel; others, and a slot without a buffer, are black.
// What lies beyond `part` is a neutral grey. Returns 0 or kOutOfMemory, pixels unchanged.
int32_t DrawBufferPixels(int32_t slot, int32_t width, int32_t height, uint8_t* pixels, PicturePart part = {});

}  // namespace tessaline
