#include "dialog/activation_context.h"

#include "dialog/preview_dialog.h"

extern "C" IMAGE_DOS_HEADER __ImageBase;  // the linker's own name for the start of this module

namespace tessaline {

namespace {

// Outlives the context below: asked after its end, when a member could not be.
bool g_isCleanedUp = false;

// Made at the first use, released with the module.
class ModuleContext {
 public:
  ~ModuleContext() {
    if (context_ != INVALID_HANDLE_VALUE) ReleaseActCtx(context_);
    g_isCleanedUp = true;
  }

  HANDLE Get() {
    if (!isMade_) {
      ACTCTXA description = {};
      description.cbSize = sizeof(description);
      description.dwFlags = ACTCTX_FLAG_RESOURCE_NAME_VALID | ACTCTX_FLAG_HMODULE_VALID;
      description.lpResourceName = reinterpret_cast<const char*>(ISOLATIONAWARE_MANIFEST_RESOURCE_ID);
      description.hModule = static_cast<HMODULE>(OwnModule());
      context_ = CreateActCtxA(&description);
      isMade_ = true;
    }
    return context_;
  }

 private:
  bool isMade_ = false;
  HANDLE context_ = INVALID_HANDLE_VALUE;
};
ModuleContext g_moduleContext;

}  // namespace

void* OwnModule() {
  return &__ImageBase;
}

ActivationScope::ActivationScope() {
  if (g_isCleanedUp) {
    OutputDebugStringA("IsolationAware function called after IsolationAwareCleanup\n");
    return;
  }
  isUsable_ = true;
  const HANDLE context = g_moduleContext.Get();
  isActive_ = context != INVALID_HANDLE_VALUE && ActivateActCtx(context, &cookie_);
}

ActivationScope::~ActivationScope() {
  const DWORD lastError = GetLastError();
  if (isActive_) DeactivateActCtx(0, cookie_);
  SetLastError(lastError);
}

HWND CreateWindowInContext(DWORD extendedStyle, const char* className, DWORD style, HWND parent) {
  const ActivationScope scope;
  if (!scope.IsUsable()) return nullptr;
  return CreateWindowExA(extendedStyle, className, nullptr, style, CW_USEDEFAULT, CW_USEDEFAULT,
                         CW_USEDEFAULT, CW_USEDEFAULT, parent, nullptr, static_cast<HINSTANCE>(OwnModule()),
                         nullptr);
}

INT_PTR RunDialogInContext(int32_t templateId, HWND parent, DLGPROC procedure, LPARAM parameter) {
  const ActivationScope scope;
  if (!scope.IsUsable()) return -1;
  return DialogBoxParamA(static_cast<HINSTANCE>(OwnModule()), MAKEINTRESOURCEA(templateId), parent, procedure,
                         parameter);
}

}  // namespace tessaline
