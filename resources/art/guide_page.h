// The page of the Quick Guide: what the filter does and what its three sliders do, in pictures that the
// engine itself has made from the samples.
#pragma once

#include <string>

#include "resources/art/picture_bytes.h"

namespace tessaline::art {

// Fits a screen of 800 x 600 with a frame and a button.
constexpr int kGuidePageWidth = 744;
constexpr int kGuidePageHeight = 480;

// The bitmap file, 8 bits a pixel. `samples` is the folder of newsprint.png and rosette.png. The text is set
// in DejaVu Sans, whose smooth edges are not the same everywhere. Throws std::runtime_error, with the reason,
// when a sample cannot be read or the engine has no memory.
Bytes DrawGuidePage(const std::string& samples);

}  // namespace tessaline::art
