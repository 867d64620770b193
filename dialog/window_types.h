// What the portable part of the dialog needs to know of windows: how to hold one, and rectangles.
#pragma once

#include <cstdint>

struct HWND__;  // the system's own record behind its window handles

namespace tessaline {

using WindowHandle = HWND__*;

// Client coordinates in pixels; right and bottom lie just outside.
struct WindowRectangle {
  int32_t left, top, right, bottom;

  int32_t width() const { return right - left; }
  int32_t height() const { return bottom - top; }
  bool Contains(int32_t x, int32_t y) const { return x >= left && x < right && y >= top && y < bottom; }
};

}  // namespace tessaline
