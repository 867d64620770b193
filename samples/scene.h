// The picture behind the samples: a lighthouse on a headland, drawn as a camera would see it.
#pragma once

#include "samples/drawing.h"

namespace tessaline::samples {

// RGB, with no repeating pattern in it. The view is framed by the height; a wider picture shows more to both
// sides.
Picture DrawScene(int width, int height);

}  // namespace tessaline::samples
