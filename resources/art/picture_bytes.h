// Pictures as the resource compiler wants them.
#pragma once

#include <cstdint>
#include <vector>

#include "resources/art/canvas.h"

namespace tessaline::art {

using Bytes = std::vector<uint8_t>;

// A bitmap file of 24 bits a pixel; what the canvas leaves clear is dialog face.
Bytes BitmapFile(const Canvas& canvas);

// A bitmap file of 8 bits a pixel. `rgb` holds width x height pixels from the top, of at most 256 different
// colours; with more the result is empty.
Bytes PaletteBitmapFile(const Bytes& rgb, int width, int height);

// A cursor file of one picture, 32 bits a pixel with smooth edges, and a mask for screens that have none. The
// hot spot is the pixel that points.
Bytes CursorFile(const Canvas& canvas, int hotSpotX, int hotSpotY);

}  // namespace tessaline::art
