#include "tests/dialog/dialog_driver.h"

#include <gtest/gtest.h>

namespace tessaline {

namespace {

constexpr UINT kRunSteps = WM_APP;

struct PendingSteps {
  const Steps* steps;
  bool hasRun;
};

LRESULT CALLBACK StepsProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message != kRunSteps) return DefWindowProcA(window, message, wParam, lParam);
  auto* const pending = reinterpret_cast<PendingSteps*>(lParam);
  pending->hasRun = true;
  (*pending->steps)();
  return 0;
}

// A window that only receives messages: any modal loop of the thread dispatches to it. Whatever is still
// posted to it goes with it.
HWND CreateStepsWindow() {
  constexpr const char* kClass = "tessaline test steps";
  WNDCLASSA description = {};
  description.lpfnWndProc = StepsProcedure;
  description.hInstance = GetModuleHandleA(nullptr);
  description.lpszClassName = kClass;
  RegisterClassA(&description);  // fails from the second time on, as it should
  return CreateWindowA(kClass, "", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, description.hInstance, nullptr);
}

struct WindowSearch {
  const char* className;
  bool mustBeEnabled;
  HWND found;
};

BOOL CALLBACK TakeMatch(HWND window, LPARAM parameter) {
  auto* const search = reinterpret_cast<WindowSearch*>(parameter);
  if (ClassOf(window) != search->className) return TRUE;
  if (search->mustBeEnabled && !IsWindowEnabled(window)) return TRUE;
  search->found = window;
  return FALSE;
}

HWND Find(WindowSearch search) {
  EnumThreadWindows(GetCurrentThreadId(), TakeMatch, reinterpret_cast<LPARAM>(&search));
  return search.found;
}

Shot Copy(HDC source, int32_t x, int32_t y, int32_t width, int32_t height) {
  BITMAPINFO info = {};
  info.bmiHeader = {sizeof(info.bmiHeader), width, -height, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
  void* bits = nullptr;
  const HDC memory = CreateCompatibleDC(source);
  const HBITMAP bitmap = CreateDIBSection(memory, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
  const HGDIOBJ previous = SelectObject(memory, bitmap);
  BitBlt(memory, 0, 0, width, height, source, x, y, SRCCOPY);
  GdiFlush();
  Shot shot = {width, height, {}};
  const auto* const pixels = static_cast<const uint32_t*>(bits);
  shot.pixels.assign(pixels, pixels + static_cast<size_t>(width) * height);
  for (uint32_t& pixel : shot.pixels) pixel &= 0xFFFFFF;  // the fourth byte means nothing
  SelectObject(memory, previous);
  DeleteObject(bitmap);
  DeleteDC(memory);
  return shot;
}

}  // namespace

bool RunInside(const Steps& open, const Steps& steps) {
  PendingSteps pending = {&steps, false};
  const HWND window = CreateStepsWindow();
  PostMessageA(window, kRunSteps, 0, reinterpret_cast<LPARAM>(&pending));
  open();
  DestroyWindow(window);
  return pending.hasRun;
}

void Settle() {
  MSG message;
  while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
    const HWND top = message.hwnd != nullptr ? GetAncestor(message.hwnd, GA_ROOT) : nullptr;
    if (top != nullptr && IsDialogMessageA(top, &message)) continue;
    TranslateMessage(&message);
    DispatchMessageA(&message);
  }
}

HWND EnabledDialog() {
  return Find({"#32770", true, nullptr});
}

HWND FindOwnWindow(const char* className) {
  return Find({className, false, nullptr});
}

std::string TextOf(HWND window) {
  std::string text(GetWindowTextLengthA(window) + 1, '\0');
  text.resize(GetWindowTextA(window, text.data(), static_cast<int>(text.size())));
  return text;
}

std::string ClassOf(HWND window) {
  char name[256] = "";
  GetClassNameA(window, name, sizeof(name));
  return name;
}

void Command(HWND dialog, int32_t id, int32_t notification) {
  SendMessageA(dialog, WM_COMMAND, MAKEWPARAM(id, notification),
               reinterpret_cast<LPARAM>(GetDlgItem(dialog, id)));
}

void PressKey(WPARAM key) {
  const HWND focus = GetFocus();
  PostMessageA(focus, WM_KEYDOWN, key, 1);
  PostMessageA(focus, WM_KEYUP, key, 0xC0000001);
  Settle();
}

void Type(HWND edit, const std::string& text) {
  SendMessageA(edit, EM_SETSEL, 0, -1);
  if (text.empty()) SendMessageA(edit, WM_CHAR, VK_BACK, 1);
  for (const char c : text) SendMessageA(edit, WM_CHAR, static_cast<WPARAM>(c), 1);
}

void HeldKey::Set(BYTE state) const {
  BYTE keys[256] = {};
  GetKeyboardState(keys);
  keys[key_] = state;
  SetKeyboardState(keys);
}

Shot ShotOf(HWND window) {
  RECT area = {};
  GetClientRect(window, &area);
  const HDC context = GetDC(window);
  Shot shot = Copy(context, 0, 0, area.right, area.bottom);
  ReleaseDC(window, context);
  return shot;
}

Shot ScreenShotOf(HWND window) {
  RECT area = {};
  GetWindowRect(window, &area);
  const HDC context = GetDC(nullptr);
  Shot shot = Copy(context, area.left, area.top, area.right - area.left, area.bottom - area.top);
  ReleaseDC(nullptr, context);
  return shot;
}

}  // namespace tessaline
