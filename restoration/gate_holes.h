// Small places where the gate is not as it is all round, although the pattern goes on there, or has none.
#pragma once

#include "restoration/plane.h"

namespace tessaline {

// `open` is by blocks of Gate::kReduction, 0 to 1; `marks` is scratch of its shape. Small is at most 48
// pixels either way. Of a part of a picture those at its borders may go on beyond it and stay. May throw
// std::bad_alloc.

// Opens what is closed, wholly or in part, in small places that are open all round. A picture's own detail
// hides its pattern there; what has none, a word or a caption, is larger.
void OpenHoles(bool isPart, Plane* open, Plane* marks);

// Closes what is open, wholly or in part, in places that are closed all round and small, or nowhere open over
// 16 x 16 pixels: letters that look like the pattern by chance. Not where half of all that is open are such
// places.
void CloseIslands(bool isPart, Plane* open, Plane* marks);

}  // namespace tessaline
