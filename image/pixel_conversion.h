// From one pixel kind to another, with the level scaling, replication and averaging that the two kinds need.
#pragma once

#include <cstdint>

namespace tessaline {

// Converts `pixels` pixels from one row to another. Rows do not overlap.
using RowConverter = void (*)(const void* source, void* destination, int32_t pixels);

// The converter from one kind to another, by their bytes per pixel; null where either is none of the eight
// kinds, and from a kind to itself.
RowConverter FindRowConverter(int32_t sourceBytesPerPixel, int32_t destinationBytesPerPixel);

}  // namespace tessaline
