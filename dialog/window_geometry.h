// Rectangles of windows. Windows only.
#pragma once

#include "dialog/window_types.h"

namespace tessaline {

// Client rectangle of a window; empty for none.
WindowRectangle ClientAreaOf(WindowHandle window);

// The client rectangle of a control in the client coordinates of its dialog; empty for none.
WindowRectangle AreaInDialog(WindowHandle dialog, WindowHandle control);

}  // namespace tessaline
