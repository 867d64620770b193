#include <windows.h>
// After windows.h, which they need.
#include <commctrl.h>
#include <commdlg.h>
#include <shellapi.h>

#include <cstdio>

#include "dialog/activation_context.h"
#include "dialog/control_ids.h"
#include "dialog/preview_dialog.h"
#include "dialog/preview_state.h"
#include "dialog/tooltip_texts.h"
#include "dialog/window_geometry.h"
#include "image/result_codes.h"

namespace tessaline {

namespace {

// --- the owner ---

struct FrontWindow {
  HWND window;
};

// Stops at the first visible, enabled window of the calling thread: top-level windows come front to back.
BOOL CALLBACK TakeOwnWindow(HWND window, LPARAM found) {
  const bool isOwn = GetWindowThreadProcessId(window, nullptr) == GetCurrentThreadId();
  if (!isOwn || !IsWindowVisible(window) || !IsWindowEnabled(window)) return TRUE;
  reinterpret_cast<FrontWindow*>(found)->window = window;
  return FALSE;
}

HWND OwnerFor(void* wanted) {
  const auto window = static_cast<HWND>(wanted);
  if (window != nullptr && IsWindow(window)) return window;
  FrontWindow found = {};
  EnumWindows(TakeOwnWindow, reinterpret_cast<LPARAM>(&found));
  return found.window;
}

// --- keys held while the filter opens ---

// As the host saw it when the menu was chosen, or as it is now, after the first pass.
bool IsHeld(int key) {
  return GetKeyState(key) < 0 || GetAsyncKeyState(key) < 0;
}

int32_t ChooseTemplateForScreen() {
  const HDC screen = GetDC(nullptr);
  const int32_t dpiSum =
      screen != nullptr ? GetDeviceCaps(screen, LOGPIXELSX) + GetDeviceCaps(screen, LOGPIXELSY) : 2 * 96;
  if (screen != nullptr) ReleaseDC(nullptr, screen);
  return ChooseDialogTemplate(GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN), dpiSum,
                              IsHeld(VK_CONTROL));
}

INT_PTR CALLBACK PreviewProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  return PreviewDialogProc(window, message, wParam, lParam);
}

// --- the Quick Guide ---

HWND g_quickGuide = nullptr;
RECT g_quickGuidePlace = {};

void Resize(HWND window, const WindowRectangle& place) {
  SetWindowPos(window, nullptr, place.left, place.top, place.width(), place.height(),
               SWP_NOZORDER | SWP_NOACTIVATE);
}

// Closes the window up to its page, which has the same number of pixels on every screen, where the template
// grows with the dots per inch.
void FitToPage(HWND window) {
  const HWND page = GetDlgItem(window, TESSALINE_GUIDE_PAGE);
  const HWND button = GetDlgItem(window, TESSALINE_OK);
  BITMAP bitmap = {};
  const auto picture = reinterpret_cast<HGDIOBJ>(SendMessageA(page, STM_GETIMAGE, IMAGE_BITMAP, 0));
  if (button == nullptr || GetObjectA(picture, sizeof(bitmap), &bitmap) == 0) return;
  WindowRectangle pageArea = AreaInDialog(window, page);
  WindowRectangle buttonArea = AreaInDialog(window, button);
  const int32_t spareX = pageArea.width() - bitmap.bmWidth;
  const int32_t spareY = pageArea.height() - bitmap.bmHeight;
  pageArea.right -= spareX;
  pageArea.bottom -= spareY;
  buttonArea = {buttonArea.left - spareX / 2, buttonArea.top - spareY, buttonArea.right - spareX / 2,
                buttonArea.bottom - spareY};
  Resize(page, pageArea);
  Resize(button, buttonArea);
  RECT frame = {};
  GetWindowRect(window, &frame);
  Resize(window, {frame.left + spareX / 2, frame.top + spareY / 2, frame.right - spareX + spareX / 2,
                  frame.bottom - spareY + spareY / 2});
}

INT_PTR CALLBACK QuickGuideProcedure(HWND window, UINT message, WPARAM wParam, LPARAM) {
  switch (message) {
    case WM_INITDIALOG:
      g_quickGuide = window;
      FitToPage(window);
      GetWindowRect(window, &g_quickGuidePlace);
      return TRUE;
    case WM_MOVE:
      if (window == g_quickGuide) GetWindowRect(window, &g_quickGuidePlace);
      return TRUE;
    case WM_COMMAND:
      if (LOWORD(wParam) != TESSALINE_OK && LOWORD(wParam) != TESSALINE_CANCEL) return FALSE;
      g_quickGuide = nullptr;
      EndDialog(window, LOWORD(wParam));
      return TRUE;
    case WM_DESTROY:
      g_quickGuide = nullptr;
      ReleasePictures(window);
      return FALSE;
    default:
      return FALSE;
  }
}

// --- pictures ---

constexpr int kUsualDotsPerInch = 96;

