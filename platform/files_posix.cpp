#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include "platform/files.h"

namespace tessaline {

namespace {

std::string g_givenFolder;  // of SetPrivateFolder

// An open file or folder, closed when it goes out of scope.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(other.number_) { other.number_ = -1; }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor& operator=(Descriptor&&) = delete;
  ~Descriptor() { Close(); }
  bool Close() {
    const bool wasClosed = number_ < 0 || close(number_) == 0;
    number_ = -1;
    return wasClosed;
  }
  bool isOpen() const { return number_ >= 0; }
  int number() const { return number_; }

 private:
  int number_;
};

Descriptor NoFolder() {
  return Descriptor(-1);
}

bool IsOwn(const struct stat& status) {
  return status.st_uid == geteuid();
}

bool IsOwnFolder(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && IsOwn(status);
}

void MakeFoldersUpTo(const std::string& path) {
  for (size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1)) {
    mkdir(path.substr(0, end).c_str(), 0700);
  }
  mkdir(path.c_str(), 0700);
}

// The folder `path`, made when missing. It is judged by what was opened, not by its name, so nobody can swap
// it between the look and the use.
Descriptor OpenPrivateFolder(const std::string& path) {
  mkdir(path.c_str(), 0700);
  Descriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  const bool isPrivate = folder.isOpen() && fstat(folder.number(), &status) == 0 && IsOwn(status) &&
                         (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
  return isPrivate ? std::move(folder) : NoFolder();
}

// The program's folder under a base such as ~/.local/state; the base is made when missing.
Descriptor OpenUnder(const std::string& base) {
  if (base.empty() || base.front() != '/') return NoFolder();
  MakeFoldersUpTo(base);
  // Somebody else's base (root started with the user's environment) is left alone: files of ours in it would
  // lock its owner out.
  return IsOwnFolder(base) ? OpenPrivateFolder(base + "/tessaline") : NoFolder();
}

Descriptor OpenUnderHome(const std::string& home) {
  return IsOwnFolder(home) ? OpenUnder(home + "/.local/state") : NoFolder();
}

std::string Environment(const char* name) {
  const char* const value = secure_getenv(name);
  return value != nullptr ? value : "";
}

std::string HomeOfUserDatabase() {
  struct passwd entry {};
  struct passwd* found = nullptr;
  char text[4096];
  if (getpwuid_r(geteuid(), &entry, text, sizeof text, &found) != 0 || found == nullptr) return "";
  return entry.pw_dir != nullptr ? entry.pw_dir : "";
}

Descriptor OpenFolder() {
  if (!g_givenFolder.empty()) return OpenPrivateFolder(g_givenFolder);
  Descriptor state = OpenUnder(Environment("XDG_STATE_HOME"));
  if (state.isOpen()) return state;
  Descriptor home = OpenUnderHome(Environment("HOME"));
  if (home.isOpen()) return home;
  Descriptor databaseHome = OpenUnderHome(HomeOfUserDatabase());
  if (databaseHome.isOpen()) return databaseHome;
  return OpenPrivateFolder("/tmp/tessaline-" + std::to_string(geteuid()));
}

// Reads or writes until `bytes` are done, the file ends or fails. Returns the bytes done, or -1 when it
// failed.
template <typename Byte, typename Transfer>
int64_t TransferAll(Transfer transfer, int file, Byte* data, size_t bytes) {
  size_t done = 0;
  while (done < bytes) {
    const ssize_t step = transfer(file, data + done, bytes - done);
    if (step < 0 && errno == EINTR) continue;
    if (step < 0) return -1;
    if (step == 0) break;
    done += static_cast<size_t>(step);
  }
  return static_cast<int64_t>(done);
}

std::string TemporaryName(const char* name) {
  static std::atomic<uint32_t> counter{0};
  return std::string(name) + "." + std::to_string(getpid()) + "." + std::to_string(counter++) + ".tmp";
}

}  // namespace

void SetPrivateFolder(const char* path) {
  g_givenFolder = path != nullptr ? path : "";
  // "link/" would be followed where "link" is not.
  while (g_givenFolder.size() > 1 && g_givenFolder.back() == '/') g_givenFolder.pop_back();
}

int64_t ReadPrivateFile(const char* name, void* destination, size_t bytes) {
  const Descriptor folder = OpenFolder();
  if (!folder.isOpen()) return kFileIsUnreadable;
  const Descriptor file(openat(folder.number(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file.isOpen()) return errno == ENOENT ? kFileIsMissing : kFileIsUnreadable;
  struct stat status {};
  if (fstat(file.number(), &status) != 0 || !S_ISREG(status.st_mode)) return kFileIsUnreadable;
  const int64_t done = TransferAll(read, file.number(), static_cast<char*>(destination), bytes);
  return done >= 0 ? done : kFileIsUnreadable;
}

bool ReplacePrivateFile(const char* name, const void* source, size_t bytes) {
  const Descriptor folder = OpenFolder();
  if (!folder.isOpen()) return false;
  // A name is taken only by a program of the same number that died, or lives in another container.
  constexpr int kMostNames = 64;
  for (int i = 0; i < kMostNames; ++i) {
    const std::string temporary = TemporaryName(name);
    Descriptor file(openat(folder.number(), temporary.c_str(),
                           O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file.isOpen() && errno == EEXIST) continue;
    if (!file.isOpen()) return false;
    const bool isWritten = TransferAll(write, file.number(), static_cast<const char*>(source), bytes) ==
                           static_cast<int64_t>(bytes);
    const bool isReplaced =
        file.Close() && isWritten && renameat(folder.number(), temporary.c_str(), folder.number(), name) == 0;
    if (!isReplaced) unlinkat(folder.number(), temporary.c_str(), 0);
    return isReplaced;
  }
  return false;
}

bool IsSameFile(const char* path, const char* otherPath) {
  struct stat status {};
  struct stat other {};
  return stat(path, &status) == 0 && stat(otherPath, &other) == 0 && S_ISREG(status.st_mode) &&
         status.st_dev == other.st_dev && status.st_ino == other.st_ino;
}

}  // namespace tessaline
