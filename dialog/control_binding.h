// Dialog controls that show a buffer. Windows only.
#pragma once

#include <cstdint>

#include "dialog/control_pixels.h"
#include "dialog/window_types.h"
#include "platform/memory.h"

namespace tessaline {

struct ControlBinding {
  int32_t isBound;
  OwnedBlock<uint8_t> pixels;  // (height + 1) x rowBytes bytes
  WindowRectangle area;        // client coordinates of the dialog
  WindowHandle dialog;
  int32_t slot;
  int32_t rowBytes;  // width x 4
  int32_t height, width;
};

// Shows the buffer in `slot` in the control from now on, at the control's present place and size. Without
// memory the control stays unbound.
void BindControlToBuffer(WindowHandle dialog, int32_t controlId, int32_t slot);

// The binding of an id, null when there is none.
const ControlBinding* FindControlBinding(int32_t controlId);

// Paints a bound control from its buffer, over whatever the control itself would paint. An unbound one gives
// a message to the user. What of the buffer lies beyond `part` is painted grey.
void PaintBoundControl(WindowHandle dialog, int32_t controlId, PicturePart part = {});

// The proxy control in two halves: its buffer above, the buffer of the untouched picture below.
void PaintBoundControlSplit(WindowHandle dialog, int32_t controlId, int32_t untouchedSlot,
                            PicturePart part = {});

// Forgets all bindings.
void ReleaseControlBindings();

// Puts the pixels of a binding (32 bits each, rows from the top) into its control's rectangle.
void BlitPixels(const ControlBinding& binding, WindowHandle control);

}  // namespace tessaline
