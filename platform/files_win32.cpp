#include <windows.h>

#include <atomic>
#include <string>

#include "platform/files.h"

namespace tessaline {

namespace {

std::string g_givenFolder;  // of SetPrivateFolder

// The folder with its closing backslash; empty when there is none.
std::string Folder() {
  if (!g_givenFolder.empty()) {
    CreateDirectoryA(g_givenFolder.c_str(), nullptr);
    return g_givenFolder + "\\";
  }
  char path[1024] = {};
  const DWORD length = GetTempPathA(sizeof path, path);
  return length > 0 && length < sizeof path ? path : "";
}

// One reader or writer at a time, in all processes of the session: a file that somebody reads cannot be
// renamed over, and a busy reader could keep a writer out for good.
class Turn {
 public:
  Turn() : mutex_(CreateMutexA(nullptr, FALSE, "Local\\Tessaline private files")) {
    // Whoever holds it that long hangs; the attempts below then do what they can.
    constexpr DWORD kLongestMilliseconds = 2000;
    if (mutex_ == nullptr) return;
    const DWORD outcome = WaitForSingleObject(mutex_, kLongestMilliseconds);
    isMine_ = outcome == WAIT_OBJECT_0 || outcome == WAIT_ABANDONED;
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;
  ~Turn() {
    if (isMine_) ReleaseMutex(mutex_);
    if (mutex_ != nullptr) CloseHandle(mutex_);
  }

 private:
  HANDLE mutex_;
  bool isMine_ = false;
};

// Others that do not take turns (another session, a virus scanner) keep a file for a moment. Tries again
// until `attempt` succeeds, fails for another reason, or half a second has passed.
template <typename Attempt>
bool RetryWhileShared(Attempt attempt) {
  constexpr int kAttempts = 50;
  constexpr DWORD kPauseMilliseconds = 10;
  for (int i = 0; i < kAttempts; ++i) {
    if (attempt()) return true;
    const DWORD error = GetLastError();
    if (error != ERROR_SHARING_VIOLATION && error != ERROR_ACCESS_DENIED) return false;
    Sleep(kPauseMilliseconds);
  }
  return false;
}

// An open file, closed when it goes out of scope.
class File {
 public:
  File() = default;
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { Close(); }
  bool Open(const std::string& path, DWORD access, DWORD creation) {
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    handle_ = CreateFileA(path.c_str(), access, kShareAll, nullptr, creation, FILE_ATTRIBUTE_NORMAL, nullptr);
    return handle_ != INVALID_HANDLE_VALUE;
  }
  bool Close() {
    const bool wasClosed = handle_ == INVALID_HANDLE_VALUE || CloseHandle(handle_) != 0;
    handle_ = INVALID_HANDLE_VALUE;
    return wasClosed;
  }
  HANDLE handle() const { return handle_; }

 private:
  HANDLE handle_ = INVALID_HANDLE_VALUE;
};

std::string TemporaryPath(const std::string& path) {
  static std::atomic<uint32_t> counter{0};
  return path + "." + std::to_string(GetCurrentProcessId()) + "." + std::to_string(counter++) + ".tmp";
}

// A file that did not exist before, under a name made from `path`. Empty when none can be made.
std::string CreateTemporary(const std::string& path, File* file) {
  constexpr int kMostNames = 64;
  for (int i = 0; i < kMostNames; ++i) {
    std::string temporary = TemporaryPath(path);
    if (file->Open(temporary, GENERIC_WRITE, CREATE_NEW)) return temporary;
    if (GetLastError() != ERROR_FILE_EXISTS) return "";
  }
  return "";
}

// What tells one file of this machine from every other.
struct FileIdentity {
  DWORD volume, indexHigh, indexLow;
  bool operator==(const FileIdentity&) const = default;
};

bool Identify(const char* path, FileIdentity* identity) {
  File file;
  BY_HANDLE_FILE_INFORMATION facts{};
  constexpr DWORD kAttributesOnly = 0;
  if (!file.Open(path, kAttributesOnly, OPEN_EXISTING) ||
      GetFileInformationByHandle(file.handle(), &facts) == 0) {
    return false;
  }
  *identity = {facts.dwVolumeSerialNumber, facts.nFileIndexHigh, facts.nFileIndexLow};
  return true;
}

}  // namespace

void SetPrivateFolder(const char* path) {
  g_givenFolder = path != nullptr ? path : "";
}

int64_t ReadPrivateFile(const char* name, void* destination, size_t bytes) {
  const std::string folder = Folder();
  if (folder.empty()) return kFileIsUnreadable;
  const std::string path = folder + name;
  const Turn turn;
  File file;
  if (!RetryWhileShared([&] { return file.Open(path, GENERIC_READ, OPEN_EXISTING); })) {
    const DWORD error = GetLastError();
    const bool isMissing = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    return isMissing ? kFileIsMissing : kFileIsUnreadable;
  }
  DWORD done = 0;
  if (ReadFile(file.handle(), destination, static_cast<DWORD>(bytes), &done, nullptr) == 0) {
    return kFileIsUnreadable;
  }
  return done;
}

bool ReplacePrivateFile(const char* name, const void* source, size_t bytes) {
  const std::string folder = Folder();
  if (folder.empty()) return false;
  const std::string path = folder + name;
  const Turn turn;
  File file;
  const std::string temporary = CreateTemporary(path, &file);
  if (temporary.empty()) return false;
  DWORD done = 0;
  const bool isWritten =
      WriteFile(file.handle(), source, static_cast<DWORD>(bytes), &done, nullptr) != 0 && done == bytes;
  const bool isReplaced =
      file.Close() && isWritten && RetryWhileShared([&] {
        return MoveFileExA(temporary.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING) != 0;
      });
  if (!isReplaced) DeleteFileA(temporary.c_str());
  return isReplaced;
}

bool IsSameFile(const char* path, const char* otherPath) {
  FileIdentity identity{};
  FileIdentity other{};
  return Identify(path, &identity) && Identify(otherPath, &other) && identity == other;
}

}  // namespace tessaline
