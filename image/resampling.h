// Magnified copies of images, for zoomed views.
#pragma once

#include <cstdint>

#include "image/image_view.h"

namespace tessaline {

// Fills the whole destination with the source magnified by `zoom` (> 0; 1 is life size, 0.5 half size), the
// destination's top left corner standing at (offsetX, offsetY) of the source, in source pixels. Destination
// pixel (x, y) shows the source pixel that holds the point (offsetX + (x + 0.5) / zoom, offsetY + (y + 0.5) /
// zoom): pixels stay square-edged when magnified, so that a viewer sees what is in the picture. Points
// outside the source show 0.
//
// Two different kinds are converted (pixel_conversion.h); every size of pixel works between images of the
// same one. Returns 0; kInvalidSlotOrFile when there is no image; kUnknownPixelKind for two sizes of pixel
// that are not both kinds; kUnequalSizes when the zoom is not a positive finite number or an offset is not
// finite; kOutOfMemory. Nothing is changed on an error.
int32_t ResampleImage(const ConstImageView& source, float offsetX, float offsetY, float zoom,
                      const ImageView& destination);

}  // namespace tessaline
