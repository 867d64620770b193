#include "testhost/loaded_module.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <cstring>

#include "testhost/host_refusal.h"

namespace tessaline::testhost {

namespace {

MessageHandler g_messageHandler = nullptr;

// In the place of MessageBoxA. Answers OK.
int WINAPI HandOverMessage(HWND, LPCSTR text, LPCSTR title, UINT) {
  if (g_messageHandler != nullptr)
    g_messageHandler(text == nullptr ? "" : text, title == nullptr ? "" : title);
  return IDOK;
}

std::string SystemMessage(DWORD code) {
  char text[512];
  DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0,
                                text, sizeof text, nullptr);
  while (length > 0 && (text[length - 1] == '\n' || text[length - 1] == '\r' || text[length - 1] == '.'))
    --length;
  return length > 0 ? std::string(text, length) : "system error " + std::to_string(code);
}

[[noreturn]] void RefuseToLoad(const std::string& path, DWORD code) {
  const std::string hint = code == ERROR_BAD_EXE_FORMAT  ? " (no 64-bit Windows module?)"
                           : code == ERROR_MOD_NOT_FOUND ? " (the module, or a DLL that it needs)"
                                                         : "";
  throw Refusal(ExitStatus::kBadModule, path, "cannot be loaded: " + SystemMessage(code) + hint);
}

// Without its folder a name would be looked for along the whole search path.
std::string FullPath(const std::string& path) {
  char full[4 * MAX_PATH];
  const DWORD length = GetFullPathNameA(path.c_str(), sizeof full, full, nullptr);
  return length > 0 && length < sizeof full ? std::string(full, length) : path;
}

class ModuleAsData {
 public:
  explicit ModuleAsData(const std::string& path)
      : module_(LoadLibraryExA(FullPath(path).c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE)) {
    if (module_ == nullptr) RefuseToLoad(path, GetLastError());
  }
  ~ModuleAsData() { FreeLibrary(module_); }
  ModuleAsData(const ModuleAsData&) = delete;
  ModuleAsData& operator=(const ModuleAsData&) = delete;
  HMODULE get() const { return module_; }

 private:
  HMODULE module_;
};

std::vector<uint8_t> ResourceBytes(HMODULE module, const char* type, LPCSTR name) {
  const HRSRC place = FindResourceA(module, name, type);
  if (place == nullptr) return {};
  const auto* const bytes = static_cast<const uint8_t*>(LockResource(LoadResource(module, place)));
  return bytes == nullptr ? std::vector<uint8_t>()
                          : std::vector<uint8_t>(bytes, bytes + SizeofResource(module, place));
}

constexpr const char* kPropertyListType = "PiPL";

BOOL CALLBACK CollectFirst(HMODULE module, LPCSTR type, LPSTR name, LONG_PTR collected) {
  *reinterpret_cast<std::vector<uint8_t>*>(collected) = ResourceBytes(module, type, name);
  return FALSE;
}

}  // namespace

std::vector<uint8_t> ReadModuleResource(const std::string& path, const char* type, int32_t id) {
  const ModuleAsData module(path);
  return ResourceBytes(module.get(), type, MAKEINTRESOURCEA(id));
}

PluginProperties ReadModuleProperties(const std::string& path) {
  const ModuleAsData module(path);
  std::vector<uint8_t> bytes;
  EnumResourceNamesA(module.get(), kPropertyListType, CollectFirst, reinterpret_cast<LONG_PTR>(&bytes));
  if (bytes.empty()) {
    throw Refusal(ExitStatus::kBadModule, path,
                  "has no resource of type PiPL, so hosts do not take it for a plug-in");
  }
  return ReadPluginProperties(path, bytes);
}

LoadedModule::LoadedModule(const std::string& path)
    : path_(path), base_(LoadLibraryA(FullPath(path).c_str())) {
  if (base_ == nullptr) RefuseToLoad(path, GetLastError());
}

LoadedModule::~LoadedModule() {
  FreeLibrary(static_cast<HMODULE>(base_));
}

void* LoadedModule::ExportedAddress(const std::string& name) const {
  const FARPROC address = GetProcAddress(static_cast<HMODULE>(base_), name.c_str());
  if (address == nullptr) throw Refusal(ExitStatus::kBadModule, path_, "exports no function " + name);
  return reinterpret_cast<void*>(address);
}

// The loader has left the addresses of imported functions in a table of the module's own; one of them is
// replaced.
bool LoadedModule::RedirectMessages(MessageHandler handler) {
  g_messageHandler = handler;
  auto* const base = static_cast<uint8_t*>(base_);
  const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  if (imports.Size == 0) return false;
  const auto* import = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports.VirtualAddress);
  bool isRedirected = false;
  for (; import->Name != 0; ++import) {
    if (lstrcmpiA(reinterpret_cast<const char*>(base + import->Name), "user32.dll") != 0) continue;
    const auto* name = reinterpret_cast<const IMAGE_THUNK_DATA64*>(base + import->OriginalFirstThunk);
    auto* address = reinterpret_cast<IMAGE_THUNK_DATA64*>(base + import->FirstThunk);
    for (; name->u1.AddressOfData != 0; ++name, ++address) {
      if (IMAGE_SNAP_BY_ORDINAL64(name->u1.Ordinal)) continue;
      const auto* const imported =
          reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
      if (std::strcmp(reinterpret_cast<const char*>(imported->Name), "MessageBoxA") != 0) continue;
      DWORD protection;
      if (!VirtualProtect(address, sizeof *address, PAGE_READWRITE, &protection)) continue;
      address->u1.Function = reinterpret_cast<ULONGLONG>(&HandOverMessage);
      VirtualProtect(address, sizeof *address, protection, &protection);
      isRedirected = true;
    }
  }
  return isRedirected;
}

}  // namespace tessaline::testhost
