// Fills the part of the transform plane that the image does not cover, so that the periodic transform sees no
// jump between opposite image edges.
#pragma once

#include <cstdint>

#include "buffers/buffer_table.h"
#include "platform/memory.h"

namespace tessaline {

// What a fill works with. Taken once by a caller that must not run short of memory between two fills.
struct PaddingMemory {
  OwnedBuffer surface;         // "FT padding float", N x N floats
  OwnedBlock<float> ring;      // blurred rows
  OwnedBlock<float> extended;  // one row with its borders

  // For planes of N x N. Returns 0, or kOutOfMemory.
  int32_t Take(int32_t n);
};

// `planeSlot`: N x N complex cells (8 bytes). The image stands in columns 0 .. N-1-horizontalPadding of rows
// 0 .. N-1-verticalPadding and keeps its real parts bit for bit. Every other cell becomes a smooth surface
// that runs from each image edge to the opposite one (around the periodic border), fading towards the mean
// level of the plane as it was handed in, padding included. All imaginary parts become 0.
//
// `memory`: taken before for this N, contents arbitrary; null: taken for the call. Returns 0; kOutOfMemory,
// plane unchanged; kUnequalSizes, plane unchanged, when the plane is not square with 8-byte cells, a padding
// lies outside 0 .. N-1, or the memory is for another N.
int32_t FillPadding(int32_t planeSlot, int32_t horizontalPadding, int32_t verticalPadding,
                    PaddingMemory* memory);

// Mean of the real parts of all cells of a complex plane, summed in double precision; 0 for a slot without
// one.
float MeanLevel(int32_t planeSlot);

}  // namespace tessaline
