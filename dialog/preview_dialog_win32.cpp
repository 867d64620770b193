#include <windows.h>
// After windows.h, which it needs.
#include <windowsx.h>

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <new>

#include "dialog/control_binding.h"
#include "dialog/control_ids.h"
#include "dialog/control_input.h"
#include "dialog/preview_dialog.h"
#include "dialog/preview_state.h"
#include "dialog/slider_control.h"
#include "dialog/window_geometry.h"

namespace tessaline {

WindowHandle previewWindow = nullptr;
PreviewState previewState;

namespace {

// What the open dialog holds besides previewState.
struct DialogWindows {
  SliderControl acceptance, notchRadius, protectionRadius;
  HFONT labelFont;
  HCURSOR hand, arrow;
  bool isHandShown;
  int32_t wheelRest;  // of a turn that is not yet a whole one
};
DialogWindows g_windows;

HWND Dialog() {
  return static_cast<HWND>(previewWindow);
}

void InvalidateArea(const WindowRectangle& area, bool erase) {
  const RECT rectangle = {area.left, area.top, area.right, area.bottom};
  InvalidateRect(Dialog(), &rectangle, erase);
}

WindowRectangle AreaOf(int32_t controlId) {
  return AreaInDialog(Dialog(), GetDlgItem(Dialog(), controlId));
}

void Repaint(uint32_t areas) {
  if (areas & kRepaintProxy) InvalidateArea(AreaOf(TESSALINE_PROXY_VIEW), false);
  if (areas & kRepaintSpectrum) InvalidateArea(AreaOf(TESSALINE_SPECTRUM_VIEW), false);
  if (areas & kRepaintSwatch) InvalidateArea(AreaOf(TESSALINE_HIGHLIGHT_SWATCH), true);
}

void ShowZoomLabel() {
  SetDlgItemTextA(Dialog(), TESSALINE_ZOOM_LABEL, previewState.ZoomLabel());
  InvalidateRect(GetDlgItem(Dialog(), TESSALINE_ZOOM_LABEL), nullptr, TRUE);
}

void ShowHighlightMode() {
  CheckRadioButton(Dialog(), TESSALINE_HIGHLIGHT_RED, TESSALINE_HIGHLIGHT_OTHER,
                   TESSALINE_HIGHLIGHT_RED + previewState.highlightMode);
}

// --- opening and ending ---

void AppendVersionToTitle() {
  constexpr size_t kTitleBytes = 1024;
  constexpr wchar_t kVersion[] = L" 3.5.0";
  constexpr size_t kTitleLength = kTitleBytes / sizeof(wchar_t);
  wchar_t title[kTitleLength];
  const int length = GetWindowTextW(Dialog(), title, static_cast<int>(kTitleLength - std::size(kVersion)));
  std::wmemcpy(title + length, kVersion, std::size(kVersion));
  SetWindowTextW(Dialog(), title);
}

void GiveLabelsTheirFont() {
  const HDC screen = GetDC(Dialog());
  const int dotsPerInch = screen != nullptr ? GetDeviceCaps(screen, LOGPIXELSY) : 96;
  if (screen != nullptr) ReleaseDC(Dialog(), screen);
  g_windows.labelFont =
      CreateFontA(MulDiv(10, dotsPerInch, 96), 0, 0, 0, FW_NORMAL, FALSE, FALSE, FALSE, DEFAULT_CHARSET,
                  OUT_DEFAULT_PRECIS, CLIP_DEFAULT_PRECIS, DEFAULT_QUALITY, DEFAULT_PITCH, "MS Sans Serif");
  for (int id = TESSALINE_PROTECTION_BIGGER; id <= TESSALINE_NOTCH_BIGGER; ++id) {
    SendDlgItemMessageA(Dialog(), id, WM_SETFONT, reinterpret_cast<WPARAM>(g_windows.labelFont), FALSE);
  }
}

void SetUpSliders() {
  const PreviewValues& values = previewState.current;
  InitSlider(Dialog(), &g_windows.acceptance, TESSALINE_ACCEPTANCE_BAR, TESSALINE_ACCEPTANCE_LABEL,
             TESSALINE_ACCEPTANCE_EDIT, kAcceptanceRange.minimum, kAcceptanceRange.maximum, values.acceptance,
             SliderMapping::kLinear, 2.0f, 1.0f, "Pattern Frequency Acceptance (%)");
  InitSlider(Dialog(), &g_windows.notchRadius, TESSALINE_NOTCH_BAR, TESSALINE_NOTCH_LABEL,
             TESSALINE_NOTCH_EDIT, kNotchRadiusRange.minimum, kNotchRadiusRange.maximum, values.notchRadius,
             SliderMapping::kLinear, 0.5f, 0.5f, "Notch Radius (1..16)");
  InitSlider(Dialog(), &g_windows.protectionRadius, TESSALINE_PROTECTION_BAR, TESSALINE_PROTECTION_LABEL,
             TESSALINE_PROTECTION_EDIT, kProtectionRadiusRange.minimum, kProtectionRadiusRange.maximum,
             values.protectionRadius, SliderMapping::kSquareRoot, 2.0f, 0.5f,
             "Low Frequency Protection Radius (Pixels)");
}

void TeachControls() {
  for (const int32_t id : {TESSALINE_PROTECTION_EDIT, TESSALINE_ACCEPTANCE_EDIT, TESSALINE_NOTCH_EDIT})
    TeachEdit(GetDlgItem(Dialog(), id));
  for (const int32_t id : {TESSALINE_SPECTRUM_VIEW, TESSALINE_MANUAL, TESSALINE_QUICK_GUIDE})
    TeachPicture(GetDlgItem(Dialog(), id));
  // The focus that comes back with the window must not open the colour chooser.
  SendDlgItemMessageA(Dialog(), TESSALINE_HIGHLIGHT_OTHER, BM_SETDONTCLICK, TRUE, 0);
}

void CutControl(HWND dialog, int32_t controlId, int32_t width, int32_t height) {
  const HWND control = GetDlgItem(dialog, controlId);
  if (control != nullptr)
    SetWindowPos(control, nullptr, 0, 0, width, height, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
}

// The template's spectrum area is a square in the usual font; with another one a dialog unit has other
// proportions, and the view, as wide as the area, would be cut off below. The proxy area must be no larger
// than the proxy, or life size would be a picture stretched by no whole number, with patterns of its own.
void FitViews(HWND dialog) {
  const WindowRectangle spectrum = AreaInDialog(dialog, GetDlgItem(dialog, TESSALINE_SPECTRUM_VIEW));
  const int32_t side = std::min(spectrum.width(), spectrum.height());
  CutControl(dialog, TESSALINE_SPECTRUM_VIEW, side, side);
  const WindowRectangle proxy = AreaInDialog(dialog, GetDlgItem(dialog, TESSALINE_PROXY_VIEW));
  CutControl(dialog, TESSALINE_PROXY_VIEW, std::min(proxy.width(), kLargestProxySide),
             std::min(proxy.height(), kLargestProxySide));
}

bool Initialize(HWND dialog, PreviewDialogRequest* request) {
  FitViews(dialog);
  previewState.Open(request, AreaInDialog(dialog, GetDlgItem(dialog, TESSALINE_PROXY_VIEW)),
                    AreaInDialog(dialog, GetDlgItem(dialog, TESSALINE_SPECTRUM_VIEW)));
  previewWindow = dialog;
  AppendVersionToTitle();
  CreateTooltips(dialog);
  ScalePictures(dialog);
  ShowZoomLabel();
  GiveLabelsTheirFont();
  g_windows.hand = LoadCursorA(static_cast<HINSTANCE>(OwnModule()), MAKEINTRESOURCEA(TESSALINE_CURSOR_HAND));
  g_windows.arrow = LoadCursorA(nullptr, IDC_ARROW);
  SetCursor(g_windows.arrow);
  SetUpSliders();
  TeachControls();
  ShowHighlightMode();
  CheckDlgButton(dialog, TESSALINE_PREVIEW, BST_CHECKED);
  // Disabled, so that mouse messages over it reach the dialog.
  EnableWindow(GetDlgItem(dialog, TESSALINE_PROXY_VIEW), FALSE);
  BindControlToBuffer(dialog, TESSALINE_SPECTRUM_VIEW, previewState.buffers.spectrumView.slot());
  BindControlToBuffer(dialog, TESSALINE_PROXY_VIEW, previewState.buffers.zoomedView.slot());
  InvalidateRect(dialog, nullptr, TRUE);
  return true;
}

// Also for a dialog whose owner was destroyed under it.
void CleanUp(bool isAccepted) {
  if (previewWindow == nullptr) return;
  CloseQuickGuide();
  previewState.Close(isAccepted);
  previewWindow = nullptr;
  ReleaseControlBindings();
  DeleteObject(g_windows.labelFont);
  g_windows = {};
}

void End(int32_t controlId) {
  const HWND dialog = Dialog();
  CleanUp(controlId == kDialogAccepted);
  EndDialog(dialog, controlId);
}

// --- sliders ---

// A slider with the value that it shows and the arrows that step it.
struct SliderRow {
  SliderControl* slider;
  float PreviewValues::*value;
  int32_t upId, downId;
  float (*next)(float value, bool up);
};
constexpr SliderRow kSliderRows[] = {
    {&g_windows.acceptance, &PreviewValues::acceptance, TESSALINE_ACCEPTANCE_UP, TESSALINE_ACCEPTANCE_DOWN,
     NextAcceptance},
    {&g_windows.notchRadius, &PreviewValues::notchRadius, TESSALINE_NOTCH_UP, TESSALINE_NOTCH_DOWN,
     NextNotchRadius},
    {&g_windows.protectionRadius, &PreviewValues::protectionRadius, TESSALINE_PROTECTION_UP,
     TESSALINE_PROTECTION_DOWN, NextProtectionRadius},
};

// Offers a message to the three sliders and takes the value of one that changed.
template <typename Offer>
bool OfferToSliders(Offer offer) {
  // The one not asked after keeps its value: what the slider shows may be a clamped one.
  PreviewValues values = previewState.current;
  bool isTaken = false;
  for (const SliderRow& row : kSliderRows) {
    if (!offer(row.slider)) continue;
    values.*row.value = row.slider->value;
    isTaken = true;
  }
  if (isTaken) Repaint(previewState.ChangeValues(values));
  return isTaken;
}

bool Scroll(UINT message, WPARAM wParam, HWND scrollBar) {
  return OfferToSliders(
      [&](SliderControl* slider) { return (SliderMessage(message, wParam, scrollBar, slider) & 0xFF) != 0; });
}

void LeaveEdit(int32_t id) {
  for (const SliderRow& row : kSliderRows) {
    if (row.slider->editId == id) LeaveSliderEdit(row.slider);
  }
}

void Spin(int32_t id) {
  const SliderRow& row = *std::find_if(std::begin(kSliderRows), std::end(kSliderRows) - 1,
                                       [&](const SliderRow& at) { return id == at.upId || id == at.downId; });
  PreviewValues values = previewState.current;
  SetSliderValue(row.slider, row.next(values.*row.value, id == row.upId));
  values.*row.value = row.slider->value;
  Repaint(previewState.SetValues(values));
  SetFocus(row.slider->edit);
}

void RestoreDefaults(int32_t) {
  Repaint(previewState.RestoreOpeningValues());
  for (const SliderRow& row : kSliderRows) SetSliderValue(row.slider, previewState.opening.*row.value);
}

// --- the other commands ---

void SwitchPreview(int32_t) {
  Repaint(previewState.TogglePreview());
  CheckDlgButton(Dialog(), TESSALINE_PREVIEW, previewState.previewOn ? BST_CHECKED : BST_UNCHECKED);
}

void Zoom(int32_t id) {
  Repaint(previewState.ChangeZoom(id == TESSALINE_ZOOM_IN    ? ZoomCommand::kIn
                                  : id == TESSALINE_ZOOM_OUT ? ZoomCommand::kOut
                                                             : ZoomCommand::kLifeSize));
  ShowZoomLabel();
}

void SwitchSpectrumView(int32_t) {
  Repaint(previewState.ToggleSpectrumView());
}

void ChooseRedOrCyan(int32_t id) {
  Repaint(previewState.ChooseHighlight(id == TESSALINE_HIGHLIGHT_RED ? kHighlightRed : kHighlightCyan, {}));
  ShowHighlightMode();
}

// An arrow key clicks every radio button that it arrives at. The user who only walks over "Other..." wants no
// window; Space or a click opens it.
bool IsArrowKeyHeld() {
  const int keys[] = {VK_LEFT, VK_UP, VK_RIGHT, VK_DOWN};
  return std::any_of(std::begin(keys), std::end(keys), [](int key) { return GetKeyState(key) < 0; });
}

void ChooseOtherColor(int32_t id) {
  if (id == TESSALINE_HIGHLIGHT_OTHER && IsArrowKeyHeld()) return ShowHighlightMode();
  HighlightColor color = previewState.highlight;
  if (ChooseHighlightColor(Dialog(), &color)) Repaint(previewState.ChooseHighlight(kHighlightOther, color));
  ShowHighlightMode();
}

struct Command {
  int32_t controlId;
  void (*run)(int32_t controlId);
};
constexpr Command kCommands[] = {
    {TESSALINE_OK, End},
    {TESSALINE_CANCEL, End},
    {TESSALINE_PREVIEW, SwitchPreview},
    {TESSALINE_ZOOM_IN, Zoom},
    {TESSALINE_ZOOM_OUT, Zoom},
    {TESSALINE_ZOOM_LABEL, Zoom},
    {TESSALINE_SPECTRUM_VIEW, SwitchSpectrumView},
    {TESSALINE_HIGHLIGHT_RED, ChooseRedOrCyan},
    {TESSALINE_HIGHLIGHT_CYAN, ChooseRedOrCyan},
    {TESSALINE_HIGHLIGHT_OTHER, ChooseOtherColor},
    {TESSALINE_HIGHLIGHT_SWATCH, ChooseOtherColor},
    {TESSALINE_MANUAL, [](int32_t) { OpenManual(Dialog()); }},
    {TESSALINE_ACCEPTANCE_UP, Spin},
    {TESSALINE_ACCEPTANCE_DOWN, Spin},
    {TESSALINE_NOTCH_UP, Spin},
    {TESSALINE_NOTCH_DOWN, Spin},
    {TESSALINE_PROTECTION_UP, Spin},
    {TESSALINE_PROTECTION_DOWN, Spin},
    {TESSALINE_DEFAULT, RestoreDefaults},
    {TESSALINE_QUICK_GUIDE, [](int32_t) { ShowQuickGuide(); }},
};

bool RunCommand(int32_t id, int32_t notification) {
  const bool isEdit = OfferToSliders([&](SliderControl* slider) { return SliderEditChanged(slider, id); });
  if (notification == EN_KILLFOCUS) LeaveEdit(id);
  // Clicks and double clicks (the second click of two quick ones); not a static's news of being disabled.
  if (notification != STN_CLICKED && notification != STN_DBLCLK) return isEdit;
  for (const Command& command : kCommands) {
    if (command.controlId != id) continue;
    command.run(id);
    return true;
  }
  return isEdit;
}

// --- the mouse ---

bool IsOverProxy() {
  POINT cursor = {};
  if (!GetCursorPos(&cursor)) return false;
  const HWND under = WindowFromPoint(cursor);
  if (under != Dialog() && !IsChild(Dialog(), under)) return false;  // another window lies over it
  ScreenToClient(Dialog(), &cursor);
  return previewState.proxyArea.Contains(cursor.x, cursor.y);
}

void FinishDrag() {
  const uint32_t areas = previewState.EndDrag();
  if (GetCapture() == Dialog()) ReleaseCapture();
  Repaint(areas);
}

// What every message does first.
void FollowMouse() {
  if (previewState.isDragging && GetKeyState(VK_LBUTTON) >= 0) FinishDrag();
  const bool wantsHand = previewState.isDragging || IsOverProxy();
  if (wantsHand) {
    SetCursor(g_windows.hand);
  } else if (g_windows.isHandShown) {
    SetCursor(g_windows.arrow);
  }
  g_windows.isHandShown = wantsHand;
}

void PressButton(int32_t x, int32_t y) {
  // The swatch is painted by the dialog, its control is hidden: the click comes here.
  if (AreaOf(TESSALINE_HIGHLIGHT_SWATCH).Contains(x, y)) return ChooseOtherColor(TESSALINE_HIGHLIGHT_SWATCH);
  previewState.BeginDrag(x, y);
  if (previewState.isDragging) SetCapture(Dialog());
}

// --- the wheel ---

// Turns of the wheel are told in parts by some mice; a turn the other way starts anew.
int32_t TakeWholeTurns(int32_t delta) {
  int32_t& rest = g_windows.wheelRest;
  if ((delta < 0) != (rest < 0)) rest = 0;
  rest += delta;
  const int32_t turns = rest / WHEEL_DELTA;
  rest %= WHEEL_DELTA;
  return turns;
}

// The slider under the cursor or, where none is, the one with the focus; null for none.
const SliderRow* SliderForWheel(POINT cursor) {
  const auto isOver = [&](int32_t id) { return AreaOf(id).Contains(cursor.x, cursor.y); };
  for (const SliderRow& row : kSliderRows) {
    const SliderControl& slider = *row.slider;
    for (const int32_t id : {slider.scrollBarId, slider.labelId, slider.editId, row.upId, row.downId}) {
      if (isOver(id)) return &row;
    }
  }
  const HWND focus = GetFocus();
  for (const SliderRow& row : kSliderRows) {
    if (focus != nullptr && (focus == row.slider->scrollBar || focus == row.slider->edit)) return &row;
  }
  return nullptr;
}

// Away from the user is more: of the zoom over the picture, of the value everywhere else.
void TurnWheel(int32_t delta, POINT cursor) {
  if (previewState.isDragging) return;
  ScreenToClient(Dialog(), &cursor);
  const int32_t turns = TakeWholeTurns(delta);
  const bool isZoom = previewState.proxyArea.Contains(cursor.x, cursor.y);
  const SliderRow* const row = isZoom ? nullptr : SliderForWheel(cursor);
  for (int32_t i = 0; i < std::abs(turns); ++i) {
    if (isZoom) Zoom(turns > 0 ? TESSALINE_ZOOM_IN : TESSALINE_ZOOM_OUT);
    if (row != nullptr) Scroll(WM_HSCROLL, turns > 0 ? SB_LINEDOWN : SB_LINEUP, row->slider->scrollBar);
  }
}

void StepByArrowKey(int32_t editId, bool up) {
  for (const SliderRow& row : kSliderRows) {
    if (row.slider->editId == editId) Spin(up ? row.upId : row.downId);
  }
}

// --- painting ---

// The swatch shows its black outline only: the fill is given a pen where a brush belongs and paints nothing.
// Kept as it stands, on purpose; users know the swatch as a frame to click on. The empty brush is for Wine,
// whose fill would take the brush that it finds selected instead.
void PaintSwatch(HDC context) {
  const WindowRectangle area = AreaOf(TESSALINE_HIGHLIGHT_SWATCH);
  const RECT rectangle = {area.left, area.top, area.right, area.bottom};
  const HighlightColor& color = previewState.highlight;
  const HPEN pen = CreatePen(PS_SOLID, 1, RGB(color.red, color.green, color.blue));
  const HGDIOBJ previousBrush = SelectObject(context, GetStockObject(NULL_BRUSH));
  FillRect(context, &rectangle, reinterpret_cast<HBRUSH>(pen));
  SelectObject(context, previousBrush);
  DeleteObject(pen);
  MoveToEx(context, area.left, area.top, nullptr);
  LineTo(context, area.right - 1, area.top);
  LineTo(context, area.right - 1, area.bottom - 1);
  LineTo(context, area.left, area.bottom - 1);
  LineTo(context, area.left, area.top);
}

void Paint() {
  PAINTSTRUCT paint;
  const HDC context = BeginPaint(Dialog(), &paint);
  if (context == nullptr) return;
  const HGDIOBJ previousPen = SelectObject(context, GetStockObject(BLACK_PEN));
  if (!previewState.cacheValid) ShowZoomLabel();
  PaintSwatch(context);
  previewState.Compute();
  const int32_t untouchedSlot = previewState.buffers.zoomedUntouched.slot();
  if (untouchedSlot != 0) {
    PaintBoundControlSplit(Dialog(), TESSALINE_PROXY_VIEW, untouchedSlot, previewState.ShownPicture());
  } else {
    PaintBoundControl(Dialog(), TESSALINE_PROXY_VIEW, previewState.ShownPicture());
  }
  PaintBoundControl(Dialog(), TESSALINE_SPECTRUM_VIEW);
  PaintFocusFrame(Dialog(), context);
  SelectObject(context, previousPen);
  EndPaint(Dialog(), &paint);
}

intptr_t Answer(WindowHandle window, uint32_t message, uintptr_t wParam, intptr_t lParam) {
  if (message == WM_INITDIALOG) return Initialize(window, reinterpret_cast<PreviewDialogRequest*>(lParam));
  if (message == WM_DESTROY) ReleasePictures(window);
  if (window != Dialog()) return FALSE;  // before the first message and after the last
  // Which window lies under the cursor is asked by this very message; asking again would not end.
  if (message != WM_NCHITTEST) FollowMouse();
  switch (message) {
    case WM_COMMAND:
      return RunCommand(LOWORD(wParam), HIWORD(wParam));
    case WM_HSCROLL:
    case WM_VSCROLL:
      return Scroll(message, wParam, reinterpret_cast<HWND>(lParam));
    case WM_PAINT:
      Paint();
      return TRUE;
    case WM_MOUSEWHEEL:
      TurnWheel(GET_WHEEL_DELTA_WPARAM(wParam), {GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)});
      return TRUE;
    case kEditArrowMessage:
      StepByArrowKey(static_cast<int32_t>(wParam), lParam > 0);
      return TRUE;
    case WM_LBUTTONDOWN:
    case WM_LBUTTONDBLCLK:
      PressButton(GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam));
      return TRUE;
    case WM_MOUSEMOVE:
      Repaint(previewState.ContinueDrag(GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)));
      return TRUE;
    case WM_LBUTTONUP:
    case WM_CAPTURECHANGED:
      FinishDrag();
      return TRUE;
    case WM_SETCURSOR:
      if (!g_windows.isHandShown) return FALSE;
      SetWindowLongPtrA(window, DWLP_MSGRESULT, TRUE);  // the cursor is set; the system must not set its own
      return TRUE;
    case WM_DESTROY:
      CleanUp(false);
      return TRUE;
    default:
      return FALSE;
  }
}

}  // namespace

intptr_t PreviewDialogProc(WindowHandle window, uint32_t message, uintptr_t wParam, intptr_t lParam) {
  try {
    return Answer(window, message, wParam, lParam);
  } catch (const std::bad_alloc&) {
    if (message != WM_INITDIALOG) return FALSE;
    previewWindow = window;  // what there is of it is to go
    End(kDialogWithoutMemory);
    return TRUE;
  }
}

}  // namespace tessaline
