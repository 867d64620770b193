// Copies between buffers of different pixel kinds, with the level scaling, replication and averaging that the
// two kinds need. Kinds and scales: image/pixel_kind.h.
#pragma once

#include <cstdint>

namespace tessaline {

// Copies the source's pixels into the destination's kind; marks the destination dirty.
//
// Buffers of equal byte size are copied byte for byte, whatever their kinds. Otherwise the common part (top
// left) is converted, and a destination that is larger in either direction is cleared first. A destination of
// unknown kind, or of the source's own kind at another size, becomes black.
//
// Returns 0; kInvalidSlotOrFile when a slot is below 1 or holds no buffer (nothing changed);
// kUnknownPixelKind when the source's bytes per pixel is not one of the eight kinds (the destination may be
// cleared already).
int32_t ConvertBuffer(int32_t sourceSlot, int32_t destinationSlot);

}  // namespace tessaline
