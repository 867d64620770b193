#include <windows.h>

#include "dialog/window_geometry.h"

namespace tessaline {

WindowRectangle ClientAreaOf(WindowHandle window) {
  RECT area = {};
  if (window != nullptr) GetClientRect(window, &area);
  return {area.left, area.top, area.right, area.bottom};
}

WindowRectangle AreaInDialog(WindowHandle dialog, WindowHandle control) {
  RECT area = {};
  if (control != nullptr && GetClientRect(control, &area)) {
    MapWindowPoints(control, dialog, reinterpret_cast<POINT*>(&area), 2);
  }
  return {area.left, area.top, area.right, area.bottom};
}

}  // namespace tessaline
