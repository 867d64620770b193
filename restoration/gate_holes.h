// Small places in the midst of a pattern where the gate is closed although the pattern goes on there.
#pragma once

#include "restoration/plane.h"

namespace tessaline {

// Opens what is closed, wholly or in part, in places that are open all round and no larger than 48 pixels
// either way. A picture's own detail hides its pattern there; what has none, a word or a caption, is larger.
// Of a part of a picture those at its borders may go on beyond it and stay. `open` is by blocks of
// Gate::kReduction, 0 to 1; `marks` is scratch of its shape. May throw std::bad_alloc.
void OpenHoles(bool isPart, Plane* open, Plane* marks);

}  // namespace tessaline
