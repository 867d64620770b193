#include <windows.h>

#include "dialog/control_input.h"
#include "dialog/window_geometry.h"

namespace tessaline {

namespace {

static_assert(kEditArrowMessage == WM_APP);

// The procedure of its class, which the user data of a taught control keeps. SetWindowSubclass would need a
// version of the common controls that an older host need not have loaded.
LRESULT CallClass(HWND control, UINT message, WPARAM wParam, LPARAM lParam) {
  const auto procedure = reinterpret_cast<WNDPROC>(GetWindowLongPtrA(control, GWLP_USERDATA));
  return CallWindowProcA(procedure, control, message, wParam, lParam);
}

void Teach(HWND control, WNDPROC procedure) {
  if (control == nullptr) return;
  SetWindowLongPtrA(control, GWLP_USERDATA, GetWindowLongPtrA(control, GWLP_WNDPROC));
  SetWindowLongPtrA(control, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(procedure));
}

LRESULT CALLBACK EditProcedure(HWND edit, UINT message, WPARAM wParam, LPARAM lParam) {
  const HWND dialog = GetParent(edit);
  if (message == WM_MOUSEWHEEL) return SendMessageA(dialog, message, wParam, lParam);
  if (message == WM_KEYDOWN && (wParam == VK_UP || wParam == VK_DOWN)) {
    return SendMessageA(dialog, kEditArrowMessage, static_cast<WPARAM>(GetDlgCtrlID(edit)),
                        wParam == VK_UP ? 1 : -1);
  }
  return CallClass(edit, message, wParam, lParam);
}

constexpr int32_t kFrameGap = 1, kFrameWidth = 2;  // pixels beside the picture

RECT Widened(const WindowRectangle& area, int32_t by) {
  return {area.left - by, area.top - by, area.right + by, area.bottom + by};
}

// Without the picture itself, which would flicker.
void InvalidateFrame(HWND picture) {
  const WindowRectangle area = AreaInDialog(GetParent(picture), picture);
  const RECT outer = Widened(area, kFrameGap + kFrameWidth), inner = Widened(area, 0);
  const HRGN frame = CreateRectRgnIndirect(&outer), hole = CreateRectRgnIndirect(&inner);
  CombineRgn(frame, frame, hole, RGN_DIFF);
  InvalidateRgn(GetParent(picture), frame, TRUE);
  DeleteObject(hole);
  DeleteObject(frame);
}

LRESULT CALLBACK PictureProcedure(HWND picture, UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case WM_GETDLGCODE:
      return CallClass(picture, message, wParam, lParam) | DLGC_WANTCHARS | DLGC_WANTARROWS;
    case WM_SETFOCUS:
    case WM_KILLFOCUS:
      InvalidateFrame(picture);
      break;
    case WM_KEYDOWN:
      if (wParam != VK_SPACE) break;
      return SendMessageA(GetParent(picture), WM_COMMAND, MAKEWPARAM(GetDlgCtrlID(picture), STN_CLICKED),
                          reinterpret_cast<LPARAM>(picture));
    default:
      break;
  }
  return CallClass(picture, message, wParam, lParam);
}

}  // namespace

void TeachEdit(WindowHandle edit) {
  Teach(edit, EditProcedure);
}

void TeachPicture(WindowHandle picture) {
  Teach(picture, PictureProcedure);
}

void PaintFocusFrame(WindowHandle dialog, HDC context) {
  const HWND focus = GetFocus();
  if (focus == nullptr || GetParent(focus) != dialog) return;
  if (GetWindowLongPtrA(focus, GWLP_WNDPROC) != reinterpret_cast<LONG_PTR>(PictureProcedure)) return;
  const WindowRectangle area = AreaInDialog(dialog, focus);
  for (int32_t by = kFrameGap + 1; by <= kFrameGap + kFrameWidth; ++by) {
    const RECT frame = Widened(area, by);
    FrameRect(context, &frame, GetSysColorBrush(COLOR_HIGHLIGHT));
  }
}

}  // namespace tessaline