struct LargePicture {
  int32_t controlId, bitmapId;
};
constexpr LargePicture kLargePictures[] = {
    {TESSALINE_PROTECTION_UP, TESSALINE_BITMAP_SPIN_UP_LARGE},
    {TESSALINE_PROTECTION_DOWN, TESSALINE_BITMAP_SPIN_DOWN_LARGE},
    {TESSALINE_ACCEPTANCE_UP, TESSALINE_BITMAP_SPIN_UP_LARGE},
    {TESSALINE_ACCEPTANCE_DOWN, TESSALINE_BITMAP_SPIN_DOWN_LARGE},
    {TESSALINE_NOTCH_UP, TESSALINE_BITMAP_SPIN_UP_LARGE},
    {TESSALINE_NOTCH_DOWN, TESSALINE_BITMAP_SPIN_DOWN_LARGE},
    {TESSALINE_MANUAL, TESSALINE_BITMAP_MANUAL_LARGE},
    {TESSALINE_QUICK_GUIDE, TESSALINE_BITMAP_QUICK_GUIDE_LARGE},
};

// A bitmap of this module in another size; null without memory.
HBITMAP LoadReduced(HDC screen, int32_t bitmapId, int width, int height) {
  const auto large = static_cast<HBITMAP>(
      LoadImageA(static_cast<HINSTANCE>(OwnModule()), MAKEINTRESOURCEA(bitmapId), IMAGE_BITMAP, 0, 0, 0));
  BITMAP size = {};
  if (GetObjectA(large, sizeof(size), &size) == 0) return nullptr;
  const HBITMAP reduced = CreateCompatibleBitmap(screen, width, height);
  const HDC from = CreateCompatibleDC(screen), to = CreateCompatibleDC(screen);
  const HGDIOBJ fromBefore = SelectObject(from, large), toBefore = SelectObject(to, reduced);
  SetStretchBltMode(to, HALFTONE);  // each pixel the mean of what it covers
  SetBrushOrgEx(to, 0, 0, nullptr);
  StretchBlt(to, 0, 0, width, height, from, 0, 0, size.bmWidth, size.bmHeight, SRCCOPY);
  SelectObject(from, fromBefore);
  SelectObject(to, toBefore);
  DeleteDC(from);
  DeleteDC(to);
  DeleteObject(large);
  return reduced;
}

COLORREF g_customColors[16];

// --- the highlight, for the module's life ---

struct Highlight {
  float mode, red, green, blue;
  bool operator==(const Highlight&) const = default;
};
Highlight g_keptHighlight = {};

Highlight HighlightOf(const FilterParameters& values) {
  return {values.highlightMode, values.highlightRed, values.highlightGreen, values.highlightBlue};
}

void StoreHighlight(const Highlight& highlight, FilterParameters* values) {
  values->highlightMode = highlight.mode;
  values->highlightRed = highlight.red;
  values->highlightGreen = highlight.green;
  values->highlightBlue = highlight.blue;
}

int32_t RunUntilDone(void* owner, PreviewDialogRequest* request) {
  do {
    const INT_PTR result = RunDialogInContext(ChooseTemplateForScreen(), OwnerFor(owner), PreviewProcedure,
                                              reinterpret_cast<LPARAM>(request));
    if (result == kDialogWithoutMemory) return kOutOfMemory;
    // Cancel, no dialog (-1, or 0 for an owner that went away just now), or a dialog that was destroyed.
    if (result != kDialogAccepted) return kUserCancelled;
  } while (request->reopen == 1);
  return kSuccess;
}

}  // namespace

int32_t ChooseDialogTemplate(int32_t screenWidth, int32_t screenHeight, int32_t dpiSum, bool isCtrlHeld) {
  const float scale = static_cast<float>(dpiSum) * 0.0052083335f;  // 1/192: 1.0 at 96 per inch both ways
  const bool isLarge = static_cast<float>(screenWidth) >= 1000.0f * scale &&
                       static_cast<float>(screenHeight) >= 800.0f * scale;
  return isLarge && !isCtrlHeld ? TESSALINE_DIALOG_LARGE : TESSALINE_DIALOG_SMALL;
}

int32_t RunPreviewDialog(void* owner, int32_t sourceSlot, FilterParameters* values) {
  // A host that starts another run while the dialog of the first is open has one state to share: none is
  // left.
  if (previewWindow != nullptr) return kUserCancelled;
  PreviewDialogRequest request = {sourceSlot, values, &values, 0, IsHeld(VK_SHIFT)};
  // A run's record is new and holds no colour: not even red, which is chosen with its own.
  const Highlight found = HighlightOf(*values);
  if (found == Highlight{}) StoreHighlight(g_keptHighlight, values);
  const int32_t result = RunUntilDone(owner, &request);
  if (result == kSuccess) {
    g_keptHighlight = HighlightOf(*values);
  } else {
    StoreHighlight(found, values);
  }
  return result;
}

