// Acts inside modal dialogs: a test's steps run on the dialog's own thread, from inside its modal loop, so
// that they see it between two messages and never have to wait. Windows only.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tessaline {

using Steps = std::function<void()>;

// Calls `open`, which must start a modal loop, and runs `steps` once that loop is dispatching messages: the
// dialog is initialised then, though perhaps not shown yet. Steps may call this again for a dialog opened
// from the first. False when no loop was started.
bool RunInside(const Steps& open, const Steps& steps);

// Does what is waiting in this thread's queue, as the modal loop of a dialog would: posted messages, keys,
// painting.
void Settle();

// The dialog of this thread that takes input: the innermost of those that are open. Null for none.
HWND EnabledDialog();
// First top-level window of this thread with that class, null for none.
HWND FindOwnWindow(const char* className);

std::string TextOf(HWND window);
std::string ClassOf(HWND window);

// Clicks a control of a dialog, by the message that a click ends in.
void Command(HWND dialog, int32_t id, int32_t notification = 0);
// Presses and releases a key in the window that has the focus, by way of the queue.
void PressKey(WPARAM key);
// Replaces the text of an edit box, character by character as from the keyboard.
void Type(HWND edit, const std::string& text);

// Held on the keyboard or mouse, as this thread sees it, while one of these lives.
class HeldKey {
 public:
  explicit HeldKey(int virtualKey) : key_(virtualKey) { Set(0x80); }
  HeldKey(const HeldKey&) = delete;
  HeldKey& operator=(const HeldKey&) = delete;
  ~HeldKey() { Set(0); }

 private:
  void Set(BYTE state) const;
  int key_;
};

// Pixels as a window shows them: rows from the top, 0x00RRGGBB.
struct Shot {
  int32_t width = 0, height = 0;
  std::vector<uint32_t> pixels;

  bool operator==(const Shot&) const = default;
  uint32_t At(int32_t x, int32_t y) const { return pixels[static_cast<size_t>(y) * width + x]; }
};

// The client area of a window.
Shot ShotOf(HWND window);
// What the screen shows at the place of a window, frame included, whatever lies over it.
Shot ScreenShotOf(HWND window);

}  // namespace tessaline
