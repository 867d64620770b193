#include <windows.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "buffers/buffer_table.h"
#include "dialog/control_binding.h"
#include "dialog/control_pixels.h"
#include "dialog/window_geometry.h"
#include "platform/message.h"

namespace tessaline {

namespace {

// Indexed by control id; empty while nothing is bound.
std::vector<ControlBinding> g_bindings;

void ReportUnbound() {
  ShowMessage("BindFrefToDITLitem() was never called for this item", "Error");
}

}  // namespace

void BindControlToBuffer(WindowHandle dialog, int32_t controlId, int32_t slot) {
  const HWND control = GetDlgItem(dialog, controlId);
  if (control == nullptr || controlId < 0) return;
  const WindowRectangle area = AreaInDialog(dialog, control);
  ControlBinding binding = {};
  binding.isBound = 1;
  binding.area = area;
  binding.dialog = dialog;
  binding.slot = slot;
  binding.width = area.width();
  binding.height = area.height();
  binding.rowBytes = area.width() * kControlPixelBytes;
  binding.pixels = AllocateBlock<uint8_t>(static_cast<size_t>(binding.rowBytes) * (binding.height + 1));
  if (!binding.pixels) return;
  if (g_bindings.size() <= static_cast<size_t>(controlId)) g_bindings.resize(controlId + 1);
  g_bindings[controlId] = std::move(binding);
}

const ControlBinding* FindControlBinding(int32_t controlId) {
  if (controlId < 0 || g_bindings.size() <= static_cast<size_t>(controlId)) return nullptr;
  const ControlBinding& binding = g_bindings[controlId];
  return binding.isBound != 0 ? &binding : nullptr;
}

void PaintBoundControl(WindowHandle dialog, int32_t controlId, PicturePart part) {
  const ControlBinding* const binding = FindControlBinding(controlId);
  if (binding == nullptr) return ReportUnbound();
  DrawBufferPixels(binding->slot, binding->width, binding->height, binding->pixels.get(), part);
  BlitPixels(*binding, GetDlgItem(dialog, controlId));
}

void PaintBoundControlSplit(WindowHandle dialog, int32_t controlId, int32_t untouchedSlot, PicturePart part) {
  const ControlBinding* const binding = FindControlBinding(controlId);
  if (binding == nullptr) return ReportUnbound();
  const int32_t upperHeight = binding->height / 2;
  uint8_t* const lower = binding->pixels.get() + static_cast<size_t>(upperHeight) * binding->rowBytes;
  DrawBufferPixels(binding->slot, binding->width, upperHeight, binding->pixels.get(), part);
  DrawBufferPixels(untouchedSlot, binding->width, binding->height - upperHeight, lower, part);
  // The edge between the two, in a grey that shows on light and dark pictures alike.
  std::fill(lower, lower + binding->rowBytes, uint8_t{128});
  BlitPixels(*binding, GetDlgItem(dialog, controlId));
}

void ReleaseControlBindings() {
  g_bindings = std::vector<ControlBinding>();
}

void BlitPixels(const ControlBinding& binding, WindowHandle control) {
  BITMAPINFO info = {};
  info.bmiHeader.biSize = sizeof(info.bmiHeader);
  info.bmiHeader.biWidth = binding.width;
  info.bmiHeader.biHeight = -binding.height;  // rows from the top
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 32;
  info.bmiHeader.biCompression = BI_RGB;
  const HDC context = GetDC(control);
  if (context == nullptr) return;
  StretchDIBits(context, 0, 0, binding.width, binding.height, 0, 0, binding.width, binding.height,
                binding.pixels.get(), &info, DIB_RGB_COLORS, SRCCOPY);
  ReleaseDC(control, context);
  // The control must not paint its own face over the picture.
  ValidateRect(control, nullptr);
}

}  // namespace tessaline
