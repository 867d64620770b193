// Fills the part of the transform plane that the image does not cover, so that the periodic transform sees no
// jump between opposite image edges.
#pragma once

#include <cstdint>

namespace tessaline {

// `planeSlot`: N x N complex cells (8 bytes). The image stands in columns 0 .. N-1-horizontalPadding of rows
// 0 .. N-1-verticalPadding and keeps its real parts bit for bit. Every other cell becomes a smooth surface
// that runs from each image edge to the opposite one (around the periodic border), fading towards the mean
// level of the plane as it was handed in, padding included. All imaginary parts become 0.
//
// `surfaceSlot`: N x N floats (4 bytes) of working memory, contents arbitrary; 0 creates "FT padding float"
// for the call. Returns 0; kOutOfMemory, plane unchanged, when it cannot be created; kUnequalSizes, plane
// unchanged, when the plane is not square with 8-byte cells, a padding lies outside 0 .. N-1, or the surface
// has another shape.
int32_t FillPadding(int32_t planeSlot, int32_t horizontalPadding, int32_t verticalPadding,
                    int32_t surfaceSlot);

// Mean of the real parts of all cells of a complex plane, summed in double precision; 0 for a slot without
// one.
float MeanLevel(int32_t planeSlot);

}  // namespace tessaline
