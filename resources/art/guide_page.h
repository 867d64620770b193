// The page of the Quick Guide: what the filter does and what its three sliders do, in pictures that the
// engine itself has made from the samples.
#pragma once

#include <string>

#include "resources/art/picture_bytes.h"

namespace tessaline::art {

// Fits a screen of 800 x 600 with a frame and a button.
constexpr int kGuidePageWidth = 744;
constexpr int kGuidePageHeight = 480;

// The squares that hold pictures from the engine. Four steps from left to right: the print, its spectrum,
// what is taken out, the result. Below them two for each of three sliders: what its low and its high end do.
struct GuidePanel {
  int left, top, side;  // pixels of the page
};
constexpr int kGuideMargin = 12;
constexpr int kGuideSteps = 4;
constexpr int kGuideSliders = 3;
constexpr GuidePanel StepPanel(int step) {
  return {kGuideMargin + step * 184, 54, 168};
}
constexpr GuidePanel SliderPanel(int slider, int end) {
  return {kGuideMargin + slider * 246 + end * 116, 291, 104};
}

// The bitmap file, 8 bits a pixel. `samples` is the folder of newsprint.png and rosette.png. The text is set
// in DejaVu Sans, whose smooth edges are not the same everywhere. Throws std::runtime_error, with the reason,
// when a sample cannot be read or the engine has no memory.
Bytes DrawGuidePage(const std::string& samples);

}  // namespace tessaline::art
