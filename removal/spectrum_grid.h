// The 512 x 512 grid that every spectrum image and mask of the removal stands on.
#pragma once

#include <cstdint>

#include "image/image_view.h"

namespace tessaline {

constexpr int32_t kSpectrumCells = 512;  // side of every spectrum image and mask
constexpr int32_t kSpectrumCentre = kSpectrumCells / 2;

// Whether an image is a 512 x 512 grid of elements of that size.
inline bool IsSpectrumGrid(const ConstImageView& image, int32_t bytesPerPixel) {
  return image.HasShape(kSpectrumCells, kSpectrumCells, bytesPerPixel);
}

}  // namespace tessaline
