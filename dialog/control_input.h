// Keys and wheel in controls of the system that have no use for them. Windows only.
#pragma once

#include "dialog/window_types.h"

namespace tessaline {

// Sent by a taught edit for the arrow keys: wParam is the edit's id, lParam 1 for up and -1 for down.
constexpr uint32_t kEditArrowMessage = 0x8000;  // WM_APP

// From now on the edit box tells its dialog of Up and Down, and leaves WM_MOUSEWHEEL to it.
void TeachEdit(WindowHandle edit);

// From now on a picture that the Tab key visits is clicked by Space, and its frame is asked to be painted
// again whenever the focus comes or goes.
void TeachPicture(WindowHandle picture);

// Around the picture that has the focus, for the painting of its dialog. `context` is that painting's.
void PaintFocusFrame(WindowHandle dialog, struct HDC__* context);

}  // namespace tessaline