void CreateTooltips(WindowHandle dialog) {
  constexpr int kWidestTip = 300;  // pixels; longer texts wrap
  const INITCOMMONCONTROLSEX classes = {sizeof(INITCOMMONCONTROLSEX), ICC_WIN95_CLASSES};
  InitCommonControlsEx(&classes);
  const HWND tips =
      CreateWindowInContext(WS_EX_TOPMOST, TOOLTIPS_CLASSA, WS_POPUP | TTS_ALWAYSTIP | TTS_NOPREFIX, dialog);
  if (tips == nullptr) return;
  for (const TooltipText& tip : kTooltipTexts) {
    TOOLINFOA tool = {};
    tool.cbSize = sizeof(tool);
    static_assert(sizeof(tool) == 72);
    tool.uFlags = TTF_IDISHWND | TTF_SUBCLASS;
    tool.hwnd = dialog;
    tool.uId = reinterpret_cast<UINT_PTR>(GetDlgItem(dialog, tip.controlId));
    tool.lpszText = const_cast<char*>(tip.text);
    if (tool.uId == 0) continue;
    SendMessageA(tips, TTM_ADDTOOLA, 0, reinterpret_cast<LPARAM>(&tool));
    SendMessageA(tips, TTM_SETMAXTIPWIDTH, 0, kWidestTip);
  }
}

void ShowQuickGuide() {
  if (g_quickGuide != nullptr) {
    const RECT& place = g_quickGuidePlace;
    SetWindowPos(g_quickGuide, HWND_TOP, place.left, place.top, place.right - place.left,
                 place.bottom - place.top, SWP_SHOWWINDOW);
    return;
  }
  RunDialogInContext(TESSALINE_QUICK_GUIDE, previewWindow, QuickGuideProcedure, 0);
}

void ScalePictures(WindowHandle dialog) {
  const HDC screen = GetDC(dialog);
  if (screen == nullptr) return;
  const int dotsPerInch = GetDeviceCaps(screen, LOGPIXELSY);
  for (const LargePicture& picture : kLargePictures) {
    const HWND control = GetDlgItem(dialog, picture.controlId);
    BITMAP usual = {};
    const auto shown = reinterpret_cast<HGDIOBJ>(SendMessageA(control, STM_GETIMAGE, IMAGE_BITMAP, 0));
    if (dotsPerInch <= kUsualDotsPerInch || GetObjectA(shown, sizeof(usual), &usual) == 0) continue;
    const HBITMAP scaled =
        LoadReduced(screen, picture.bitmapId, MulDiv(usual.bmWidth, dotsPerInch, kUsualDotsPerInch),
                    MulDiv(usual.bmHeight, dotsPerInch, kUsualDotsPerInch));
    if (scaled == nullptr) continue;
    SendMessageA(control, STM_SETIMAGE, IMAGE_BITMAP, reinterpret_cast<LPARAM>(scaled));
    DeleteObject(shown);
  }
  ReleaseDC(dialog, screen);
}

void ReleasePictures(WindowHandle dialog) {
  for (HWND at = GetWindow(dialog, GW_CHILD); at != nullptr; at = GetWindow(at, GW_HWNDNEXT)) {
    const bool isStatic = (SendMessageA(at, WM_GETDLGCODE, 0, 0) & DLGC_STATIC) != 0;
    if (!isStatic || (GetWindowLongA(at, GWL_STYLE) & SS_TYPEMASK) != SS_BITMAP) continue;
    DeleteObject(reinterpret_cast<HGDIOBJ>(SendMessageA(at, STM_SETIMAGE, IMAGE_BITMAP, 0)));
  }
}

void CloseQuickGuide() {
  if (g_quickGuide == nullptr) return;
  PostMessageA(g_quickGuide, WM_CLOSE, 0, 0);
  g_quickGuide = nullptr;
}

bool ChooseHighlightColor(WindowHandle owner, HighlightColor* color) {
  const ActivationScope scope;
  if (!scope.IsUsable()) return false;
  CHOOSECOLORA choice = {};
  choice.lStructSize = sizeof(choice);
  choice.hwndOwner = owner;
  choice.rgbResult = RGB(color->red, color->green, color->blue);
  choice.lpCustColors = g_customColors;
  choice.Flags = CC_RGBINIT | CC_FULLOPEN;
  if (!ChooseColorA(&choice)) return false;
  *color = {GetRValue(choice.rgbResult), GetGValue(choice.rgbResult), GetBValue(choice.rgbResult)};
  return true;
}

void OpenManual(WindowHandle owner) {
  constexpr char kManual[] = "C:\\Vistrel_Help\\Vistrel_Workflow.pdf";
  constexpr int kPage = 65;
  char program[MAX_PATH] = "";
  // Results of 32 and less are errors: no manual, or nothing to read it with.
  if (reinterpret_cast<INT_PTR>(FindExecutableA(kManual, nullptr, program)) <= 32) return;
  char arguments[MAX_PATH + 32];
  std::snprintf(arguments, sizeof(arguments), "/A \"page=%d\" \"%s\"", kPage, kManual);
  ShellExecuteA(owner, "open", program, arguments, nullptr, SW_SHOWNORMAL);
}

}  // namespace tessaline
