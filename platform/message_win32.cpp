#include <windows.h>

#include "platform/message.h"

namespace tessaline {

void ShowPlatformMessage(const char* text, const char* title) {
  static_assert((MB_ICONEXCLAMATION | MB_TOPMOST) == 0x40030);
  MessageBoxA(nullptr, text, title, MB_ICONEXCLAMATION | MB_TOPMOST);
}

}  // namespace tessaline
