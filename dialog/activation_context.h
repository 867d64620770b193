// System dialogs and controls in the visual style of this module's manifest, whatever the host asks for.
// Windows only.
#pragma once

#include <windows.h>

#include <cstdint>

namespace tessaline {

// The module's activation context is in force while one of these lives. Where there is none (no common
// controls 6), what is done meanwhile has the host's look. The last error of a call made inside is kept when
// the scope ends.
class ActivationScope {
 public:
  ActivationScope();
  ~ActivationScope();
  ActivationScope(const ActivationScope&) = delete;
  ActivationScope& operator=(const ActivationScope&) = delete;

  // False after the module's clean-up: the call must not be made.
  bool IsUsable() const { return isUsable_; }

 private:
  bool isUsable_ = false;
  bool isActive_ = false;
  ULONG_PTR cookie_ = 0;
};

HWND CreateWindowInContext(DWORD extendedStyle, const char* className, DWORD style, HWND parent);
// As DialogBoxParamA of this module's resources; -1 also after the clean-up.
INT_PTR RunDialogInContext(int32_t templateId, HWND parent, DLGPROC procedure, LPARAM parameter);

}  // namespace tessaline
